// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tools/scenario/NotingBench.h"
#include "tools/scenario/Runner.h"

using idl::tools::scenario::Command;
using idl::tools::scenario::MaybeList;
using idl::tools::scenario::Outcome;
using idl::tools::scenario::Parser;
using idl::tools::scenario::Row;
using idl::tools::scenario::Runner;
using idl::tools::scenario::RunResult;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

std::vector<Command> parsed(const std::string& text) {
  auto parsing = Parser("file").parse(text);
  EXPECT_THAT(parsing.mistakes, IsEmpty()) << mistakeText(parsing.mistakes.front());
  return parsing.commands;
}

Row named(const std::string& name) {
  Row row;
  row.name = name;
  row.btid = 1;
  return row;
}

MaybeList listOf(const std::vector<std::string>& names) {
  std::vector<Row> rows;
  for (const std::string& name : names) {
    rows.push_back(named(name));
  }
  return rows;
}

}  // namespace

/// A runner whose time stands still but for what it sleeps.
class AScenario : public testing::Test {
 protected:
  Runner::Options options() {
    Runner::Options options;
    options.now = [this] { return mNow; };
    options.sleep = [this](milliseconds duration) {
      mNow += duration;
      mSlept += duration;
    };
    return options;
  }

  RunResult run(const std::string& text) { return run(text, options()); }

  RunResult run(const std::string& text, const Runner::Options& given) {
    const auto commands = parsed(text);
    Runner runner(mBench, given);
    auto result = runner.run("file", commands);
    EXPECT_EQ(result.steps.size(), commands.size());
    return result;
  }

  /// What the bench is told of after the beginning.
  std::vector<std::string> notes(const std::string& text) {
    const RunResult result = run("wait 0ms\n" + text);
    EXPECT_EQ(result.report(), "");
    auto all = mBench.take();
    all.erase(all.begin(), all.begin() + 6);
    return all;
  }

  NotingBench mBench;
  Runner::Clock::time_point mNow{};
  milliseconds mSlept{0};
};

TEST_F(AScenario, BeginsWithEmptyTablesAndAClient) {
  run("wait 0ms");

  EXPECT_THAT(mBench.notes, ElementsAre("forget", "no bluetooth", "back bt", "back cp", "back aap", "start 0"));
}

TEST_F(AScenario, PairsPhones) {
  EXPECT_THAT(notes("phone add anna name=A btid=3 ; phone add ben address=x ; bt pair anna ben\n"
                    "bt unpair anna ; phone add carl btid=2 ; bt pair carl"),
              ElementsAre("put bt 0 (A 3 00:00:5E:00:53:01)", "put bt 1 (ben 1 x)", "clear bt 0",
                          "put bt 0 (carl 2 00:00:5E:00:53:03)"));
}

TEST_F(AScenario, PlugsPhones) {
  EXPECT_THAT(
      notes("phone add ben btid=4 ; aap known ben session=2 ; aap plug ben ; aap plug ben port=5 btid=none\n"
            "aap unplug ben ; aap forget ben ; phone add eve aap=E port=7 ; aap plug eve"),
      ElementsAre("put aap 0 (ben 4 aap-ben 0 2)", "put aap 0 (ben 4 aap-ben 1 2)", "put aap 0 (ben none aap-ben 5 2)",
                  "put aap 0 (ben none aap-ben 0 2)", "clear aap 0", "put aap 0 (eve none E 7 0)"));
}

TEST_F(AScenario, ConnectsPhones) {
  EXPECT_THAT(notes("phone add anna ; phone add ben cp=7 ; cp known anna ; cp connect ben session=1 ; cp disconnect\n"
                    "cp connect anna ; cp forget anna"),
              ElementsAre("put cp 0 (anna none 1001 0)", "put cp 1 (ben none 7 1)", "current 7", "current 0",
                          "put cp 0 (anna none 1001 0)", "current 1001", "current 0", "clear cp 0"));
}

