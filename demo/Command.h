// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_COMMAND_H
#define DEMO_COMMAND_H

#include <cstdint>
#include <map>
#include <string>

namespace demo {

/// One line of a stand-in service's input: words, and fields of a phone in any order:
///
///     put 0 id=3 name="Anna's phone"
///
/// Double quotes hold what has blanks in it; there is no way to write a double quote.
class Command {
 public:
  /// @throw std::invalid_argument for a line that is not written that way.
  explicit Command(const std::string& line);

  /// The first word; empty for an empty line.
  const std::string& name() const { return mName; }

  /// The word after the first as a number up to `highest`, in decimal or with 0x. @throw std::invalid_argument
  std::uint64_t number(std::uint64_t highest) const;

  /// A field's text; `absent` when there is none of that key.
  std::string text(const std::string& key, const std::string& absent = {}) const;

  /// A field's number up to `highest`; `absent` when there is none of that key. @throw std::invalid_argument
  std::uint64_t number(const std::string& key, std::uint64_t highest, std::uint64_t absent) const;

 private:
  std::string mName;
  std::string mArgument;
  std::map<std::string, std::string> mFields;
};

}  // namespace demo

#endif
