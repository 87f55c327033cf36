// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tools/scenario/Parser.h"

using idl::tools::scenario::Command;
using idl::tools::scenario::CommandKind;
using idl::tools::scenario::Parser;
using idl::tools::scenario::Source;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

/// The last command of a scenario without mistakes.
Command last(const std::string& text) {
  const auto parsing = Parser("file").parse("phone add anna ; phone add ben ; " + text);
  EXPECT_THAT(parsing.mistakes, IsEmpty()) << mistakeText(parsing.mistakes.front());
  return parsing.commands.back();
}

std::vector<std::string> mistakes(const std::string& text) {
  std::vector<std::string> texts;
  for (const auto& mistake : Parser("file").parse(text).mistakes) {
    texts.push_back(mistakeText(mistake));
  }
  return texts;
}

/// The only mistake.
std::string mistake(const std::string& text) {
  const auto all = mistakes(text);
  EXPECT_THAT(all, SizeIs(1)) << text;
  return all.empty() ? "" : all.front();
}

}  // namespace

TEST(ACommand, HasItsWordsOperandsAndOptions) {
  const Command command = last("aap plug ben anna port=-2 session=7 btid=none");

  EXPECT_EQ(command.kind, CommandKind::AAP_PLUG);
  EXPECT_EQ(command.source(), Source::AAP);
  EXPECT_THAT(command.words, ElementsAre("aap", "plug"));
  ASSERT_THAT(command.operands, SizeIs(2));
  EXPECT_EQ(command.operands[1].text, "anna");
  EXPECT_EQ(command.option("port")->port(), -2);
  EXPECT_EQ(command.option("session")->byte(), 7);
  EXPECT_EQ(command.option("btid")->byte(), 255);
  EXPECT_EQ(command.option("name"), nullptr);
  EXPECT_EQ(command.text, "aap plug ben anna port=-2 session=7 btid=none");
  EXPECT_EQ(command.position.column, 34U);
}

TEST(ACommand, MayHaveItsOptionsAnywhereBehindItsFirstWords) {
  EXPECT_EQ(last("bt crash while=half ben").operands.at(0).text, "ben");
  EXPECT_EQ(last("bt crash ben while=half").option("while")->text, "half");
}

