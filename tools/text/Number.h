// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_NUMBER_H
#define TOOLS_TEXT_NUMBER_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace idl::tools {

/// A number of 64 bits without a sign, decimal or 0x...; nothing for any other text. A leading 0 means nothing.
std::optional<std::uint64_t> unsignedNumber(std::string_view text);

/// The same of 32 bits, with a minus or without.
std::optional<std::int32_t> signedNumber(std::string_view text);

}  // namespace idl::tools

#endif
