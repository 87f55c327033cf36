// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tools/scenario/Grammar.h"
#include "tools/scenario/Parser.h"

using idl::tools::scenario::commandRules;
using idl::tools::scenario::commandShapes;
using idl::tools::scenario::completions;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(TheGrammar, HasOneRuleForEachKindOfCommand) {
  std::set<idl::tools::scenario::CommandKind> kinds;
  for (const auto& rule : commandRules()) {
    EXPECT_TRUE(kinds.insert(rule.kind).second) << rule.usage;
  }

  EXPECT_EQ(kinds.size(), static_cast<std::size_t>(idl::tools::scenario::CommandKind::EXPECT_SUFFIX) + 1);
}

TEST(TheGrammar, HasExamplesThatFollowIt) {
  for (const auto& rule : commandRules()) {
    idl::tools::scenario::Parser parser("example");
    if (std::string(rule.example).find("phone add") == std::string::npos) {
      parser.parse("phone add anna ; phone add ben");
    }

    const auto parsing = parser.parse(rule.example);

    ASSERT_THAT(parsing.mistakes, IsEmpty()) << rule.example << ": " << parsing.mistakes.front().text;
    ASSERT_EQ(parsing.commands.size(), 1U);
    EXPECT_EQ(parsing.commands.front().kind, rule.kind) << rule.example;
  }
}

TEST(TheGrammar, IsTakenApartFromItsUsages) {
  const auto& shapes = commandShapes();
  const auto crash = std::find_if(shapes.begin(), shapes.end(), [](const auto& shape) {
    return shape.rule->kind == idl::tools::scenario::CommandKind::SOURCE_CRASH;
  });

  ASSERT_NE(crash, shapes.end());
  EXPECT_THAT(crash->verb, ElementsAre(ElementsAre("bt", "cp", "aap"), ElementsAre("crash")));
  ASSERT_EQ(crash->operands.size(), 1U);
  EXPECT_TRUE(crash->operands.front().isOptional);
  ASSERT_EQ(crash->options.size(), 1U);
  EXPECT_EQ(crash->options.front().key, "while");
  EXPECT_FALSE(crash->options.front().value.isOptional);
  EXPECT_THAT(crash->options.front().value.choices, ElementsAre("locked", "half", "notify"));
}

TEST(Completion, OffersTheFirstWords) {
  EXPECT_THAT(completions("", {}),
              ElementsAre("aap", "bt", "client", "cp", "expect", "funcinfo", "phone", "random", "saved", "wait"));
  EXPECT_THAT(completions("c", {}), ElementsAre("client", "cp"));
  EXPECT_THAT(completions("x", {}), IsEmpty());
}

TEST(Completion, GoesByTheWordsBefore) {
  EXPECT_THAT(completions("client ", {}), ElementsAre("kill", "refresh", "restart", "start", "stop"));
  EXPECT_THAT(completions("client st", {}), ElementsAre("start", "stop"));
  EXPECT_THAT(completions("cp c", {}), ElementsAre("change", "clear", "connect", "crash", "cut"));
  EXPECT_THAT(completions("nonsense ", {}), IsEmpty());
  EXPECT_THAT(completions("funcinfo ", {}), ElementsAre("bt=no", "bt=yes", "vanish"));
  EXPECT_THAT(completions("wait 1s ; bt un", {}), ElementsAre("unpair"));
  EXPECT_THAT(completions("wait 1s;", {}).size(), 10U);
}

TEST(Completion, OffersPhonesAndWhatIsNotGivenYet) {
  EXPECT_THAT(completions("bt pair ", {"anna", "ben"}), ElementsAre("anna", "ben"));
  EXPECT_THAT(completions("bt pair anna b", {"anna", "ben"}), ElementsAre("ben"));
  EXPECT_THAT(completions("bt crash while=", {}), ElementsAre("while=half", "while=locked", "while=notify"));
  EXPECT_THAT(completions("aap plug ben port=1 ", {"ben"}), ElementsAre("ben", "btid=", "session="));
  EXPECT_THAT(completions("client refresh bt ", {}), ElementsAre("aap", "bt", "cp"));
  EXPECT_THAT(completions("cp disconnect ", {"anna"}), IsEmpty());
}
