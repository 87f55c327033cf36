// SPDX-License-Identifier: Apache-2.0
// What docs/scenarios.md says of the language is true.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tools/scenario/Grammar.h"
#include "tools/scenario/Page.h"
#include "tools/scenario/Parser.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// With every run of blanks and lines' ends as one blank.
std::string flat(const std::string& text) {
  std::istringstream input(text);
  std::string flattened;
  for (std::string word; input >> word;) {
    flattened += word + ' ';
  }
  return flattened;
}

}  // namespace

TEST(ThePageOnScenarios, DescribesEveryCommand) {
  const std::string text = flat(page());

  for (const auto& rule : idl::tools::scenario::commandRules()) {
    EXPECT_THAT(text, HasSubstr("``` " + flat(rule.usage) + "``` ")) << "usage of " << rule.usage;
    EXPECT_THAT(text, HasSubstr(flat(rule.about))) << "about " << rule.usage;
    EXPECT_THAT(text, HasSubstr('`' + std::string(rule.example) + "` ")) << "example of " << rule.usage;
  }
}

TEST(ThePageOnScenarios, HasExamplesThatFollowTheGrammar) {
  const auto examples = scenariosOf(page());

  ASSERT_GE(examples.size(), 4U);
  for (const std::string& example : examples) {
    const auto parsing = idl::tools::scenario::Parser("example").parse(example);
    EXPECT_THAT(parsing.mistakes, IsEmpty()) << mistakeText(parsing.mistakes.front()) << '\n' << example;
    EXPECT_GT(parsing.commands.size(), 3U);
  }
}
