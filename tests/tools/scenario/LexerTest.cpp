// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/scenario/Lexer.h"

using idl::tools::scenario::lex;
using idl::tools::scenario::Lexing;
using idl::tools::scenario::mistakeText;
using idl::tools::scenario::Statement;
using idl::tools::scenario::Token;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Each statement's tokens, a quoted text with quotes around it.
std::vector<std::string> told(const Lexing& lexing) {
  std::vector<std::string> texts;
  for (const Statement& statement : lexing.statements) {
    std::string text;
    for (const Token& token : statement.tokens) {
      text += text.empty() ? "" : "|";
      text += token.isPair() ? token.key + '=' : "";
      text += token.isQuoted ? '"' + token.text + '"' : token.text;
    }
    texts.push_back(text);
  }
  return texts;
}

std::vector<std::string> mistakes(const std::string& text) {
  std::vector<std::string> texts;
  for (const auto& mistake : lex("file", text).mistakes) {
    texts.push_back(mistakeText(mistake));
  }
  return texts;
}

}  // namespace

TEST(AScenariosText, IsCutIntoStatements) {
  EXPECT_THAT(told(lex("", "bt pair anna\nwait 1s ; client kill;cp clear\n")),
              ElementsAre("bt|pair|anna", "wait|1s", "client|kill", "cp|clear"));
}

TEST(AScenariosText, MayHaveEmptyPlaces) {
  EXPECT_THAT(told(lex("", "")), IsEmpty());
  EXPECT_THAT(told(lex("", "\n\n ; ;; \n\t\r\n# only this\n  # and this ; wait 1s\n")), IsEmpty());
  EXPECT_THAT(told(lex("", ";wait 1s;\r\n")), ElementsAre("wait|1s"));
}

TEST(AScenariosText, NeedsNoLineFeedAtItsEnd) { EXPECT_THAT(told(lex("", "wait 1s")), ElementsAre("wait|1s")); }

TEST(AScenariosText, HasComments) {
  EXPECT_THAT(told(lex("", "wait 1s # a ; b \"c\nwait 2s#d")), ElementsAre("wait|1s", "wait|2s"));
}

TEST(AScenariosText, HasQuotedTexts) {
  EXPECT_THAT(told(lex("", R"(a "b # c ; d" name="e \"f\" \x41" g="")")),
              ElementsAre("a|\"b # c ; d\"|name=\"e \"f\" A\"|g=\"\""));
  EXPECT_THAT(told(lex("", R"("a";"b"#c)")), ElementsAre("\"a\"", "\"b\""));
}

TEST(AScenariosText, HasWordsWithMoreThanOneEqualsSign) {
  const Lexing lexing = lex("", "a b=c=d");

  EXPECT_EQ(lexing.statements.at(0).tokens.at(1).key, "b");
  EXPECT_EQ(lexing.statements.at(0).tokens.at(1).text, "c=d");
}

TEST(AStatement, KnowsWhereItStands) {
  const Lexing lexing = lex("", "\n wait 1s ;  \"\xc3\xa9\xc3\xa9\" name=\"x\"   # y");
  const Statement& second = lexing.statements.at(1);

  EXPECT_EQ(lexing.statements.at(0).position.line, 2U);
  EXPECT_EQ(lexing.statements.at(0).position.column, 2U);
  EXPECT_EQ(lexing.statements.at(0).text, "wait 1s");
  EXPECT_EQ(second.position.column, 13U);
  EXPECT_EQ(second.tokens.at(1).position.column, 18U);  // columns are characters, not bytes
  EXPECT_EQ(second.tokens.at(1).textPosition.column, 23U);
  EXPECT_EQ(second.text, "\"\xc3\xa9\xc3\xa9\" name=\"x\"");
}

TEST(AScenariosText, MayBeginWithAByteOrderMark) {
  const Lexing lexing = lex("", "\xEF\xBB\xBFwait 1s\n\xEF\xBB\xBFwait 1s");

  EXPECT_THAT(told(lexing), ElementsAre("wait|1s", "\xEF\xBB\xBFwait|1s"));
  EXPECT_EQ(lexing.statements.at(0).position.column, 1U);
  EXPECT_EQ(lexing.statements.at(0).text, "wait 1s");
}

// Counting from the line's beginning for each word would take minutes here.
TEST(AScenariosText, MayHaveAVeryLongLine) {
  constexpr unsigned COUNT = 500000;
  std::string text;
  for (unsigned i = 0; i < COUNT; ++i) {
    text += "\xc3\xa9=b ";
  }

  const Lexing lexing = lex("", text);

  ASSERT_EQ(lexing.statements.size(), 1U);
  EXPECT_EQ(lexing.statements.at(0).tokens.size(), COUNT);
  EXPECT_EQ(lexing.statements.at(0).tokens.back().position.column, 4 * (COUNT - 1) + 1);
}

TEST(ABadScenario, IsToldWithItsPlaces) {
  EXPECT_THAT(mistakes("wait 1s\nphone \"anna"), ElementsAre("file:2:7: the text is not ended by a double quote"));
  EXPECT_THAT(mistakes("a b\"c\""), ElementsAre("file:1:4: a blank is missing before the quoted text"));
  EXPECT_THAT(mistakes("a \"b\"c"), ElementsAre("file:1:6: a blank is missing after the quoted text"));
  EXPECT_THAT(mistakes("a b=c\"d\""), ElementsAre("file:1:6: a blank is missing before the quoted text"));
  EXPECT_THAT(mistakes("a =b"), ElementsAre("file:1:3: there is no word before the equals sign"));
  EXPECT_THAT(mistakes("a b= c"), ElementsAre("file:1:5: there is nothing after 'b='; an empty text is \"\""));
  EXPECT_THAT(mistakes("a \"\\q\""), ElementsAre(HasSubstr("file:1:3: there is no such escape")));
}

TEST(ABadScenario, LosesOnlyTheLinesThatAreWrong) {
  const Lexing lexing = lex("file", "wait 1s\nwait 2s ; x=\nwait 3s\n");

  EXPECT_THAT(told(lexing), ElementsAre("wait|1s", "wait|3s"));
  EXPECT_EQ(lexing.mistakes.size(), 1U);
}

TEST(ABadScenario, ShowsNoBytesThatSteerATerminal) {
  EXPECT_THAT(mistakes("\x1b[2J="), ElementsAre("file:1:6: there is nothing after '\\x1b[2J='; an empty text is \"\""));
}
