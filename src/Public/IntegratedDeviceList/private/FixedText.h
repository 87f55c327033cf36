// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_FIXEDTEXT_H
#define INTEGRATEDDEVICELIST_PRIVATE_FIXEDTEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>

/// The text in a fixed-size field: all bytes up to the first NUL, or the whole field when there is none.
template <std::size_t Size>
std::string_view fixedText(const char (&field)[Size]) {
  return std::string_view(field, strnlen(field, Size));
}

#endif
