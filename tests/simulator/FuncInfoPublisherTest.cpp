// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <signal.h>

#include <cstddef>
#include <stdexcept>
#include <string>

#include "simulator/FuncInfoPublisher.h"
#include "simulator/LockOfTheDead.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using idl::bench::FuncInfoPublisher;

constexpr char NAME[] = "/FuncInfo";
constexpr std::size_t SIZE = 2108;
constexpr std::size_t BLUETOOTH = 512;

class TheFunctionsStandIn : public SegmentTest {
 protected:
  static std::string table() { return RawSegment(NAME).all(); }

  FuncInfoPublisher publisher;
};

TEST_F(TheFunctionsStandIn, BeginsWithoutBluetooth) {
  EXPECT_EQ(table(), RawSegment::littleEndian(2104, 4) + std::string(2104, '\0'));
  EXPECT_FALSE(publisher.hasBluetooth());
}

TEST_F(TheFunctionsStandIn, SaysWhetherThereIsBluetooth) {
  std::string expected = table();

  publisher.setBluetooth(true);
  expected[BLUETOOTH] = 1;
  EXPECT_EQ(table(), expected);
  EXPECT_TRUE(publisher.hasBluetooth());

  publisher.setBluetooth(false);
  expected[BLUETOOTH] = 0;
  EXPECT_EQ(table(), expected);
  EXPECT_FALSE(publisher.hasBluetooth());
}

TEST_F(TheFunctionsStandIn, WorksUnderTheLock) {
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.setBluetooth(true); }));
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.hasBluetooth(); }));
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.writeGarbage(1); }));
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.resize(SIZE); }));
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.comeBack(); }));
}

TEST_F(TheFunctionsStandIn, DiesWithTheLock) {
  const std::string before = table();

  EXPECT_EQ(ChildProcess([]() -> int { FuncInfoPublisher().crash(); }).wait(), -SIGKILL);
  const LogCapture log;
  publisher.hasBluetooth();

  EXPECT_EQ(locksOfTheDead(log), 1U);
  EXPECT_EQ(table(), before);
}

TEST_F(TheFunctionsStandIn, WritesGarbage) {
  publisher.writeGarbage(5489);
  const std::string first = table();
  publisher.writeGarbage(1);

  EXPECT_EQ(first.substr(0, 9), RawSegment::littleEndian(2104, 4) + "\x5C\xF6\xEE\x79\x2C");
  EXPECT_NE(table(), first);
}

TEST_F(TheFunctionsStandIn, TakesTheTableAwayAndBringsAnEmptyOneBack) {
  publisher.setBluetooth(true);

  publisher.vanish();
  EXPECT_FALSE(RawSegment::exists(NAME));
  publisher.comeBack();

  EXPECT_EQ(table(), RawSegment::littleEndian(2104, 4) + std::string(2104, '\0'));
  publisher.setBluetooth(true);
  EXPECT_EQ(RawSegment(NAME).get8(BLUETOOTH), 1U);
}

TEST_F(TheFunctionsStandIn, CannotSayAnythingInATableThatEndsBefore) {
  const LogCapture log;
  publisher.resize(BLUETOOTH);

  EXPECT_EQ(RawSegment(NAME).size(), BLUETOOTH);
  EXPECT_THROW(publisher.setBluetooth(true), std::runtime_error);
  EXPECT_THROW(publisher.hasBluetooth(), std::runtime_error);
}

}  // namespace
