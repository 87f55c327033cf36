// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "BtIntegratedDeviceList.h"
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

constexpr char NAME[] = "/BtPairedDeviceList";
constexpr std::size_t SIZE = 1124;
constexpr unsigned SLOTS = 10;

std::size_t slot(unsigned k) { return 4 + 112 * k; }

void putPhone(RawSegment& raw, unsigned k, unsigned id, const std::string& name) {
  raw.put8(slot(k) + 4, id);
  raw.putText(slot(k) + 5, name);
}

template <std::size_t Size>
std::string field(const char (&bytes)[Size]) {
  return {bytes, Size};
}

/// The fields of a record as they lie behind a slot's header word.
std::string bytesOf(const BtPairedDevice& record) {
  return RawSegment::littleEndian(record.id, 1) + field(record.name) + field(record.address) +
         RawSegment::littleEndian(record.info, 4) + RawSegment::littleEndian(record.flag1, 1) +
         RawSegment::littleEndian(record.flag2, 1);
}

std::vector<BtPairedDevice> records(BtIntegratedDeviceList& adapter) {
  std::vector<BtPairedDevice> found(3);  // what is there before must not matter
  adapter.getFunctionDeviceList(found);
  return found;
}

std::vector<IntegratedDevice> btList(const BtIntegratedDeviceList& adapter) {
  std::vector<IntegratedDevice> list;
  adapter.getBtDeviceList(list);
  return list;
}

std::vector<unsigned> ids(const std::vector<BtPairedDevice>& list) {
  std::vector<unsigned> found;
  found.reserve(list.size());
  for (const BtPairedDevice& device : list) {
    found.push_back(device.id);
  }
  return found;
}

/// A table that a service has made, all slots free.
class ABtTable : public SegmentTest {
 protected:
  ABtTable() : mRaw(NAME, SIZE) {
    mRaw.put32(0, 1120);
    for (unsigned k = 0; k < SLOTS; ++k) {
      mRaw.put8(slot(k) + 4, 255);
    }
  }

  RawSegment mRaw;
};

class NoBtTable : public SegmentTest {};

TEST_F(NoBtTable, IsCreatedAndReadsAsTenNamelessPhonesWithTheIdZero) {
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(10));
  for (const IntegratedDevice& device : list) {
    EXPECT_EQ(device.btid, 0);
    EXPECT_EQ(device.name, "");
  }
  EXPECT_EQ(RawSegment(NAME).size(), SIZE);
}

TEST_F(NoBtTable, IsReadWhenItsServiceHasWrittenItLater) {
  BtIntegratedDeviceList adapter;
  RawSegment raw(NAME);
  for (unsigned k = 0; k < SLOTS; ++k) {
    raw.put8(slot(k) + 4, 255);
  }
  putPhone(raw, 4, 44, "late");

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].name, "late");
}

TEST_F(ABtTable, IsEmptyWhenAllItsSlotsAreFree) {
  BtIntegratedDeviceList adapter;

  EXPECT_THAT(records(adapter), IsEmpty());
}

TEST_F(ABtTable, IsReadInTheOrderOfItsSlotsWithoutTheFreeOnes) {
  putPhone(mRaw, 1, 9, "nine");
  putPhone(mRaw, 5, 2, "two");
  putPhone(mRaw, 8, 5, "five");
  BtIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre(9U, 2U, 5U));
}

TEST_F(ABtTable, IsReadWhereverTheOnlyFreeSlotLies) {
  for (unsigned free = 0; free < SLOTS; ++free) {
    std::vector<unsigned> expected;
    for (unsigned k = 0; k < SLOTS; ++k) {
      putPhone(mRaw, k, k == free ? 255 : k + 20, "n");
      if (k != free) {
        expected.push_back(k + 20);
      }
    }
    BtIntegratedDeviceList adapter;

    EXPECT_EQ(ids(records(adapter)), expected);
  }
}

TEST_F(ABtTable, YieldsThePhoneWithIdZeroInItsLastSlot) {
  putPhone(mRaw, 9, 0, "last");
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(1));
  EXPECT_EQ(list[0].btid, 0);
  EXPECT_EQ(list[0].name, "last");
}

TEST_F(ABtTable, TakesEveryIdBut255) {
  BtIntegratedDeviceList adapter;
  for (unsigned id = 0; id <= 255; ++id) {
    mRaw.put8(slot(3) + 4, id);

    const std::vector<unsigned> found = ids(records(adapter));

    EXPECT_EQ(found, id == 255 ? std::vector<unsigned>() : std::vector<unsigned>{id});
  }
}

