// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include "tools/text/Terminal.h"

using idl::tools::wantsColour;

TEST(Colour, IsForTerminals) {
  EXPECT_TRUE(wantsColour(true, nullptr, "xterm"));
  EXPECT_TRUE(wantsColour(true, nullptr, nullptr));
  EXPECT_FALSE(wantsColour(false, nullptr, "xterm"));
}

TEST(Colour, IsLeftOutWhereNobodyWantsIt) {
  EXPECT_FALSE(wantsColour(true, "1", "xterm"));
  EXPECT_TRUE(wantsColour(true, "", "xterm"));
}

TEST(Colour, IsLeftOutWhereATerminalCannotDoIt) { EXPECT_FALSE(wantsColour(true, nullptr, "dumb")); }

TEST(Colour, IsNotForAPipe) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe(ends), 0);

  EXPECT_FALSE(wantsColour(ends[1]));

  close(ends[0]);
  close(ends[1]);
}
