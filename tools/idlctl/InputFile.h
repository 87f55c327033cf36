// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_INPUTFILE_H
#define TOOLS_IDLCTL_INPUTFILE_H

#include <string>

namespace idl::tools {

/// Stands for the standard input in the place of a file.
constexpr char STANDARD_INPUT[] = "-";

/// All that a file holds.
/// @throw std::runtime_error, with the system's reason, when it cannot be opened or read: a folder opens, for one.
std::string contentOf(const std::string& path);

/// The same of the standard input, up to its end.
std::string contentOfStandardInput();

}  // namespace idl::tools

#endif
