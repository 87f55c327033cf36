// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/Owner.h"

#include <grp.h>
#include <pwd.h>

#include <cstdio>

#include "tools/text/Escape.h"

namespace idl::tools {

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

// One thread: the database's static results are used at once.
std::string ownerText(uid_t owner, gid_t group) {
  const passwd* user = getpwuid(owner);
  const ::group* members = getgrgid(group);
  return printable(user != nullptr ? user->pw_name : std::to_string(owner)) + ':' +
         printable(members != nullptr ? members->gr_name : std::to_string(group));
}

}  // namespace idl::tools
