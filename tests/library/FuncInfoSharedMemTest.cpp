// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "FuncInfoSharedMem.h"
#include "support/CapturedStdErr.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using ::testing::SizeIs;

constexpr std::size_t SIZE = 2108;
constexpr std::size_t FLAG = 512;

class TheFuncInfoSegment : public SegmentTest {};

TEST_F(TheFuncInfoSegment, IsCreatedWithItsSizeWordAndZeros) {
  const FuncInfoSharedMem segment;

  EXPECT_EQ(RawSegment("/FuncInfo").all(), RawSegment::littleEndian(2104, 4) + std::string(2104, '\0'));
}

TEST_F(TheFuncInfoSegment, IsAttachedWithoutChangingWhatOthersWrote) {
  RawSegment raw("/FuncInfo", SIZE, 0x5A);

  const FuncInfoSharedMem segment;

  EXPECT_EQ(raw.all(), RawSegment::littleEndian(2104, 4) + std::string(2104, 0x5A));
}

TEST_F(TheFuncInfoSegment, ShowsEveryValueOfItsFlag) {
  RawSegment raw("/FuncInfo", SIZE);
  const FuncInfoSharedMem segment;
  ASSERT_NE(segment.data(), nullptr);

  for (unsigned value = 0; value <= 255; ++value) {
    raw.put8(FLAG, value);

    std::uint8_t copied = static_cast<std::uint8_t>(~value);
    EXPECT_EQ(segment.read(FLAG, &copied, 1), 1U);
    EXPECT_EQ(copied, value);
    EXPECT_EQ(segment.data()->btFunctionFlag, value);
  }
}

TEST_F(TheFuncInfoSegment, IsNotReadBeyondAnObjectThatIsTooShort) {
  for (const std::size_t length : {std::size_t{1}, std::size_t{4}, std::size_t{511}, std::size_t{512}}) {
    RawSegment raw("/FuncInfo", length, 0xFF);
    const CapturedStdErr log;
    const FuncInfoSharedMem segment;

    std::uint8_t copied = 7;
    EXPECT_EQ(segment.read(FLAG, &copied, 1), 0U) << length;
    EXPECT_EQ(segment.read(FLAG, &copied, 1), 0U) << length;

    EXPECT_EQ(copied, 7) << length;
    EXPECT_EQ(raw.size(), length);
    EXPECT_THAT(log.lines(), SizeIs(1)) << length;
  }
}

TEST_F(TheFuncInfoSegment, IsReadUpToTheEndOfAnObjectThatIsTooShort) {
  RawSegment raw("/FuncInfo", 513, 0xEE);
  const CapturedStdErr log;
  const FuncInfoSharedMem segment;

  std::uint8_t copied = 7;
  EXPECT_EQ(segment.read(FLAG, &copied, 1), 1U);

  EXPECT_EQ(copied, 0xEE);
  EXPECT_EQ(raw.size(), 513U);
  EXPECT_THAT(log.lines(), SizeIs(0));
}

}  // namespace
