// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_IDLCTL_H
#define TOOLS_IDLCTL_IDLCTL_H

#include <string>
#include <vector>

#include "tools/idlctl/Command.h"

namespace CLI {
class App;
}

namespace idl::tools {

/// The whole program but for its process: `arguments` without the program's name.
/// @return the exit code
int idlctl(const std::vector<std::string>& arguments, const Streams& streams);

/// All of its arguments, for completion and help. `privateBench` gets the name that --private gives.
void addCommands(CLI::App& app, Action& action, std::string& privateBench);

}  // namespace idl::tools

#endif
