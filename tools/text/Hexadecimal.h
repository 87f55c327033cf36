// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_HEXADECIMAL_H
#define TOOLS_TEXT_HEXADECIMAL_H

#include <optional>
#include <string>
#include <string_view>

namespace idl::tools {

/// Two lower-case digits for each byte.
std::string hexadecimalOf(std::string_view bytes);

/// The reverse; nothing for anything else.
std::optional<std::string> bytesOf(std::string_view hexadecimal);

}  // namespace idl::tools

#endif
