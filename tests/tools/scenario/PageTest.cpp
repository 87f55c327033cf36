// SPDX-License-Identifier: Apache-2.0
// What docs/scenarios.md says of the language is true.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tools/scenario/Grammar.h"
#include "tools/scenario/Parser.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string page() {
  std::ifstream file(SCENARIO_PAGE, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// With every run of blanks and lines' ends as one blank.
std::string flat(const std::string& text) {
  std::istringstream input(text);
  std::string flattened;
  for (std::string word; input >> word;) {
    flattened += word + ' ';
  }
  return flattened;
}

std::vector<std::string> scenarios(const std::string& text) {
  static const std::string BEGIN = "```scenario\n";
  std::vector<std::string> found;
  for (std::size_t at = text.find(BEGIN); at != std::string::npos; at = text.find(BEGIN, at)) {
    at += BEGIN.size();
    found.push_back(text.substr(at, text.find("```", at) - at));
  }
  return found;
}

}  // namespace

TEST(ThePageOnScenarios, DescribesEveryCommand) {
  const std::string text = flat(page());

  for (const auto& rule : idl::tools::commandRules()) {
    EXPECT_THAT(text, HasSubstr("``` " + flat(rule.usage) + "``` ")) << "usage of " << rule.usage;
    EXPECT_THAT(text, HasSubstr(flat(rule.about))) << "about " << rule.usage;
    EXPECT_THAT(text, HasSubstr('`' + std::string(rule.example) + "` ")) << "example of " << rule.usage;
  }
}

TEST(ThePageOnScenarios, HasExamplesThatCanBePlayed) {
  const auto examples = scenarios(page());

  ASSERT_GE(examples.size(), 4U);
  for (const std::string& example : examples) {
    const auto parsing = idl::tools::Parser("example").parse(example);
    EXPECT_THAT(parsing.mistakes, IsEmpty()) << mistakeText(parsing.mistakes.front()) << '\n' << example;
    EXPECT_GT(parsing.commands.size(), 3U);
  }
}
