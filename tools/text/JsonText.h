// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_JSONTEXT_H
#define TOOLS_TEXT_JSONTEXT_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace idl::tools {

/// Sets `key` of the object to the bytes of a text. Where they are not UTF-8, each byte that is no part of it is
/// U+FFFD there, and `key` + "Hex" holds all of the bytes in lower-case hexadecimal; else there is no such key.
void setText(nlohmann::json& object, const std::string& key, std::string_view bytes);

/// A number of 64 bits as the text of its decimal digits: readers that keep numbers as floating point would round it.
std::string decimal(std::uint64_t number);
std::string decimal(std::int64_t number);

/// The value as text: keys in order, nothing but ASCII (so that no name can steer a terminal), `indent` blanks for
/// each level, or a single line where it is negative. Without a line feed at its end.
std::string jsonText(const nlohmann::json& value, int indent = 2);

}  // namespace idl::tools

#endif
