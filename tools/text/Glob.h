// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_GLOB_H
#define TOOLS_TEXT_GLOB_H

#include <string_view>

namespace idl::tools {

/// Whether the pattern matches the whole name: * any characters, ? one, [a-z] one of a set, [!a-z] one that is not of
/// it; a backslash takes the next character literally. Upper and lower case differ, nothing is special about slashes
/// and dots. A bracket that is not closed stands for itself.
///
/// Characters are those of UTF-8, whatever the process's locale, so that ? stands for one "é"; a byte that is no part
/// of UTF-8 counts as a character. (The C library's fnmatch() would take "é" for two characters as well as for one.)
bool globMatches(std::string_view pattern, std::string_view name);

}  // namespace idl::tools

#endif
