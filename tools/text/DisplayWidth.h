// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_DISPLAYWIDTH_H
#define TOOLS_TEXT_DISPLAYWIDTH_H

#include <cstddef>
#include <string_view>

namespace idl::tools {

/// The columns that a text takes on a terminal: two for a wide character, none for a mark that stands on another
/// character, one for a byte that is no UTF-8. Meant for texts without control characters, which count as none.
std::size_t displayWidth(std::string_view text);

}  // namespace idl::tools

#endif
