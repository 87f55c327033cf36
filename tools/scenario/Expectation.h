// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_EXPECTATION_H
#define TOOLS_SCENARIO_EXPECTATION_H

#include <optional>
#include <string>
#include <vector>

#include "tools/scenario/Parser.h"
#include "tools/scenario/Phone.h"

namespace idl::tools::scenario {

/// What a client has; nothing when its list is not started.
using MaybeList = std::optional<std::vector<Row>>;

bool isExpectation(CommandKind kind);

/// Whether the list is as the expectation says, and if not, what is wrong with it. `command` must be an expectation.
struct Verdict {
  bool isMet = false;
  std::string why;  // empty where it is met
};
Verdict judge(const Command& command, const MaybeList& list);

/// What was expected and what there is, as two tables; several lines.
std::string comparison(const Command& command, const MaybeList& list, bool colour);

/// A list for people to read: a line for each row, names quoted.
std::string listText(const MaybeList& list, bool colour);

/// Whether the rows stand as every list does: first those that are not paired, by port, then the paired ones, by
/// Bluetooth id.
bool isInOrder(const std::vector<Row>& rows);

}  // namespace idl::tools::scenario

#endif
