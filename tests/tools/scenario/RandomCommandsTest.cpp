// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tools/scenario/NotingBench.h"
#include "tools/scenario/RandomCommands.h"
#include "tools/scenario/Runner.h"

using idl::tools::scenario::Command;
using idl::tools::scenario::CommandKind;
using idl::tools::scenario::RandomCommands;
using idl::tools::scenario::Roster;
using idl::tools::scenario::Runner;

TEST(CommandsByChance, AreTheSameOnEveryMachine) {
  RandomCommands commands(1);

  EXPECT_EQ(commands.next(Roster(), false), "client start");
  EXPECT_EQ(commands.next(Roster(), true), "phone add r1 name=\"\\xff\\xfe\" port=1");
}

TEST(CommandsByChance, BeginWithAPhone) {
  for (std::uint64_t seed = 0; seed < 20; ++seed) {
    EXPECT_EQ(RandomCommands(seed).next(Roster(), true).substr(0, 13), "phone add r1 ");
  }
}

TEST(CommandsByChance, AreOfEveryKindThatDamagesNothing) {
  const std::set<CommandKind> expected = {
      CommandKind::PHONE_ADD,    CommandKind::PHONE_RENAME,   CommandKind::BT_PAIR,        CommandKind::BT_UNPAIR,
      CommandKind::CP_KNOWN,     CommandKind::CP_CONNECT,     CommandKind::CP_DISCONNECT,  CommandKind::CP_FORGET,
      CommandKind::AAP_KNOWN,    CommandKind::AAP_PLUG,       CommandKind::AAP_UNPLUG,     CommandKind::AAP_FORGET,
      CommandKind::SOURCE_CLEAR, CommandKind::SOURCE_RENAME,  CommandKind::SOURCE_RESTART, CommandKind::SOURCE_CRASH,
      CommandKind::CLIENT_START, CommandKind::CLIENT_RESTART, CommandKind::CLIENT_KILL,    CommandKind::CLIENT_REFRESH,
      CommandKind::RANDOM,
  };
  NotingBench bench;
  std::set<CommandKind> seen;
  Runner::Options options;
  options.beforeEach = [&](const Command& command) {
    seen.insert(command.kind);
    return true;
  };

  const auto result = Runner(bench, options).run("", idl::tools::scenario::Parser("").parse("random 3000").commands);

  EXPECT_EQ(result.report(), "");
  EXPECT_EQ(seen, expected);
}
