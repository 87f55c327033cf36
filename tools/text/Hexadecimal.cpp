// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Hexadecimal.h"

namespace idl::tools {

namespace {

constexpr std::string_view DIGITS = "0123456789abcdef";

}  // namespace

std::string hexadecimalOf(std::string_view bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += DIGITS[value >> 4U];
    text += DIGITS[value & 15U];
  }
  return text;
}

std::optional<std::string> bytesOf(std::string_view hexadecimal) {
  if (hexadecimal.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(hexadecimal.size() / 2);
  for (std::size_t at = 0; at < hexadecimal.size(); at += 2) {
    const std::size_t high = DIGITS.find(hexadecimal[at]);
    const std::size_t low = DIGITS.find(hexadecimal[at + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) {
      return std::nullopt;
    }
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

}  // namespace idl::tools
