// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_COMPLY_RULES_H
#define TOOLS_COMPLY_RULES_H

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "tools/inspect/TableCopy.h"

namespace idl::tools::comply {

/// What a service owes those who read its table.
enum class Rule {
  ENDS_TEXTS,
  KEEPS_FREE_SLOTS_FREE,
  KEEPS_SIZE_WORD,
  USES_IDS_IN_RANGE,
  NOTIFIES,
  WRITES_UNDER_LOCK,
};

constexpr std::array<Rule, 6> RULES = {Rule::ENDS_TEXTS,      Rule::KEEPS_FREE_SLOTS_FREE,
                                       Rule::KEEPS_SIZE_WORD, Rule::USES_IDS_IN_RANGE,
                                       Rule::NOTIFIES,        Rule::WRITES_UNDER_LOCK};

const char* idOf(Rule rule);     // "ends-texts"
const char* titleOf(Rule rule);  // "ends its texts"

/// UNKNOWN: what would tell was not to be seen.
enum class Verdict { PASSED, BROKEN, UNKNOWN };

/// Bytes that break a rule.
struct Offence {
  std::string what;  // a sentence
  std::size_t at = 0;
  std::string bytes;
};

/// What one look at a table says about one rule.
struct Judgement {
  Verdict verdict = Verdict::UNKNOWN;
  std::optional<Offence> offence;  // where it is broken: the first
};

/// Whether the table is as the first client makes it that comes before the service, whatever the size word is: of
/// zeros, which say of Bluetooth's slots that there is a phone without a name, and for CarPlay with the defaults that
/// any client writes. A service without a phone may leave the same.
bool isUnwritten(const Source& source, const TableCopy& copy);

/// Judges a table by a copy that is no half-written one. UNKNOWN for the rules that need more than one look, and where
/// there is nothing that could break the rule.
Judgement judge(Rule rule, const Source& source, const TableCopy& copy);

}  // namespace idl::tools::comply

#endif
