// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "AapIntegratedDeviceList.h"
#include "support/CapturedStdErr.h"
#include "support/NumberClasses.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char NAME[] = "/AapDeviceList";
constexpr std::size_t SIZE = 6292;
constexpr unsigned SLOTS = 12;

std::size_t slot(unsigned k) { return 4 + 524 * k; }

void putPhone(RawSegment& raw, unsigned k, const std::string& id, unsigned btid, std::int32_t port) {
  raw.putText(slot(k) + 262, id);
  raw.put8(slot(k) + 519, btid);
  raw.put32(slot(k) + 520, static_cast<std::uint32_t>(port));
}

template <std::size_t Size>
std::string field(const char (&bytes)[Size]) {
  return {bytes, Size};
}

std::vector<AapDevice> records(AapIntegratedDeviceList& adapter) {
  std::vector<AapDevice> found(3);  // what is there before must not matter
  adapter.getFunctionDeviceList(found);
  return found;
}

std::vector<IntegratedDevice> btList(const AapIntegratedDeviceList& adapter) {
  std::vector<IntegratedDevice> list;
  adapter.getBtDeviceList(list);
  return list;
}

std::vector<IntegratedDevice> usbList(const AapIntegratedDeviceList& adapter) {
  std::vector<IntegratedDevice> list;
  adapter.getUsbDeviceList(list);
  return list;
}

std::vector<std::string> ids(const std::vector<AapDevice>& list) {
  std::vector<std::string> found;
  found.reserve(list.size());
  for (const AapDevice& device : list) {
    found.emplace_back(device.id);
  }
  return found;
}

/// A table that a service has made, all zero.
class AnAapTable : public SegmentTest {
 protected:
  AnAapTable() : mRaw(NAME, SIZE) { mRaw.put32(0, 6288); }

  RawSegment mRaw;
};

class NoAapTable : public SegmentTest {};

TEST_F(NoAapTable, IsCreatedAndYieldsNoDevices) {
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  EXPECT_THAT(records(adapter), IsEmpty());
  EXPECT_THAT(btList(adapter), IsEmpty());
  EXPECT_THAT(usbList(adapter), IsEmpty());
  EXPECT_EQ(RawSegment(NAME).all(), RawSegment::littleEndian(6288, 4) + std::string(6288, '\0'));
}

TEST_F(AnAapTable, TakesASlotWithAnIdOfOneCharacterAndNoName) {
  putPhone(mRaw, 5, "x", 3, 0);
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(1));
  EXPECT_EQ(list[0].name, "");
  EXPECT_EQ(list[0].aapId, "x");
}

TEST_F(AnAapTable, SkipsASlotWithANameButNoId) {
  mRaw.putText(slot(0) + 5, "Phone");
  mRaw.put8(slot(0) + 4, 9);
  mRaw.put8(slot(0) + 519, 3);
  mRaw.put32(slot(0) + 520, 1);
  mRaw.put8(slot(0) + 263, 'x');  // behind the NUL
  AapIntegratedDeviceList adapter;

  EXPECT_THAT(records(adapter), IsEmpty());
}

TEST_F(AnAapTable, IsReadInTheOrderOfItsSlotsWithoutTheFreeOnes) {
  putPhone(mRaw, 1, "z", 9, 0);
  putPhone(mRaw, 4, "m", 2, 0);
  putPhone(mRaw, 10, "a", 5, 0);
  AapIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre("z", "m", "a"));
}

TEST_F(AnAapTable, FilesATakenSlotByItsIdAndItsPort) {
  putPhone(mRaw, 0, "paired", 4, 0);
  putPhone(mRaw, 1, "usb", 255, 3);
  putPhone(mRaw, 2, "neither", 255, 0);
  putPhone(mRaw, 3, "negative", 255, -1);
  putPhone(mRaw, 4, "both", 0, 7);
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(records(adapter), SizeIs(5));
  ASSERT_THAT(btList(adapter), SizeIs(2));
  EXPECT_EQ(btList(adapter)[0].aapId, "paired");
  EXPECT_EQ(btList(adapter)[1].aapId, "both");
  EXPECT_EQ(btList(adapter)[1].port, 7);
  ASSERT_THAT(usbList(adapter), SizeIs(1));
  EXPECT_EQ(usbList(adapter)[0].aapId, "usb");
  EXPECT_EQ(usbList(adapter)[0].port, 3);
}

TEST_F(AnAapTable, YieldsThePhoneInItsLastSlot) {
  putPhone(mRaw, 11, "last", 255, 0x01020304);
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(usbList(adapter), SizeIs(1));
  EXPECT_EQ(usbList(adapter)[0].aapId, "last");
  EXPECT_EQ(usbList(adapter)[0].port, 0x01020304);
}

