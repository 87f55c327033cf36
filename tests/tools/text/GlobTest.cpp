// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/text/Glob.h"

using idl::tools::globMatches;

TEST(AGlob, MatchesTheWholeName) {
  EXPECT_TRUE(globMatches("iPhone", "iPhone"));
  EXPECT_FALSE(globMatches("iPhone", "iPhone 2"));
  EXPECT_FALSE(globMatches("iphone", "iPhone"));
  EXPECT_TRUE(globMatches("", ""));
}

TEST(AGlob, KnowsStarsQuestionMarksAndSets) {
  EXPECT_TRUE(globMatches("iPhone*", "iPhone 2"));
  EXPECT_TRUE(globMatches("*", ""));
  EXPECT_TRUE(globMatches("*/.*", "a/.b"));
  EXPECT_TRUE(globMatches("iPhone ?", "iPhone 2"));
  EXPECT_FALSE(globMatches("iPhone?", "iPhone"));
  EXPECT_TRUE(globMatches("Pixel [2-4]", "Pixel 3"));
  EXPECT_FALSE(globMatches("Pixel [!2-4]", "Pixel 3"));
  EXPECT_TRUE(globMatches("a\\*b", "a*b"));
  EXPECT_FALSE(globMatches("a\\*b", "axb"));
}

TEST(AGlob, TakesCharactersForCharacters) {
  EXPECT_TRUE(globMatches("T?l", "T\xc3\xa9l"));
  EXPECT_FALSE(globMatches("T??l", "T\xc3\xa9l"));
  EXPECT_TRUE(globMatches("[\xc3\xa0-\xc3\xbf]", "\xc3\xa9"));
  EXPECT_FALSE(globMatches("[\xc3\xa0-\xc3\xbf]", "a"));
}

TEST(AGlob, TakesABadByteForACharacter) {
  EXPECT_TRUE(globMatches("a?", "a\xff"));
  EXPECT_TRUE(globMatches("*", "\xff\xc3"));
  EXPECT_TRUE(globMatches("\xff*",
                          "\xff"
                          "abc"));
  EXPECT_FALSE(globMatches("\xfe", "\xff"));
}

TEST(AGlob, IsQuickWithManyStars) { EXPECT_FALSE(globMatches("*a*a*a*a*a*a*a*a*b", std::string(250, 'a'))); }

TEST(AGlobsSet, IsWrittenInManyWays) {
  EXPECT_TRUE(globMatches("[]a]", "]"));
  EXPECT_TRUE(globMatches("[!]a]", "b"));
  EXPECT_TRUE(globMatches("[^a]", "b"));
  EXPECT_TRUE(globMatches("[a-]", "-"));
  EXPECT_TRUE(globMatches("[\\]]", "]"));
  EXPECT_TRUE(globMatches("[abc]x", "bx"));
  EXPECT_FALSE(globMatches("[abc]x", "b"));
}

TEST(AGlobsBracket, StandsForItselfWhereItIsNotClosed) {
  EXPECT_TRUE(globMatches("a[b", "a[b"));
  EXPECT_TRUE(globMatches("*[", "abc["));
  EXPECT_FALSE(globMatches("[a", "a"));
  EXPECT_TRUE(globMatches("a\\", "a\\"));
}

TEST(AGlob, TriesMoreForAStar) {
  EXPECT_TRUE(globMatches("*ab*ab", "aabxabab"));
  EXPECT_TRUE(globMatches("*?", "abc"));
  EXPECT_FALSE(globMatches("*?", ""));
  EXPECT_FALSE(globMatches("a*b", "acbc"));
}
