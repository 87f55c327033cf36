// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_GRAMMAR_H
#define TOOLS_SCENARIO_GRAMMAR_H

#include <string>
#include <string_view>
#include <vector>

namespace idl::tools::scenario {

enum class CommandKind {
  PHONE_ADD,
  PHONE_CHANGE,
  PHONE_RENAME,
  PHONE_REMOVE,
  BT_PAIR,
  BT_UNPAIR,
  CP_KNOWN,
  CP_CONNECT,
  CP_DISCONNECT,
  CP_FORGET,
  AAP_KNOWN,
  AAP_PLUG,
  AAP_UNPLUG,
  AAP_FORGET,
  SOURCE_CHANGE,
  SOURCE_RENAME,
  SOURCE_CLEAR,
  SOURCE_RESTART,
  SOURCE_CRASH,
  SOURCE_GARBAGE,
  SOURCE_CUT,
  SOURCE_VANISH,
  SOURCE_RETURN,
  FUNCINFO_SET,
  FUNCINFO_VANISH,
  CLIENT_START,
  CLIENT_RESTART,
  CLIENT_STOP,
  CLIENT_KILL,
  CLIENT_REFRESH,
  SAVED_SET,
  SAVED_FORGET,
  SAVED_CUT,
  SAVED_GARBAGE,
  WAIT,
  RANDOM,
  EXPECT_LIST,
  EXPECT_NO,
  EXPECT_ROW,
  EXPECT_ORDER,
  EXPECT_STARTED,
  EXPECT_SUFFIX,
};

/// One kind of command, as people read it. What the parser takes, what an error says, what completion offers and what
/// docs/scenarios.md has to describe all come from these.
///
/// `usage` is the grammar: words in small letters stand for themselves, alternatives being divided by a bar, those in
/// capitals for a value of that kind (see ValueKind), SOURCE in front for "bt|cp|aap"; key=KIND may stand anywhere
/// behind the first words, what is in brackets may be left out, and dots mean one or more.
struct CommandRule {
  CommandKind kind;
  const char* usage;
  const char* about;
  const char* example;
};

const std::vector<CommandRule>& commandRules();

enum class ValueKind {
  CHOICE,    // one of the words given
  TEXT,      // a name: quoted, or a single word; no NUL
  HANDLE,    // a new name for a phone in this scenario: letters, digits, - and _
  PHONE,     // the handle of a phone that was added
  BTID,      // 0 to 254, or none
  ID,        // 1 to 2^64-1, also as 0x...
  ANYID,     // the same, or 0
  PORT,      // 32 bits with a sign
  BYTE,      // 0 to 255
  NUMBER,    // 0 to 2^32-1
  ROW,       // 1 to 1000
  COUNT,     // 0 to 1000000
  DURATION,  // 200ms, 2s, 1.5s, 3m, 1h
};

struct Operand {
  ValueKind kind = ValueKind::TEXT;
  std::vector<std::string> choices;  // of CHOICE
  std::string name;                  // as the usage has it
  bool isOptional = false;
  bool isMany = false;
};

struct Option {
  std::string key;
  Operand value;
};

/// A rule's usage, taken apart.
struct CommandShape {
  const CommandRule* rule = nullptr;
  std::vector<std::vector<std::string>> verb;  // for each of its first words the alternatives
  std::vector<Operand> operands;
  std::vector<Option> options;
};

/// Of commandRules(), in their order.
const std::vector<CommandShape>& commandShapes();

/// What may come next, sorted: words, "key=" where a value follows, "key=value" where it is one of a few words, and the
/// handles of `phones` where a phone is wanted. `line` is what was written so far of one statement; its last word is
/// completed unless a blank follows it.
std::vector<std::string> completions(std::string_view line, const std::vector<std::string>& phones);

}  // namespace idl::tools::scenario

#endif