TEST_F(AnAapTable, YieldsTwelvePhonesWhenItIsFull) {
  for (unsigned k = 0; k < SLOTS; ++k) {
    putPhone(mRaw, k, std::string(1, static_cast<char>('a' + k)), k, 0);
  }
  AapIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre("a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l"));
}

TEST_F(AnAapTable, ReadsExtremePorts) {
  AapIntegratedDeviceList adapter;
  for (const std::int32_t port : {INT32_MIN, INT32_MIN + 1, -1, 0, 1, 255, 256, INT32_MAX}) {
    putPhone(mRaw, 0, "x", 255, port);

    adapter.updateDeviceList();

    ASSERT_THAT(records(adapter), SizeIs(1));
    EXPECT_EQ(records(adapter)[0].port, port);
    EXPECT_THAT(usbList(adapter), SizeIs(port > 0 ? 1 : 0)) << port;
    EXPECT_THAT(btList(adapter), IsEmpty());
  }
}

TEST_F(AnAapTable, ReadsPortsOfEveryClass) {
  AapIntegratedDeviceList adapter;
  for (const std::uint32_t number : numberClasses()) {
    const auto port = static_cast<std::int32_t>(number);
    putPhone(mRaw, 11, "x", 255, port);

    adapter.updateDeviceList();

    ASSERT_EQ(records(adapter).at(0).port, port);
    ASSERT_THAT(usbList(adapter), SizeIs(port > 0 ? 1 : 0)) << port;
  }
}

TEST_F(AnAapTable, ReadsEveryValueOfTheIdAndTheSession) {
  AapIntegratedDeviceList adapter;
  for (unsigned value = 0; value <= 255; ++value) {
    putPhone(mRaw, 0, "x", value, 1);
    mRaw.put8(slot(0) + 4, value);

    adapter.updateDeviceList();

    const std::vector<IntegratedDevice> list = value == 255 ? usbList(adapter) : btList(adapter);
    ASSERT_THAT(list, SizeIs(1));
    EXPECT_EQ(list[0].btid, value);
    EXPECT_EQ(list[0].session, value);
  }
}

TEST_F(AnAapTable, TakesASlotByItsFirstIdByteWhateverItIs) {
  AapIntegratedDeviceList adapter;
  for (unsigned value = 0; value <= 255; ++value) {
    mRaw.put8(slot(7) + 262, value);

    EXPECT_THAT(records(adapter), SizeIs(value == 0 ? 0 : 1)) << value;
  }
}

TEST_F(AnAapTable, HasItsFieldsReadFromTheirPlaces) {
  mRaw.put(slot(3), std::string(524, '\x99'));
  mRaw.put32(slot(3), 0xDEADBEEF);  // the header word, which nobody reads
  mRaw.put8(slot(3) + 4, 17);
  mRaw.putText(slot(3) + 5, "Phone");
  mRaw.putText(slot(3) + 262, "serial");
  mRaw.put8(slot(3) + 519, 18);
  mRaw.put32(slot(3) + 520, 0xFFFFFFFE);
  AapIntegratedDeviceList adapter;

  const std::vector<AapDevice> found = records(adapter);

  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].session, 17);
  EXPECT_EQ(field(found[0].name), std::string("Phone\0", 6) + std::string(251, '\x99'));
  EXPECT_EQ(field(found[0].id), std::string("serial\0", 7) + std::string(250, '\x99'));
  EXPECT_EQ(found[0].btid, 18);
  EXPECT_EQ(found[0].port, -2);
}

TEST_F(AnAapTable, ConvertsAPhoneToAnAndroidAutoDevice) {
  putPhone(mRaw, 6, "serial", 12, 34);
  mRaw.put8(slot(6) + 4, 56);
  mRaw.putText(slot(6) + 5, "Phone");
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(1));
  const IntegratedDevice& device = list[0];
  EXPECT_EQ(device.type, LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP);
  EXPECT_EQ(device.name, "Phone");
  EXPECT_EQ(device.btid, 12);
  EXPECT_EQ(device.port, 34);
  EXPECT_EQ(device.session, 56);
  EXPECT_EQ(device.cpDeviceId, 0U);
  EXPECT_EQ(device.aapId, "serial");
  EXPECT_EQ(device.suffix, 0);
  EXPECT_EQ(device.aapDevice.session, 56);
  EXPECT_STREQ(device.aapDevice.name, "Phone");
  EXPECT_STREQ(device.aapDevice.id, "serial");
  EXPECT_EQ(device.aapDevice.btid, 12);
  EXPECT_EQ(device.aapDevice.port, 34);
  EXPECT_EQ(device.btDevice.id, 255);
  EXPECT_EQ(device.btDevice.flag1, 1);
  EXPECT_THAT(device.btDevice.name, Each('\0'));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&device.cpDevice), 296), std::string(296, '\0'));
}