TEST_F(AScenario, ChangesAPhoneWhereItIsListed) {
  EXPECT_THAT(notes("phone add anna cp=5 btid=1 ; cp connect anna ; aap known anna\n"
                    "phone rename anna N ; aap rename anna M ; cp change anna btid=9 ; phone change anna cp=6\n"
                    "bt pair anna"),
              ElementsAre("put cp 0 (anna 1 5 0)", "current 5", "put aap 0 (anna 1 aap-anna 0 0)", "put cp 0 (N 1 5 0)",
                          "put aap 0 (N 1 aap-anna 0 0)", "put aap 0 (M 1 aap-anna 0 0)", "put cp 0 (N 9 5 0)",
                          "put cp 0 (N 9 6 0)", "current 6", "put aap 0 (M 1 aap-anna 0 0)",
                          "put bt 0 (N 1 00:00:5E:00:53:01)"));
}

TEST_F(AScenario, RemovesPhones) {
  EXPECT_THAT(notes("phone add anna btid=1 ; bt pair anna ; cp connect anna ; phone remove anna ; phone add anna"),
              ElementsAre(HasSubstr("put bt 0"), HasSubstr("put cp 0"), "current 1001", "clear bt 0", "current 0",
                          "clear cp 0"));
}

TEST_F(AScenario, ClearsAndRestartsSources) {
  EXPECT_THAT(
      notes("phone add anna btid=1 ; bt pair anna ; cp connect anna ; bt restart ; cp restart ; cp clear\n"
            "bt restart keep=no ; bt pair anna"),
      ElementsAre("put bt 0 (anna 1 00:00:5E:00:53:01)", "put cp 0 (anna 1 1001 0)", "current 1001", "restart bt",
                  "replace bt 0 (anna 1 00:00:5E:00:53:01)", "restart cp", "replace cp 0 (anna 1 1001 0)",
                  "current 1001", "current 0", "replace cp", "restart bt", "put bt 0 (anna 1 00:00:5E:00:53:01)"));
}

TEST_F(AScenario, CrashesSources) {
  EXPECT_THAT(notes("phone add anna btid=1 ; phone add ben btid=2 ; bt pair anna ; bt crash while=locked\n"
                    "bt crash while=half ; bt crash ben while=notify ; bt restart"),
              ElementsAre("put bt 0 (anna 1 00:00:5E:00:53:01)", "crash bt 0 0 ( none )",
                          "crash bt 1 0 (anna 1 00:00:5E:00:53:01)", "crash bt 2 1 (ben 2 00:00:5E:00:53:02)",
                          "restart bt", "replace bt 0 (anna 1 00:00:5E:00:53:01) 1 (ben 2 00:00:5E:00:53:02)"));
}

TEST_F(AScenario, DamagesTables) {
  EXPECT_THAT(notes("bt garbage seed=7 ; aap garbage ; cp cut bytes=100 ; bt vanish ; bt return\n"
                    "funcinfo bt=yes ; funcinfo vanish ; saved cut bytes=5 ; saved garbage seed=9 ; saved forget"),
              ElementsAre("garbage bt 7", "garbage aap 1", "cut cp 100", "vanish bt", "back bt", "replace bt",
                          "bluetooth", "vanish funcinfo", "cut saved 5", "garbage saved 9", "forget"));
}

TEST_F(AScenario, StartsAndEndsClients) {
  EXPECT_THAT(
      notes("client kill ; client start format=number-first follow=no ; client restart format=same\n"
            "client stop ; client restart follow=yes ; client refresh aap bt ; client kill ; client start\n"
            "client stop ; client start refresh=none ; client restart ; client restart refresh=all"),
      ElementsAre("kill", "start 1 deaf", "stop", "start 2 deaf", "stop", "start 2", "refresh aap", "refresh bt",
                  "kill", "start 0", "stop", "start 0 blind", "stop", "start 0 blind", "stop", "start 0"));
}

TEST_F(AScenario, SetsSavedNumbers) {
  notes("saved set A btid=1 suffix=2 ; saved set B btid=2 suffix=1 ; saved set C btid=1 suffix=3");

  ASSERT_THAT(mBench.numbers, SizeIs(2));
  EXPECT_EQ(mBench.numbers[0].name, "C");
  EXPECT_EQ(mBench.numbers[0].suffix, 3);
}

TEST_F(AScenario, WaitsFasterAtAHigherSpeed) {
  auto fast = options();
  fast.speed = 4;

  run("wait 2s", fast);

  EXPECT_EQ(mSlept, milliseconds(500));
}

TEST_F(AScenario, LooksOnceWhereNoTimeIsGiven) {
  mBench.lists = {listOf({}), listOf({"A"})};

  const RunResult result = run("expect list A");

  EXPECT_EQ(result.exitCode(), 1);
  EXPECT_EQ(mBench.looks, 1U);
  EXPECT_EQ(mSlept, milliseconds(0));
}