TEST_F(ABtTable, HasItsFieldsReadFromTheirPlaces) {
  mRaw.put(slot(2), std::string(112, '\x99'));
  mRaw.put32(slot(2), 0xDEADBEEF);  // the header word, which nobody reads
  mRaw.put8(slot(2) + 4, 7);
  mRaw.putText(slot(2) + 5, "Phone");
  mRaw.putText(slot(2) + 86, "00:11:22:33:44:55");
  mRaw.put32(slot(2) + 104, 0xFEDCBA98);
  mRaw.put8(slot(2) + 108, 0);
  mRaw.put8(slot(2) + 109, 200);
  BtIntegratedDeviceList adapter;

  const std::vector<BtPairedDevice> found = records(adapter);

  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(found[0].id, 7);
  EXPECT_EQ(field(found[0].name), std::string("Phone\0", 6) + std::string(75, '\x99'));
  EXPECT_EQ(field(found[0].address), std::string("00:11:22:33:44:55\0", 18));
  EXPECT_EQ(found[0].info, 0xFEDCBA98U);
  EXPECT_EQ(found[0].flag1, 0);
  EXPECT_EQ(found[0].flag2, 200);
}

TEST_F(ABtTable, CarriesEveryValueOfTheFlags) {
  putPhone(mRaw, 0, 1, "n");
  BtIntegratedDeviceList adapter;
  for (unsigned value = 0; value <= 255; ++value) {
    mRaw.put8(slot(0) + 108, value);
    mRaw.put8(slot(0) + 109, 255 - value);

    const std::vector<BtPairedDevice> found = records(adapter);

    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0].flag1, value);
    EXPECT_EQ(found[0].flag2, 255 - value);
  }
}

TEST_F(ABtTable, CarriesInfosOfEveryClass) {
  putPhone(mRaw, 9, 1, "n");
  BtIntegratedDeviceList adapter;
  for (const std::uint32_t info : numberClasses()) {
    mRaw.put32(slot(9) + 104, info);

    ASSERT_EQ(records(adapter).at(0).info, info);
  }
}

TEST_F(ABtTable, ConvertsAPhoneToABluetoothDevice) {
  putPhone(mRaw, 6, 12, "Phone");
  mRaw.putText(slot(6) + 86, "00:11:22:33:44:55");
  mRaw.put32(slot(6) + 104, 0x01020304);
  mRaw.put8(slot(6) + 108, 5);
  mRaw.put8(slot(6) + 109, 6);
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(1));
  const IntegratedDevice& device = list[0];
  EXPECT_EQ(device.type, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  EXPECT_EQ(device.name, "Phone");
  EXPECT_EQ(device.btid, 12);
  EXPECT_EQ(device.port, 0);
  EXPECT_EQ(device.session, 0);
  EXPECT_EQ(device.cpDeviceId, 0U);
  EXPECT_EQ(device.aapId, "");
  EXPECT_EQ(device.suffix, 0);
  EXPECT_EQ(device.btDevice.id, 12);
  EXPECT_STREQ(device.btDevice.name, "Phone");
  EXPECT_STREQ(device.btDevice.address, "00:11:22:33:44:55");
  EXPECT_EQ(device.btDevice.info, 0x01020304U);
  EXPECT_EQ(device.btDevice.flag1, 5);
  EXPECT_EQ(device.btDevice.flag2, 6);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&device.cpDevice), 296), std::string(296, '\0'));
  EXPECT_EQ(device.aapDevice.btid, 255);
  EXPECT_EQ(device.aapDevice.port, 0);
  EXPECT_THAT(device.aapDevice.id, Each('\0'));
}

TEST_F(ABtTable, LeavesTheUsbListEmpty) {
  putPhone(mRaw, 0, 1, "a");
  putPhone(mRaw, 1, 254, "b");
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  std::vector<IntegratedDevice> usb(2);
  adapter.getUsbDeviceList(usb);
  EXPECT_THAT(usb, IsEmpty());
  EXPECT_THAT(btList(adapter), SizeIs(2));
}

TEST_F(ABtTable, ConvertsANameOf80CharactersWhole) {
  putPhone(mRaw, 0, 1, std::string(80, 'x'));
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].name, std::string(80, 'x'));
}

