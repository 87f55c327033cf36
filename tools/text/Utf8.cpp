// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Utf8.h"

#include <utf8proc.h>

namespace idl::tools {

Utf8Unit utf8At(std::string_view text, std::size_t at) {
  utf8proc_int32_t character = 0;
  const auto* const bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + at;
  const utf8proc_ssize_t length = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &character);
  if (length <= 0) {
    return {false, 0, 1};
  }
  return {true, static_cast<char32_t>(character), static_cast<std::size_t>(length)};
}

bool isUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Unit unit = utf8At(text, at);
    if (!unit.isCharacter) {
      return false;
    }
    at += unit.length;
  }
  return true;
}

void appendUtf8(std::string& text, char32_t character) {
  utf8proc_uint8_t bytes[4] = {};
  const utf8proc_ssize_t length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes);
  text.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

}  // namespace idl::tools