TEST_F(AnAapTable, ConvertsTextsWithoutAnEndUpToTheEndOfTheirFields) {
  mRaw.put(slot(11), std::string(524, 'q'));
  mRaw.put(slot(11) + 5, std::string(257, 'x'));
  mRaw.put(slot(11) + 262, std::string(257, 'y'));
  mRaw.put8(slot(11) + 519, 1);
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  const IntegratedDevice device = btList(adapter)[0];
  EXPECT_EQ(device.name, std::string(257, 'x'));
  EXPECT_EQ(device.aapId, std::string(257, 'y'));
  EXPECT_EQ(field(device.aapDevice.name), std::string(257, 'x'));
  EXPECT_EQ(field(device.aapDevice.id), std::string(257, 'y'));
}

TEST_F(AnAapTable, ConvertsTextsOfEveryLengthUpToTheirFirstNul) {
  AapIntegratedDeviceList adapter;
  for (std::size_t length = 0; length <= 257; ++length) {
    const std::string text = std::string(length, 'x') + std::string(257 - length, '\0');
    mRaw.put(slot(0) + 5, text);
    mRaw.put(slot(0) + 262, text);

    adapter.updateDeviceList();

    ASSERT_THAT(btList(adapter), SizeIs(length == 0 ? 0 : 1)) << length;
    if (length != 0) {
      EXPECT_EQ(btList(adapter)[0].name, std::string(length, 'x'));
      EXPECT_EQ(btList(adapter)[0].aapId, std::string(length, 'x'));
    }
  }
}

TEST_F(AnAapTable, IsReadAfreshAtEachRefresh) {
  putPhone(mRaw, 0, "before", 1, 0);
  AapIntegratedDeviceList adapter;
  adapter.updateDeviceList();

  putPhone(mRaw, 0, "after", 2, 0);
  adapter.updateDeviceList();
  const std::vector<IntegratedDevice> changed = btList(adapter);
  mRaw.put8(slot(0) + 262, 0);
  adapter.updateDeviceList();

  ASSERT_THAT(changed, SizeIs(1));
  EXPECT_EQ(changed[0].aapId, "after");
  EXPECT_THAT(btList(adapter), IsEmpty());
}

TEST_F(AnAapTable, IsNotWrittenToByReading) {
  putPhone(mRaw, 0, "phone", 1, 0);
  const std::string before = mRaw.all();
  AapIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  EXPECT_EQ(mRaw.all(), before);
}

TEST_F(AnAapTable, CountsOnlyTheSlotsInsideItWhateverItsLength) {
  for (unsigned k = 0; k < SLOTS; ++k) {
    putPhone(mRaw, k, "phone", k, 0);
  }
  for (std::size_t length = SIZE - 1; length > 0; --length) {
    mRaw.resize(length);
    const CapturedStdErr log;

    AapIntegratedDeviceList adapter;
    const std::vector<AapDevice> found = records(adapter);
    records(adapter);

    const std::size_t expected = length < 4 ? 0 : (length - 4) / 524;
    ASSERT_EQ(found.size(), expected) << length;
    ASSERT_TRUE(found.empty() || found.back().btid == expected - 1) << length;
    ASSERT_EQ(mRaw.size(), length);
    ASSERT_THAT(log.lines(), SizeIs(1)) << length;
  }
}

TEST_F(AnAapTable, IsReadAsUsualWhenItIsLongerThanItShouldBe) {
  mRaw.resize(SIZE + 5000);
  putPhone(mRaw, 0, "first", 1, 0);
  putPhone(mRaw, 11, "last", 2, 0);
  putPhone(mRaw, 12, "beyond", 3, 0);
  const CapturedStdErr log;

  AapIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre("first", "last"));
  EXPECT_EQ(mRaw.size(), SIZE + 5000);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnAapTable, IsMadeWholeWhenItHasNoLength) {
  mRaw.resize(0);

  AapIntegratedDeviceList adapter;

  EXPECT_EQ(mRaw.all(), RawSegment::littleEndian(6288, 4) + std::string(6288, '\0'));
  EXPECT_THAT(records(adapter), IsEmpty());
}

}  // namespace
