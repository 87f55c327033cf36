// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_PARSED_H
#define TOOLS_TEXT_PARSED_H

#include <optional>
#include <string>
#include <utility>

namespace idl::tools {

/// What a text means, or why it means nothing.
template <class T>
struct Parsed {
  std::optional<T> value;
  std::string error;  // for a person, without the text itself; empty where there is a value

  static Parsed of(T found) { return {std::move(found), {}}; }
  static Parsed failed(std::string why) { return {std::nullopt, std::move(why)}; }

  explicit operator bool() const { return value.has_value(); }
};

}  // namespace idl::tools

#endif
