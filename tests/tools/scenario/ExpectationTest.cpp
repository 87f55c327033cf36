// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/scenario/Expectation.h"

using idl::tools::scenario::Command;
using idl::tools::scenario::comparison;
using idl::tools::scenario::isInOrder;
using idl::tools::scenario::judge;
using idl::tools::scenario::MaybeList;
using idl::tools::scenario::Parser;
using idl::tools::scenario::Row;
using idl::tools::scenario::Source;

namespace {

Command command(const std::string& text) {
  const auto parsing = Parser("").parse(text);
  EXPECT_TRUE(parsing.mistakes.empty()) << parsing.mistakes.front().text;
  return parsing.commands.at(0);
}

Row row(Source type, const std::string& name, std::uint8_t btid, std::int32_t port, std::uint8_t suffix) {
  Row row;
  row.type = type;
  row.name = name;
  row.own = "iPhone";
  row.btid = btid;
  row.port = port;
  row.suffix = suffix;
  return row;
}

MaybeList list() {
  std::vector<Row> rows = {
      row(Source::AAP, "Pixel", 255, 2, 1),
      row(Source::BT, "iPhone", 3, 0, 1),
      row(Source::AAP, "iPhone 2", 4, 1, 2),
      row(Source::CP, "\xff\n", 5, -1, 1),
  };
  rows[0].own = "Pixel";
  rows[2].aapId = "aap-ben";
  rows[3].cpId = 0x20000000000;
  return rows;
}

std::string why(const std::string& text, const MaybeList& given = list()) {
  const auto verdict = judge(command(text), given);
  EXPECT_EQ(verdict.isMet, verdict.why.empty());
  return verdict.why;
}

}  // namespace

TEST(AnExpectedRow, IsAnywhereInTheList) {
  EXPECT_EQ(why("expect list \"iPhone\" btid=3"), "");
  EXPECT_EQ(why("expect list \"iPhone\" btid=4"), "no row is like this");
  EXPECT_EQ(why("expect list type=cp \"\\xff\\n\" port=-1"), "");
  EXPECT_EQ(why("expect list btid=none port=2"), "");
  EXPECT_EQ(why("expect list aap=aap-ben own=iPhone suffix=2 session=0"), "");
  EXPECT_EQ(why("expect list cp=2199023255552"), "");
  EXPECT_EQ(why("expect list cp=0x20000000000"), "");
  EXPECT_EQ(why("expect list"), "");
}

TEST(AnExpectedCount, IsOfTheRowsThatAreAlike) {
  EXPECT_EQ(why("expect list count=4"), "");
  EXPECT_EQ(why("expect list type=aap count=2"), "");
  EXPECT_EQ(why("expect list type=aap count=1"), "2 rows are like this, not 1");
  EXPECT_EQ(why("expect list type=bt count=0"), "1 row is like this, not 0");
  EXPECT_EQ(why("expect list \"nobody\" count=0"), "");
}

TEST(AnUnwantedRow, IsNowhereInTheList) {
  EXPECT_EQ(why("expect no \"nobody\""), "");
  EXPECT_EQ(why("expect no \"iPhone\" btid=9"), "");
  EXPECT_EQ(why("expect no type=aap"), "2 rows are like this");
  EXPECT_EQ(why("expect no", std::vector<Row>()), "");
}

TEST(AnExpectedRow, MayHaveItsNumber) {
  EXPECT_EQ(why("expect row 3 type=aap port=1"), "");
  EXPECT_EQ(why("expect row 2 \"iPhone\""), "");
  EXPECT_EQ(why("expect row 2 \"iPhone 2\""), "row 2 is another one");
  EXPECT_EQ(why("expect row 5"), "there is no row 5");
}

TEST(AnExpectedOrder, AllowsOthersBetween) {
  EXPECT_EQ(why("expect order \"Pixel\" \"iPhone 2\""), "");
  EXPECT_EQ(why("expect order \"iPhone 2\" \"iPhone\""), "\"iPhone\" does not stand there");
  EXPECT_EQ(why("expect order \"Pixel\" \"Pixel\""), "\"Pixel\" does not stand there");
}

TEST(AnExpectedNumber, IsThatOfAPhonesOwnName) {
  EXPECT_EQ(why("expect suffix \"iPhone\" 2"), "");
  EXPECT_EQ(why("expect suffix \"iPhone\" 3"), "no phone of this name has this number");
  EXPECT_EQ(why("expect suffix \"iPhone 2\" 2"), "no phone of this name has this number");
}

TEST(AListThatIsNotStarted, MeetsNothingElse) {
  EXPECT_EQ(why("expect started no", std::nullopt), "");
  EXPECT_EQ(why("expect started yes", std::nullopt), "the list is not started");
  EXPECT_EQ(why("expect no \"iPhone\"", std::nullopt), "the list is not started");
  EXPECT_EQ(why("expect list count=0", std::nullopt), "the list is not started");
  EXPECT_EQ(why("expect started yes"), "");
  EXPECT_EQ(why("expect started no"), "the list is started");
}

TEST(AComparison, HasBothAsTables) {
  EXPECT_EQ(comparison(command("expect row 2 type=aap port=1"), list(), false),
            "expected:\n"
            "row  name  type  btid  port  session  suffix\n"
            "  2        aap            1\n"
            "actual:\n"
            "row  name        type  btid  port  session  suffix\n"
            "  1  \"Pixel\"     aap   none     2        0       1\n"
            "  2  \"iPhone\"    bt       3     0        0       1\n"
            "  3  \"iPhone 2\"  aap      4     1        0       2\n"
            "  4  \"\\xff\\n\"    cp       5    -1        0       1\n");
}

TEST(AComparison, ShowsMoreColumnsWhereTheyAreExpected) {
  EXPECT_EQ(comparison(command("expect list aap=x count=2"), std::vector<Row>(), false),
            "expected:\n"
            " row  name  type  btid  port  session  suffix  aap\n"
            "2 of                                           \"x\"\n"
            "actual:\n"
            "(no phones)\n");
}

TEST(AComparison, TellsOrdersNumbersAndStarts) {
  EXPECT_EQ(comparison(command("expect order a b"), std::nullopt, false),
            "expected:\n"
            "  row  name  type  btid  port  session  suffix\n"
            "  any  \"a\"\n"
            "later  \"b\"\n"
            "actual:\n"
            "(the list is not started)\n");
  EXPECT_EQ(comparison(command("expect started yes"), std::nullopt, false),
            "expected:\n(a list that is started)\nactual:\n(the list is not started)\n");
  EXPECT_THAT(comparison(command("expect suffix a 2"), std::nullopt, false), testing::HasSubstr("2  \"a\""));
}

TEST(AList, IsInOrderWhenTheUnpairedComeFirst) {
  EXPECT_TRUE(isInOrder(*list()));
  EXPECT_TRUE(isInOrder({}));
  EXPECT_FALSE(isInOrder({row(Source::BT, "", 4, 0, 0), row(Source::BT, "", 3, 0, 0)}));
  EXPECT_FALSE(isInOrder({row(Source::BT, "", 4, 0, 0), row(Source::AAP, "", 255, 1, 0)}));
  EXPECT_FALSE(isInOrder({row(Source::AAP, "", 255, 1, 0), row(Source::AAP, "", 255, -1, 0)}));
  EXPECT_TRUE(isInOrder({row(Source::BT, "", 0, 9, 0), row(Source::BT, "", 0, 1, 0)}));
}
