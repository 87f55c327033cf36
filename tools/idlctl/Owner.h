// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_OWNER_H
#define TOOLS_IDLCTL_OWNER_H

#include <sys/types.h>

#include <string>

namespace idl::tools {

/// "0660"
std::string modeText(mode_t mode);

/// "root:audio", or the numbers of those who have no name.
std::string ownerText(uid_t owner, gid_t group);

}  // namespace idl::tools

#endif
