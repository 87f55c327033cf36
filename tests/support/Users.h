// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_USERS_H
#define TESTS_SUPPORT_USERS_H

#include <grp.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

/// Makes this process that user, for good, with these groups and no other; the first is its primary one. Needs root,
/// but no entry in the user database.
/// @throw std::system_error
inline void become(uid_t user, const std::vector<gid_t>& groups) {
  if (setgroups(groups.size(), groups.data()) != 0 || setgid(groups.front()) != 0 || setuid(user) != 0) {
    throw std::system_error(errno, std::generic_category(), "another user");
  }
}

#endif
