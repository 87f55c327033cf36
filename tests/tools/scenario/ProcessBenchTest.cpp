// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/scenario/ProcessBench.h"
#include "tools/scenario/Runner.h"

using idl::tools::scenario::Parser;
using idl::tools::scenario::ProcessBench;
using idl::tools::scenario::Runner;
using idl::tools::scenario::RunResult;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

RunResult play(const std::string& text) {
  const auto parsing = Parser("story").parse(text);
  EXPECT_THAT(parsing.mistakes, IsEmpty()) << mistakeText(parsing.mistakes.front());
  ProcessBench bench;
  return Runner(bench, {}).run("story", parsing.commands);
}

/// What goes wrong in it, which should be nothing.
std::string trouble(const std::string& text) { return play(text).report(); }

}  // namespace

TEST(AStory, OfADayInACar) {
  EXPECT_EQ(trouble("phone add anna name=\"iPhone\" btid=3\n"
                    "phone add ben  name=\"iPhone\" btid=4\n"
                    "bt pair anna ben\n"
                    "expect list \"iPhone\" btid=3 ; expect list \"iPhone 2\" btid=4\n"
                    "aap plug ben port=1\n"
                    "expect row 2 type=aap port=1\n"
                    "bt crash while=locked ; client restart\n"
                    "expect list count=2 within=2s\n"),
            "");
}

TEST(AStory, OfAnExpectationThatIsNotMet) {
  const RunResult result = play(
      "phone add anna name=A btid=3 ; bt pair anna\n"
      "expect list B within=50ms");

  EXPECT_EQ(result.exitCode(), 1);
  EXPECT_THAT(result.report(), AllOf(HasSubstr("story:2:1: no row is like this, after 50ms"), HasSubstr("\"A\"   bt")));
}

TEST(AStory, OfEverySourcesPhones) {
  EXPECT_EQ(trouble("phone add anna name=A cp=7 btid=1 session=3\n"
                    "phone add ben name=B aap=\"b\\xff\" port=5\n"
                    "cp connect anna ; aap plug ben\n"
                    "expect row 1 A type=cp cp=7 port=1 session=3 btid=none own=A\n"
                    "expect row 2 B type=aap aap=\"b\\xff\" port=5\n"
                    "bt pair anna ; expect row 2 A type=cp btid=1\n"
                    "cp disconnect ; expect list A port=0 btid=1\n"
                    "aap unplug ben ; expect no B\n"
                    "aap plug ben ; aap rename ben C ; expect list C ; expect no B\n"
                    "phone remove anna ; expect list count=1\n"
                    "aap clear ; expect list count=0\n"),
            "");
}

TEST(AStory, OfNumbersThatOutliveTheClient) {
  EXPECT_EQ(trouble("phone add anna name=P btid=3 ; phone add ben name=P btid=4\n"
                    "bt pair anna ben ; bt unpair anna\n"
                    "expect list \"P 2\" btid=4 count=1 ; expect suffix P 2\n"
                    "client kill ; client start ; expect list \"P 2\" btid=4\n"
                    "client stop ; saved forget ; client start ; expect list P btid=4\n"
                    "client stop ; saved set P btid=4 suffix=7 ; client start ; expect list \"P 7\"\n"
                    "client stop ; saved garbage ; client start ; expect list count=1\n"
                    "client stop ; saved set P btid=4 suffix=9 ; saved cut bytes=100 ; client start\n"
                    "expect list count=1 ; expect no \"P 9\"\n"),
            "");
}

TEST(AStory, OfServicesThatDie) {
  EXPECT_EQ(trouble("phone add anna name=ABCDEF btid=3 ; phone add ben name=BB btid=4\n"
                    "bt pair anna ; bt crash ben while=half ; client refresh bt\n"
                    "expect list B btid=4 ; expect no BB        # the first half of the name\n"
                    "bt restart ; expect list BB btid=4\n"
                    "cp crash anna while=notify ; expect no type=cp ; client refresh cp\n"
                    "expect list ABCDEF type=cp\n"
                    "aap crash while=locked ; aap plug anna ; expect list ABCDEF type=aap\n"
                    "aap restart keep=no ; client refresh aap ; expect no type=aap\n"),
            "");
}

TEST(AStory, OfTablesThatAreDamaged) {
  EXPECT_EQ(trouble("phone add anna name=A btid=3 ; bt pair anna ; aap plug anna\n"
                    "bt cut bytes=20 ; client refresh bt ; expect no btid=3\n"
                    "bt return ; expect list A btid=3\n"
                    "aap garbage seed=3 ; expect started yes ; aap restart ; expect list A type=aap\n"
                    "bt vanish ; client restart ; expect no A btid=3\n"
                    "bt return ; client restart ; expect list A btid=3\n"),
            "");
}

TEST(AStory, OfAUnitThatAwaitsBluetooth) {
  EXPECT_EQ(trouble("client stop ; funcinfo bt=yes ; client start ; expect started yes\n"
                    "funcinfo vanish ; client restart ; expect started yes\n"),
            "");
}

TEST(AStory, OfAClientThatDoesNotFollow) {
  EXPECT_EQ(trouble("client restart follow=no ; phone add anna name=A ; bt pair anna ; expect no A\n"
                    "client refresh bt ; expect list A btid=1\n"),
            "");
}

TEST(AStory, OfAClientThatRefreshesWhatItIsTold) {
  EXPECT_EQ(trouble("phone add anna name=A ; bt pair anna ; client stop ; funcinfo bt=yes\n"
                    "client start follow=no refresh=none ; expect started no\n"
                    "client refresh cp ; expect started no\n"
                    "client refresh bt ; expect list A btid=1\n"),
            "");
}

TEST(AStory, OfOtherFormats) {
  EXPECT_EQ(trouble("phone add anna name=P ; phone add ben name=P ; bt pair anna ben\n"
                    "client stop ; saved forget ; client start format=number-first\n"
                    "expect order \"1. P\" \"2. P\"\n"
                    "client stop ; saved forget ; client start format=same ; expect list P count=2\n"),
            "");
}

TEST(AStory, MadeUpByChance) { EXPECT_EQ(trouble("random 150"), ""); }

TEST(ABench, FindsTheTablesWholeThatAnotherOneLeftDamaged) {
  EXPECT_EQ(trouble("bt cut bytes=0 ; cp vanish ; aap garbage ; funcinfo vanish"), "");

  EXPECT_EQ(trouble("expect list count=0 ; phone add anna ; bt pair anna ; cp known anna ; aap known anna\n"
                    "expect list count=1"),
            "");
}

TEST(ABench, DoesNotTakeTablesThatAnotherOneHas) {
  ProcessBench first;
  first.restart(idl::tools::scenario::Source::BT);

  const RunResult result = play("wait 0ms");

  EXPECT_EQ(result.exitCode(), 3);
  EXPECT_THAT(result.report(), HasSubstr("bt: "));
}
