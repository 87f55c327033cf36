// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/text/DisplayWidth.h"

using idl::tools::displayWidth;

TEST(AWidth, IsOneForALetter) {
  EXPECT_EQ(displayWidth(""), 0U);
  EXPECT_EQ(displayWidth("iPhone"), 6U);
  EXPECT_EQ(displayWidth("T\xc3\xa9l"), 3U);
  EXPECT_EQ(displayWidth("\xd0\xa2\xd0\xb5\xd0\xbb"), 3U);
}

TEST(AWidth, IsTwoForAWideCharacter) {
  EXPECT_EQ(displayWidth("\xe6\x90\xba\xe5\xb8\xaf"), 4U);
  EXPECT_EQ(displayWidth("\xed\x95\x9c"), 2U);
  EXPECT_EQ(displayWidth("\xf0\x9f\x98\x80"), 2U);
}

TEST(AWidth, IsNoneForAMark) { EXPECT_EQ(displayWidth("e\xcc\x81"), 1U); }

TEST(AWidth, IsOneForAByteThatIsNoUtf8) { EXPECT_EQ(displayWidth("a\xff\xc3"), 3U); }
