// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tools/text/Duration.h"

using idl::tools::durationText;
using idl::tools::parseDuration;

class ADuration : public testing::TestWithParam<std::pair<std::string, long>> {};

TEST_P(ADuration, IsReadToTheMillisecond) {
  const auto read = parseDuration(GetParam().first);

  ASSERT_TRUE(read) << read.error;
  EXPECT_EQ(read.value->count(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(, ADuration,
                         testing::Values(std::pair{"200ms", 200L}, std::pair{"2s", 2000L}, std::pair{"1.5s", 1500L},
                                         std::pair{"3m", 180000L}, std::pair{"1h", 3600000L}, std::pair{"0s", 0L},
                                         std::pair{"0ms", 0L}, std::pair{"0.001s", 1L}, std::pair{"0.5m", 30000L},
                                         std::pair{"24h", 86400000L}, std::pair{"86400000ms", 86400000L},
                                         std::pair{"00002.500000000000s", 2500L}, std::pair{"1.0ms", 1L}));

class NoDuration : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(NoDuration, IsRefusedWithAReason) {
  const auto read = parseDuration(GetParam().first);

  EXPECT_FALSE(read);
  EXPECT_NE(read.error.find(GetParam().second), std::string::npos) << read.error;
}

INSTANTIATE_TEST_SUITE_P(
    , NoDuration,
    testing::Values(std::pair{"200", "the units are ms, s, m and h"}, std::pair{"0", "without a unit"},
                    std::pair{"1.5", "without a unit"}, std::pair{"2sec", "no such unit"},
                    std::pair{"2S", "no such unit"}, std::pair{"2 s", "no such unit"}, std::pair{"2s ", "no such unit"},
                    std::pair{"", "no duration"}, std::pair{"s", "no duration"}, std::pair{"-1s", "no duration"},
                    std::pair{"+1s", "no duration"}, std::pair{".5s", "no duration"}, std::pair{"1.s", "no duration"},
                    std::pair{"24.1h", "longer than 24h"}, std::pair{"25h", "longer than 24h"},
                    std::pair{"86400001ms", "longer than 24h"},
                    std::pair{"99999999999999999999999h", "longer than 24h"},
                    std::pair{"1.5ms", "finer than a millisecond"}, std::pair{"0.0001s", "finer than a millisecond"},
                    std::pair{"0.00000000000000000001h", "finer than a millisecond"}));

TEST(ADurationsText, IsReadBack) {
  for (const long count : {0L, 1L, 999L, 1000L, 1500L, 1050L, 60000L, 90000L, 3600000L, 3660000L, 86400000L, 59999L}) {
    const auto read = parseDuration(durationText(std::chrono::milliseconds(count)));
    ASSERT_TRUE(read) << count;
    EXPECT_EQ(read.value->count(), count);
  }
}

TEST(ADurationsText, IsShort) {
  EXPECT_EQ(durationText(std::chrono::milliseconds(200)), "200ms");
  EXPECT_EQ(durationText(std::chrono::milliseconds(1500)), "1.5s");
  EXPECT_EQ(durationText(std::chrono::milliseconds(1050)), "1.05s");
  EXPECT_EQ(durationText(std::chrono::seconds(90)), "90s");
  EXPECT_EQ(durationText(std::chrono::minutes(120)), "2h");
}
