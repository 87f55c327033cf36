// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_RANDOMCOMMANDS_H
#define TOOLS_SCENARIO_RANDOMCOMMANDS_H

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tools/scenario/Roster.h"

namespace idl::tools::scenario {

/// Makes up commands that are right at the moment: phones come, go and change their names, services and the client are
/// ended, killed and started. What damages a table or the saved file is not among them, so every list has to be right.
///
/// The same seed and the same past make the same commands, on every machine.
class RandomCommands {
 public:
  explicit RandomCommands(std::uint64_t seed) : mEngine(seed) {}

  /// The next command, as a scenario has it. `clientRuns` says whether there is a client now; one that does not run is
  /// started first.
  std::string next(const Roster& roster, bool clientRuns);

 private:
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(mEngine() % bound); }
  std::string oneOf(const std::vector<std::string>& words) { return words[below(words.size())]; }
  std::string newPhone(const Roster& roster);
  std::string aboutPhone(const Roster& roster, const std::string& handle);
  std::string aboutProcesses(const Roster& roster);
  std::string name();

  std::mt19937_64 mEngine;
};

}  // namespace idl::tools::scenario

#endif