TEST_F(AScenario, LooksAgainUntilItsTimeIsOver) {
  mBench.lists = {listOf({}), listOf({}), listOf({"A"})};

  EXPECT_EQ(run("expect list A within=2s").exitCode(), 0);
  EXPECT_EQ(mBench.looks, 3U);
}

TEST_F(AScenario, LooksALastTimeWhenItsTimeIsOver) {
  const RunResult result = run("expect list A within=2s");

  EXPECT_EQ(result.exitCode(), 1);
  EXPECT_EQ(mSlept, milliseconds(2000));
  EXPECT_EQ(mBench.looks, 101U);
  EXPECT_THAT(result.report(), HasSubstr("no row is like this, after 2s"));
}

TEST_F(AScenario, ReportsWhatWasExpectedAndWhatIsThere) {
  mBench.lists = {listOf({"B"})};

  const RunResult result = run("wait 1s\n  expect list \"A\" btid=2 # no\nwait 1s");

  EXPECT_EQ(result.exitCode(), 1);
  EXPECT_EQ(result.report(),
            "file:2:3: no row is like this\n"
            "    expect list \"A\" btid=2\n"
            "expected:\n"
            "row  name  type  btid  port  session  suffix\n"
            "any  \"A\"            2\n"
            "actual:\n"
            "row  name  type  btid  port  session  suffix\n"
            "  1  \"B\"   bt       1     0        0       0\n");
}

TEST_F(AScenario, EndsWithWhatGoesWrong) {
  const RunResult result = run("expect list A ; client kill");

  EXPECT_EQ(result.steps[0].outcome, Outcome::FAILED);
  EXPECT_EQ(result.steps[1].outcome, Outcome::SKIPPED);
  EXPECT_THAT(mBench.notes, testing::Not(testing::Contains("kill")));
}

TEST_F(AScenario, SaysWhatCannotBe) {
  const std::vector<std::pair<std::string, std::string>> mistakes = {
      {"phone add a ; bt unpair a", "bt does not list 'a'"},
      {"phone add a ; bt pair a a", "'a' is paired already"},
      {"phone add a ; aap unplug a", "aap does not list 'a'"},
      {"phone add a ; cp rename a x", "cp does not list 'a'"},
      {"bt crash while=half", "bt lists no phone"},
      {"client start", "the client is running already"},
      {"client kill ; client stop", "the client is not running"},
      {"client kill ; client refresh bt", "the client is not running"},
      {"client kill ; expect started no", "the client is not running"},
      {"saved set A btid=none suffix=1", "only paired phones are saved"},
  };
  for (const auto& [text, why] : mistakes) {
    const RunResult result = run(text);

    EXPECT_EQ(result.exitCode(), 2) << text;
    EXPECT_THAT(result.report(), HasSubstr(why)) << text;
  }
}

// A slot without its identifier is free: the roster would go on listing a phone that no client can see.
TEST_F(AScenario, KeepsTheIdentifiersOfListedPhones) {
  const std::vector<std::pair<std::string, std::string>> mistakes = {
      {"phone add a ; bt pair a ; phone change a btid=none", "bt lists a phone only with its btid="},
      {"phone add a ; bt pair a ; bt change a btid=none", "to take 'a' off: bt unpair a"},
      {"phone add a ; aap plug a ; phone change a aap=\"\"", "aap lists a phone only with its aap="},
      {"phone add a ; aap plug a ; aap change a aap=\"\"", "to take 'a' off: aap forget a"},
      {"phone add a aap=\"\" ; aap known a", "aap lists a phone only with its aap="},
      {"phone add a aap=\"\" ; aap crash a while=half", "aap lists a phone only with its aap="},
  };
  for (const auto& [text, why] : mistakes) {
    const RunResult result = run(text);

    EXPECT_EQ(result.exitCode(), 2) << text;
    EXPECT_THAT(result.report(), HasSubstr(why)) << text;
  }
}

TEST_F(AScenario, ChangesNoSourceWhereOneCannotFollow) {
  mBench.take();
  const RunResult result = run("phone add a name=A ; bt pair a ; aap plug a ; phone change a name=B aap=\"\"");

  EXPECT_EQ(result.exitCode(), 2);
  for (const std::string& note : mBench.take()) {
    EXPECT_THAT(note, testing::Not(HasSubstr("B")));
  }
}

