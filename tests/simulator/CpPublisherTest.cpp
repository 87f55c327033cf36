// SPDX-License-Identifier: Apache-2.0
// What CarPlay's stand-in has beside its phones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "simulator/CpPublisher.h"
#include "simulator/Heard.h"
#include "simulator/LockOfTheDead.h"
#include "support/LogCapture.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using idl::bench::CpPublisher;
using ::testing::ElementsAre;

constexpr char NAME[] = "/LmSCarplayResource";
constexpr std::uint64_t IDENTIFIER = 0x1122334455667788;

class ACarPlayStandIn : public SegmentTest {
 protected:
  ACarPlayStandIn() { publisher.initialise(); }

  static std::string connected() { return RawSegment(NAME).bytes(1072, 8); }

  CpPublisher publisher;
};

TEST_F(ACarPlayStandIn, BeginsWithTheServicesDefaults) {
  const RawSegment raw(NAME);

  EXPECT_EQ(raw.get8(13732), 1U);
  EXPECT_EQ(raw.bytes(11220, 4), RawSegment::littleEndian(44100, 4));
  EXPECT_EQ(connected(), std::string(8, '\0'));
  EXPECT_EQ(publisher.currentPhone(), 0U);
}

TEST_F(ACarPlayStandIn, SaysWhichPhoneIsConnected) {
  Heard heard(6);

  EXPECT_EQ(publisher.setCurrentPhone(IDENTIFIER), 1U);

  EXPECT_EQ(connected(), RawSegment::littleEndian(IDENTIFIER, 8));
  EXPECT_EQ(publisher.currentPhone(), IDENTIFIER);
  EXPECT_THAT(heard.soFar(), ElementsAre(1));
}

TEST_F(ACarPlayStandIn, KeepsTheConnectedPhoneWhenThePhonesAreReplaced) {
  publisher.setCurrentPhone(IDENTIFIER);

  publisher.replaceAll({{0, {1, "Phone"}}});

  EXPECT_EQ(publisher.currentPhone(), IDENTIFIER);
}

TEST_F(ACarPlayStandIn, ForgetsTheConnectedPhoneWhenItComesBack) {
  publisher.setCurrentPhone(IDENTIFIER);

  publisher.comeBack();

  EXPECT_EQ(publisher.currentPhone(), 0U);
}

TEST_F(ACarPlayStandIn, TakesTheLockForTheConnectedPhone) {
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.setCurrentPhone(IDENTIFIER); }));
  EXPECT_TRUE(takesTheLock(NAME + 1, [this] { publisher.currentPhone(); }));
}

TEST_F(ACarPlayStandIn, CannotSayWhichPhoneIsConnectedInATableThatEndsBefore) {
  const LogCapture log;
  publisher.resize(1079);

  EXPECT_THROW(publisher.setCurrentPhone(IDENTIFIER), std::runtime_error);
  EXPECT_THROW(publisher.currentPhone(), std::runtime_error);
}

TEST_F(ACarPlayStandIn, CountsASlotThatIsNotValidAsFree) {
  publisher.put(0, {1, "Phone"});

  publisher.writeRaw(1800 + 269, std::string(1, '\0'));

  EXPECT_EQ(publisher.get(0), std::nullopt);
  EXPECT_EQ(publisher.firstFree(), 0U);
}

}  // namespace
