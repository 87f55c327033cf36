// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_UTF8_H
#define TOOLS_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace idl::tools {

/// What stands at one place of a text: a character, or a byte that is part of none.
struct Utf8Unit {
  bool isCharacter = false;
  char32_t character = 0;  // 0 where it is a byte
  std::size_t length = 0;  // bytes; 1 where it is a byte
};

/// What stands at `at`, which must be before the end. Overlong forms and surrogates are bytes, as in the standard.
Utf8Unit utf8At(std::string_view text, std::size_t at);

bool isUtf8(std::string_view text);

/// Appends a character, which must be one: at most U+10FFFF, no surrogate.
void appendUtf8(std::string& text, char32_t character);

}  // namespace idl::tools

#endif