TEST(ACommand, HasNumbersOfManySizes) {
  EXPECT_EQ(last("phone change anna cp=18446744073709551615").option("cp")->number,
            std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(last("phone change anna cp=0x2000000000F").option("cp")->number, 0x2000000000FU);
  EXPECT_EQ(last("phone change anna port=-2147483648").option("port")->port(),
            std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(last("phone change anna btid=254").option("btid")->byte(), 254);
  EXPECT_EQ(last("wait 1.5s").operands.at(0).duration(), std::chrono::milliseconds(1500));
  EXPECT_EQ(last("client refresh aap").operands.at(0).source(), Source::AAP);
}

TEST(ACommand, TakesNamesQuotedAndBare) {
  EXPECT_EQ(last("phone rename anna iPad").operands.at(1).text, "iPad");
  EXPECT_EQ(last("phone rename anna \"a\\xff\\u{e9}\"").operands.at(1).text, "a\xff\xc3\xa9");
  EXPECT_EQ(last("phone change anna name=\"\"").option("name")->text, "");
}

TEST(ACommand, ThatIsTheOnlyOneOfItsFirstWordNeedsNoSecond) {
  EXPECT_EQ(last("funcinfo bt=yes").kind, CommandKind::FUNCINFO_SET);
  EXPECT_EQ(last("funcinfo vanish").kind, CommandKind::FUNCINFO_VANISH);
  EXPECT_EQ(last("random 10").kind, CommandKind::RANDOM);
}

TEST(AnExpectation, MayLeaveMuchOut) {
  EXPECT_THAT(last("expect list count=2 within=2s").operands, IsEmpty());
  EXPECT_EQ(last("expect row 2 type=aap port=1").option("type")->text, "aap");
  EXPECT_THAT(last("expect order a b c").operands, SizeIs(3));
  EXPECT_THAT(last("expect started no").words, ElementsAre("expect", "started", "no"));
  EXPECT_EQ(last("expect suffix \"iPhone\" 2").operands.at(1).number, 2U);
}

TEST(AnUnknownWord, IsToldWithTheNearestAndWithWhatThereIs) {
  EXPECT_EQ(
      mistake("waitx 1s"),
      "file:1:1: unknown word 'waitx', did you mean 'wait'?; expected here: phone, bt, cp, aap, funcinfo, client, "
      "saved, wait, random, expect");
  EXPECT_THAT(mistake("\nclient restrat"), HasSubstr("file:2:8: unknown word 'restrat', did you mean 'restart'?"));
  EXPECT_THAT(
      mistake("bt crash while=lokced"),
      HasSubstr("file:1:16: unknown word 'lokced', did you mean 'locked'?; expected here: locked, half, notify"));
  EXPECT_THAT(mistake("phone add anna namex=x"), HasSubstr("file:1:16: unknown word 'namex', did you mean 'name'?"));
  EXPECT_THAT(mistake("phone add anna ; bt pair ana"),
              HasSubstr("file:1:26: unknown phone 'ana', did you mean 'anna'?"));
}

TEST(ACommandsVerb, IsNeitherQuotedNorCutShort) {
  EXPECT_THAT(mistake("client"), HasSubstr("file:1:1: expected after this: start, restart, stop, kill, refresh"));
  EXPECT_THAT(mistake("\"client\" kill"), HasSubstr("file:1:1: expected here: phone"));
  EXPECT_THAT(mistake("client kill=yes"), HasSubstr("file:1:8: expected here: start"));
  EXPECT_THAT(mistake("funcinfo gone"), HasSubstr("one word too many; usage: funcinfo bt=yes|no"));
}

TEST(ACommand, NeedsAllItsWords) {
  EXPECT_EQ(mistake("bt pair"), "file:1:4: PHONE is missing after this; usage: bt pair PHONE...");
  EXPECT_THAT(mistake("bt crash"), HasSubstr("while= is missing; usage: SOURCE crash"));
  EXPECT_THAT(mistake("phone add anna ; phone rename anna"), HasSubstr("file:1:31: TEXT is missing"));
  EXPECT_THAT(mistake("funcinfo"), HasSubstr("bt= is missing"));
}

TEST(ACommand, TakesNoMoreThanItsWords) {
  EXPECT_THAT(mistake("wait 1s 2s"), HasSubstr("file:1:9: one word too many; usage: wait DURATION"));
  EXPECT_THAT(mistake("phone add anna port=1 port=2"), HasSubstr("file:1:23: port= is given twice"));
}

TEST(AValue, KeepsItsBounds) {
  EXPECT_THAT(mistake("phone add anna btid=255"), HasSubstr("'255' is not a Bluetooth id, 0 to 254 or none"));
  EXPECT_THAT(mistake("phone add anna session=256"), HasSubstr("'256' is not a number from 0 to 255"));
  EXPECT_THAT(mistake("phone add anna session=-1"), HasSubstr("'-1' is not a number"));
  EXPECT_THAT(mistake("phone add anna port=2147483648"), HasSubstr("is not a port"));
  EXPECT_THAT(mistake("phone add anna port=-"), HasSubstr("is not a port"));
  EXPECT_THAT(mistake("phone add anna cp=0"), HasSubstr("is not an identifier, 1 to"));
  EXPECT_THAT(mistake("phone add anna cp=18446744073709551616"), HasSubstr("is not an identifier"));
  EXPECT_THAT(mistake("phone add anna cp=0x"), HasSubstr("is not an identifier"));
  EXPECT_THAT(mistake("expect row 0"), HasSubstr("is not a row, counted from 1"));
  EXPECT_THAT(mistake("random 1e3"), HasSubstr("is not a count"));
  EXPECT_THAT(mistake("wait 200"), HasSubstr("'200': a number without a unit; the units are ms, s, m and h"));
  EXPECT_THAT(mistake("phone add an.na"), HasSubstr("'an.na' is no handle"));
  EXPECT_THAT(mistake("phone add anna name=\"a\\x00b\""), HasSubstr("a name holds no NUL"));
  EXPECT_THAT(mistake("wait \"1s\""), HasSubstr("only names are quoted; expected here: DURATION"));
}

TEST(APhone, IsAddedBeforeItIsUsed) {
  EXPECT_THAT(mistake("bt pair anna ; phone add anna"), HasSubstr("unknown phone 'anna'"));
  EXPECT_THAT(mistake("phone add anna ; phone add anna"), HasSubstr("there is a phone 'anna' already"));
  EXPECT_THAT(mistake("phone add anna ; phone remove anna ; bt pair anna"), HasSubstr("unknown phone 'anna'"));
  EXPECT_THAT(mistakes("phone add anna ; phone remove anna ; phone add anna ; bt pair anna"), IsEmpty());
}

TEST(APhoneThatIsAddedWrongly, IsOneMistakeAndNotMany) {
  EXPECT_THAT(mistake("phone add anna port=x ; bt pair anna"), HasSubstr("is not a port"));
}

TEST(EveryMistake, IsToldInItsPlace) {
  EXPECT_THAT(mistakes("waitx 1s\nx=\nwait 1s\nbt pari"),
              ElementsAre(HasSubstr("file:1:1:"), HasSubstr("file:2:3:"), HasSubstr("file:4:4:")));
}

TEST(AParser, RemembersThePhonesOfEarlierPieces) {
  Parser parser("prompt");
  parser.parse("phone add anna");

  EXPECT_THAT(parser.parse("bt pair anna").mistakes, IsEmpty());
  EXPECT_THAT(parser.phones(), ElementsAre("anna"));
}
