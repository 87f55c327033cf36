// SPDX-License-Identifier: Apache-2.0
#include "tools/text/JsonText.h"

#include <nlohmann/json.hpp>

#include "tools/text/Hexadecimal.h"
#include "tools/text/Utf8.h"

namespace idl::tools {

namespace {

constexpr char32_t REPLACEMENT = 0xFFFD;

std::string withReplacements(std::string_view bytes) {
  std::string text;
  for (std::size_t at = 0; at < bytes.size();) {
    const Utf8Unit unit = utf8At(bytes, at);
    if (unit.isCharacter) {
      text += bytes.substr(at, unit.length);
    } else {
      appendUtf8(text, REPLACEMENT);
    }
    at += unit.length;
  }
  return text;
}

}  // namespace

void setText(nlohmann::json& object, const std::string& key, std::string_view bytes) {
  object[key] = withReplacements(bytes);
  if (isUtf8(bytes)) {
    object.erase(key + "Hex");
  } else {
    object[key + "Hex"] = hexadecimalOf(bytes);
  }
}

std::string decimal(std::uint64_t number) { return std::to_string(number); }

std::string decimal(std::int64_t number) { return std::to_string(number); }

std::string jsonText(const nlohmann::json& value, int indent) { return value.dump(indent, ' ', true); }

}  // namespace idl::tools
