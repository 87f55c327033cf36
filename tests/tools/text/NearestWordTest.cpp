// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/text/NearestWord.h"

using idl::tools::nearestWord;
using idl::tools::unknownWord;
using idl::tools::wordDistance;

TEST(ADistance, CountsWhatAHandDoesWrong) {
  EXPECT_EQ(wordDistance("full", "full"), 0U);
  EXPECT_EQ(wordDistance("ful", "full"), 1U);
  EXPECT_EQ(wordDistance("fulll", "full"), 1U);
  EXPECT_EQ(wordDistance("fuel", "full"), 1U);
  EXPECT_EQ(wordDistance("flul", "full"), 1U);
  EXPECT_EQ(wordDistance("", "full"), 4U);
  EXPECT_EQ(wordDistance("full", ""), 4U);
  EXPECT_EQ(wordDistance("kitten", "sitting"), 3U);
  EXPECT_EQ(wordDistance("FULL", "full"), 0U);
}

TEST(ADistance, IsTheSameBothWays) {
  EXPECT_EQ(wordDistance("restart", "start"), wordDistance("start", "restart"));
  EXPECT_EQ(wordDistance("ca", "abc"), wordDistance("abc", "ca"));
}

TEST(AnUnknownWord, IsNearToOneThatWasMeant) {
  EXPECT_EQ(nearestWord("restrat", {"start", "restart", "refresh"}), "restart");
  EXPECT_EQ(nearestWord("ful", {"fill", "full"}), "full");
  EXPECT_EQ(nearestWord("Pair", {"unpair", "pair"}), "pair");
}

TEST(AnUnknownWord, IsNotNearWhenMoreThanAThirdIsWrong) {
  EXPECT_EQ(nearestWord("xx", {"bt"}), std::nullopt);
  EXPECT_EQ(nearestWord("bx", {"bt"}), std::nullopt);
  EXPECT_EQ(nearestWord("paxx", {"pair"}), std::nullopt);
  EXPECT_EQ(nearestWord("anything", {}), std::nullopt);
}

TEST(AnUnknownWord, IsToldWithTheNearest) {
  EXPECT_EQ(unknownWord("word", "ful", {"full", "half"}), "unknown word 'ful', did you mean 'full'?");
  EXPECT_EQ(unknownWord("phone", "zoe", {"anna"}), "unknown phone 'zoe'");
  EXPECT_EQ(unknownWord("word", "\x1b[2J", {}), "unknown word '\\x1b[2J'");
}
