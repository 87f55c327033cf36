// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_PARSER_H
#define TOOLS_SCENARIO_PARSER_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/scenario/Grammar.h"
#include "tools/scenario/Lexer.h"
#include "tools/scenario/Phone.h"

namespace idl::tools::scenario {

/// An operand or what an option gives, checked.
struct Value {
  std::string text;          // the bytes of a text, else the word as it was written
  std::uint64_t number = 0;  // of the kinds that are numbers; a DURATION in milliseconds, a PORT sign-extended

  std::uint8_t byte() const { return static_cast<std::uint8_t>(number); }
  std::int32_t port() const { return static_cast<std::int32_t>(number); }
  std::chrono::milliseconds duration() const {
    return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(number));
  }
  Source source() const { return *sourceOf(text); }  // of a CHOICE of SOURCE
};

/// A command that keeps the grammar's rules.
struct Command {
  CommandKind kind = CommandKind::WAIT;
  Position position;
  std::string text;                // as it was written
  std::vector<std::string> words;  // those in front, such as "bt", "pair"
  std::vector<Value> operands;
  std::map<std::string, Value> options;

  /// Null when it is not given.
  const Value* option(const std::string& key) const {
    const auto found = options.find(key);
    return found == options.end() ? nullptr : &found->second;
  }

  /// Of the commands that begin with one.
  Source source() const { return *sourceOf(words.front()); }
};

struct Parsing {
  std::vector<Command> commands;
  std::vector<Mistake> mistakes;  // in the order of their places; at most one for each statement
};

/// Makes commands out of scenarios. It remembers the phones that were added, so that one piece after another may be
/// given to it, as from a prompt. For one thread.
class Parser {
 public:
  /// `file` is what mistakes are told of.
  explicit Parser(std::string file);

  /// Takes what is right and tells what is not; a scenario with a mistake is not to be run.
  Parsing parse(std::string_view text);

  /// Makes known a phone that was added elsewhere.
  void know(const std::string& handle) { mPhones.insert(handle); }

  /// The phones' handles, sorted.
  std::vector<std::string> phones() const { return {mPhones.begin(), mPhones.end()}; }

 private:
  Command parseStatement(const Statement& statement);
  void knowWhatWasMeant(const Statement& statement);
  Value valueOf(const Operand& kind, const Token& token) const;

  const std::string mFile;
  std::set<std::string> mPhones;
};

}  // namespace idl::tools::scenario

#endif