TEST_F(AScenario, SaysWhenATableIsFull) {
  std::string text;
  for (int i = 0; i < 11; ++i) {
    text += "phone add p" + std::to_string(i) + " ; bt pair p" + std::to_string(i) + '\n';
  }

  const RunResult result = run(text);

  EXPECT_EQ(result.exitCode(), 2);
  EXPECT_THAT(result.report(), AllOf(HasSubstr("file:11:"), HasSubstr("bt has room for 10 phones")));
}

TEST_F(AScenario, TellsTroubleOfTheBench) {
  mBench.breaksAt = "kill";

  const RunResult result = run("client kill");

  EXPECT_EQ(result.exitCode(), 3);
  EXPECT_THAT(result.report(), HasSubstr("file:1:1: broken"));
}

TEST_F(AScenario, TellsTroubleOfTheBeginning) {
  mBench.breaksAt = "back cp";

  const RunResult result = run("wait 1s ; wait 1s");

  EXPECT_EQ(result.exitCode(), 3);
  EXPECT_EQ(result.steps[1].outcome, Outcome::SKIPPED);
}

TEST_F(AScenario, MayBeEndedBeforeEachCommand) {
  std::vector<std::string> seen;
  auto given = options();
  given.beforeEach = [&](const Command& command) {
    seen.push_back(command.text);
    return seen.size() < 2;
  };

  const RunResult result = run("client kill ; client start ; client kill", given);

  EXPECT_EQ(result.exitCode(), 0);
  EXPECT_THAT(seen, ElementsAre("client kill", "client start"));
  EXPECT_EQ(result.steps[0].outcome, Outcome::DONE);
  EXPECT_EQ(result.steps[1].outcome, Outcome::SKIPPED);
  EXPECT_EQ(mBench.notes.back(), "kill");
}

TEST_F(AScenario, PlaysTheSameByChanceForTheSameSeed) {
  auto given = options();
  given.seed = 7;
  run("random 300", given);
  const auto first = mBench.take();
  run("random 300", given);
  const auto second = mBench.take();
  given.seed = 8;
  run("random 300", given);

  EXPECT_GT(first.size(), 200U);
  EXPECT_EQ(first, second);
  EXPECT_NE(first, mBench.take());
}

TEST_F(AScenario, GoesOnByChanceWhereItStood) {
  EXPECT_EQ(run("random 200 ; random 200 ; client restart").report(), "");
}

TEST_F(AScenario, SaysWhichCommandByChanceWentWrong) {
  mBench.lists = {listOf({"B"}), listOf({"B"}), std::nullopt};

  const RunResult result = run("random 50");

  EXPECT_EQ(result.exitCode(), 1);
  EXPECT_THAT(result.report(), AllOf(HasSubstr("file:1:1: command 4 of seed 1, "), HasSubstr("the list is not started"),
                                     HasSubstr("actual:\n(the list is not started)")));
}

TEST_F(AScenario, SaysWhenAListIsOutOfOrderByChance) {
  std::vector<Row> rows = {named("A"), named("B")};
  rows[1].btid = 0;
  mBench.lists = {rows};

  EXPECT_THAT(run("random 5").report(), HasSubstr("the rows are not in order"));
}

TEST_F(AScenario, ShowsItsCommandsByChanceBeforeEach) {
  std::vector<std::string> seen;
  auto given = options();
  given.beforeEach = [&](const Command& command) {
    seen.push_back(command.text);
    return seen.size() < 5;
  };

  const RunResult result = run("random 100 ; client kill", given);

  EXPECT_THAT(seen, SizeIs(5));
  EXPECT_EQ(seen.front(), "random 100");
  EXPECT_EQ(result.steps[1].outcome, Outcome::SKIPPED);
}

TEST_F(AScenario, MayComeCommandByCommand) {
  Runner runner(mBench, options());
  runner.begin();
  for (const Command& command : parsed("phone add anna btid=1 ; bt pair anna")) {
    EXPECT_EQ(runner.execute(command).outcome, Outcome::DONE);
  }

  EXPECT_EQ(mBench.notes.back(), "put bt 0 (anna 1 00:00:5E:00:53:01)");
}