TEST_F(ABtTable, ConvertsATextWithoutAnEndUpToTheEndOfItsField) {
  mRaw.put(slot(0), std::string(112, 'x'));
  mRaw.put8(slot(0) + 4, 1);
  mRaw.put(slot(0) + 86, std::string(18, 'y'));
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  const IntegratedDevice device = btList(adapter)[0];
  EXPECT_EQ(device.name, std::string(81, 'x'));
  EXPECT_EQ(field(device.btDevice.name), std::string(81, 'x'));
  EXPECT_EQ(field(device.btDevice.address), std::string(18, 'y'));
}

TEST_F(ABtTable, ConvertsANameOfEveryLengthUpToItsFirstNul) {
  BtIntegratedDeviceList adapter;
  for (std::size_t length = 0; length <= 81; ++length) {
    mRaw.put8(slot(0) + 4, 1);
    mRaw.put(slot(0) + 5, std::string(length, 'x') + std::string(81 - length, '\0'));
    if (length < 80) {
      mRaw.put8(slot(0) + 5 + 80, 'z');  // behind the NUL, and the last byte of the field
    }

    adapter.updateDeviceList();

    ASSERT_THAT(btList(adapter), SizeIs(1));
    EXPECT_EQ(btList(adapter)[0].name, std::string(length, 'x'));
  }
}

TEST_F(ABtTable, GivesEqualListsWhenNothingChanges) {
  for (unsigned k = 0; k < SLOTS; ++k) {
    mRaw.put(slot(k), std::string(112, static_cast<char>('A' + k)));
    putPhone(mRaw, k, 100 - k, "phone " + std::to_string(k));
  }
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();
  const std::vector<IntegratedDevice> first = btList(adapter);
  adapter.updateDeviceList();
  const std::vector<IntegratedDevice> second = btList(adapter);

  ASSERT_THAT(first, SizeIs(10));
  ASSERT_THAT(second, SizeIs(10));
  for (unsigned k = 0; k < SLOTS; ++k) {
    EXPECT_EQ(first[k].name, "phone " + std::to_string(k));
    EXPECT_EQ(second[k].name, first[k].name);
    EXPECT_EQ(second[k].btid, first[k].btid);
    EXPECT_EQ(bytesOf(first[k].btDevice), mRaw.bytes(slot(k) + 4, 106));
    EXPECT_EQ(bytesOf(second[k].btDevice), bytesOf(first[k].btDevice));
  }
}

TEST_F(ABtTable, IsReadAfreshAtEachRefresh) {
  putPhone(mRaw, 0, 1, "before");
  BtIntegratedDeviceList adapter;
  adapter.updateDeviceList();

  putPhone(mRaw, 0, 2, "after");
  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].name, "after");
  EXPECT_EQ(btList(adapter)[0].btid, 2);
}

TEST_F(ABtTable, IsNotWrittenToByReading) {
  putPhone(mRaw, 0, 1, "phone");
  const std::string before = mRaw.all();
  BtIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  EXPECT_EQ(mRaw.all(), before);
}

TEST_F(ABtTable, CountsOnlyTheSlotsInsideItWhateverItsLength) {
  for (std::size_t length = 1; length <= SIZE + 1; ++length) {
    RawSegment raw(NAME, SIZE + 1);
    for (unsigned k = 0; k < SLOTS; ++k) {
      putPhone(raw, k, k + 1, "phone");
    }
    raw.resize(length);
    const CapturedStdErr log;

    BtIntegratedDeviceList adapter;
    const std::vector<unsigned> found = ids(records(adapter));
    records(adapter);

    const std::size_t expected = length < 4 ? 0 : std::min<std::size_t>((length - 4) / 112, SLOTS);
    ASSERT_EQ(found.size(), expected) << length;
    ASSERT_TRUE(found.empty() || (found.front() == 1 && found.back() == expected)) << length;
    ASSERT_EQ(raw.size(), length);
    ASSERT_THAT(log.lines(), SizeIs(length < SIZE ? 1 : 0)) << length;
  }
}

TEST_F(ABtTable, IsMadeWholeWhenItHasNoLength) {
  mRaw.resize(0);

  BtIntegratedDeviceList adapter;

  EXPECT_EQ(mRaw.all(), RawSegment::littleEndian(1120, 4) + std::string(1120, '\0'));
  EXPECT_THAT(records(adapter), SizeIs(10));
}

TEST_F(ABtTable, IsReadWholeAgainWhenItHasGrownAgain) {
  mRaw.put8(slot(0) + 4, 1);  // which is left when the rest has become zero
  mRaw.resize(10);
  BtIntegratedDeviceList adapter;
  ASSERT_THAT(records(adapter), IsEmpty());

  mRaw.resize(SIZE);

  EXPECT_THAT(records(adapter), SizeIs(10));
}

}  // namespace
