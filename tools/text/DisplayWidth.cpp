// SPDX-License-Identifier: Apache-2.0
#include "tools/text/DisplayWidth.h"

#include <utf8proc.h>

#include "tools/text/Utf8.h"

namespace idl::tools {

std::size_t displayWidth(std::string_view text) {
  std::size_t width = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Unit unit = utf8At(text, at);
    width += unit.isCharacter
                 ? static_cast<std::size_t>(utf8proc_charwidth(static_cast<utf8proc_int32_t>(unit.character)))
                 : 1;
    at += unit.length;
  }
  return width;
}

}  // namespace idl::tools
