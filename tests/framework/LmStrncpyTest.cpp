// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "LmFramework/lm_strncpy.h"

namespace {

constexpr std::size_t BOUND = 4;

struct ABoundedCopy : testing::Test {
  ABoundedCopy() { std::memset(destination, '#', sizeof destination); }

  std::string bytes() const { return {destination, sizeof destination}; }

  char destination[BOUND + 3];
};

using namespace std::string_literals;

TEST_F(ABoundedCopy, TakesAShorterTextAndLeavesTheRest) {
  EXPECT_EQ(lm_strncpy(destination, "ab", BOUND), destination);

  EXPECT_EQ(bytes(), "ab\0####"s);
}

TEST_F(ABoundedCopy, TakesATextOfTheBoundsLength) {
  lm_strncpy(destination, "abcd", BOUND);

  EXPECT_EQ(bytes(), "abcd\0##"s);
}

TEST_F(ABoundedCopy, CutsALongerTextAndTerminatesIt) {
  lm_strncpy(destination, "abcdefgh", BOUND);

  EXPECT_EQ(bytes(), "abcd\0##"s);
}

TEST_F(ABoundedCopy, TakesAnEmptyText) {
  lm_strncpy(destination, "", BOUND);

  EXPECT_EQ(bytes(), "\0######"s);
}

TEST_F(ABoundedCopy, WritesTheTerminatorAloneWhenTheBoundIsZero) {
  lm_strncpy(destination, "abc", 0);

  EXPECT_EQ(bytes(), "\0######"s);
}

TEST_F(ABoundedCopy, ReadsNothingPastTheBound) {
  const long page = sysconf(_SC_PAGESIZE);
  void* const pages =
      mmap(nullptr, static_cast<std::size_t>(2 * page), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  char* const end = static_cast<char*>(pages) + page;
  ASSERT_EQ(mprotect(end, static_cast<std::size_t>(page), PROT_NONE), 0);
  std::memcpy(end - BOUND, "abcd", BOUND);  // its terminator would stand in the page that cannot be read

  lm_strncpy(destination, end - BOUND, BOUND);

  EXPECT_EQ(bytes(), "abcd\0##"s);
  munmap(pages, static_cast<std::size_t>(2 * page));
}

}  // namespace
