// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/text/TextTable.h"

using idl::tools::Align;
using idl::tools::Colour;
using idl::tools::TextTable;

TEST(ATable, AlignsWordsLeftAndNumbersRight) {
  TextTable table({{"row", Align::RIGHT}, {"name"}, {"port", Align::RIGHT}});
  table.add({{"1"}, {"iPhone"}, {"2"}});
  table.add({{"10"}, {"X"}, {"12345"}});

  EXPECT_EQ(table.text(false),
            "row  name     port\n"
            "  1  iPhone      2\n"
            " 10  X       12345\n");
}

TEST(ATable, HasNoBlanksBeforeALinesEnd) {
  TextTable table({{"a"}, {"b"}, {"c", Align::RIGHT}});
  table.add({{"long word"}, {""}, {""}});
  table.add({{"x"}});
  table.add({});

  EXPECT_EQ(table.text(false),
            "a          b  c\n"
            "long word\n"
            "x\n"
            "\n");
}

TEST(ATable, KeepsEmptyCellsAsWideAsTheirColumn) {
  TextTable table({{"a"}, {"b", Align::RIGHT}, {"c"}});
  table.add({{""}, {""}, {"x"}});
  table.add({{"1"}, {"2"}, {"3"}});

  EXPECT_EQ(table.text(false),
            "a  b  c\n"
            "      x\n"
            "1  2  3\n");
}

TEST(ATable, GoesByWhatATerminalShows) {
  TextTable table({{"name"}, {"n", Align::RIGHT}});
  table.add({{"\xe6\x90\xba\xe5\xb8\xaf"}, {"1"}});
  table.add({{"e\xcc\x81"}, {"2"}});
  table.add({{"abcde"}, {"3"}});

  EXPECT_EQ(table.text(false),
            "name   n\n"
            "\xe6\x90\xba\xe5\xb8\xaf   1\n"
            "e\xcc\x81      2\n"
            "abcde  3\n");
}

TEST(ATable, ColoursOnlyWhenItMay) {
  TextTable table({{"a"}, {"b"}});
  table.add({{"x", Colour::RED}, {"y"}});

  EXPECT_EQ(table.text(false), "a  b\nx  y\n");
  EXPECT_EQ(table.text(true), "\033[1ma\033[0m  \033[1mb\033[0m\n\033[31mx\033[0m  y\n");
}

TEST(ATable, LetsNoCellSteerTheTerminal) {
  TextTable table({{"a"}, {"b"}});
  table.add({{"x\n\x1b[2J"}, {"y"}});

  EXPECT_EQ(table.text(false),
            "a           b\n"
            "x\\n\\x1b[2J  y\n");
}
