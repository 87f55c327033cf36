// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Number.h"

#include <limits>

namespace idl::tools {

namespace {

int digitOf(char character, unsigned base) {
  int digit = -1;
  if (character >= '0' && character <= '9') {
    digit = character - '0';
  } else if (character >= 'a' && character <= 'f') {
    digit = character - 'a' + 10;
  } else if (character >= 'A' && character <= 'F') {
    digit = character - 'A' + 10;
  }
  return digit < static_cast<int>(base) ? digit : -1;
}

}  // namespace

std::optional<std::uint64_t> unsignedNumber(std::string_view text) {
  const unsigned base = text.size() > 2 && (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") ? 16 : 10;
  if (base == 16) {
    text.remove_prefix(2);
  }
  if (text.empty()) {
    return std::nullopt;
  }
  std::uint64_t number = 0;
  for (const char character : text) {
    const int digit = digitOf(character, base);
    if (digit < 0 || number > (std::numeric_limits<std::uint64_t>::max() - static_cast<unsigned>(digit)) / base) {
      return std::nullopt;
    }
    number = number * base + static_cast<unsigned>(digit);
  }
  return number;
}

std::optional<std::int32_t> signedNumber(std::string_view text) {
  const bool isNegative = !text.empty() && text.front() == '-';
  const auto number = unsignedNumber(text.substr(isNegative ? 1 : 0));
  const std::uint64_t most = std::uint64_t{std::numeric_limits<std::int32_t>::max()} + (isNegative ? 1 : 0);
  if (!number || *number > most) {
    return std::nullopt;
  }
  const auto value = static_cast<std::int64_t>(*number);
  return static_cast<std::int32_t>(isNegative ? -value : value);
}

}  // namespace idl::tools
