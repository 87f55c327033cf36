// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CpIntegratedDeviceList.h"
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

constexpr char NAME[] = "/LmSCarplayResource";
constexpr std::size_t SIZE = 13736;
constexpr unsigned SLOTS = 11;
constexpr std::size_t CURRENT = 1072;
constexpr std::size_t USB_WORD = 1076;
constexpr std::size_t FLAG = 13732;
constexpr std::uint64_t PHONE = 0x1122304455667788;

std::size_t slot(unsigned i) { return 1800 + 296 * i; }

void putPhone(RawSegment& raw, unsigned i, std::uint64_t id, unsigned btid) {
  raw.put64(slot(i), id);
  raw.put8(slot(i) + 264, btid);
  raw.put8(slot(i) + 269, 1);
}

std::string bytesOf(const cps_def::WCPAtom& atom) { return {reinterpret_cast<const char*>(&atom), sizeof(atom)}; }

std::vector<cps_def::WCPAtom> records(CpIntegratedDeviceList& adapter) {
  std::vector<cps_def::WCPAtom> found(3);  // what is there before must not matter
  adapter.getFunctionDeviceList(found);
  return found;
}

std::vector<std::uint64_t> ids(const std::vector<cps_def::WCPAtom>& list) {
  std::vector<std::uint64_t> found;
  found.reserve(list.size());
  for (const cps_def::WCPAtom& atom : list) {
    found.push_back(atom.identifier);
  }
  return found;
}

std::vector<IntegratedDevice> btList(const CpIntegratedDeviceList& adapter) {
  std::vector<IntegratedDevice> list;
  adapter.getBtDeviceList(list);
  return list;
}

std::vector<IntegratedDevice> usbList(const CpIntegratedDeviceList& adapter) {
  std::vector<IntegratedDevice> list;
  adapter.getUsbDeviceList(list);
  return list;
}

/// A resource that its service has initialised, with no phones.
class ACarPlayResource : public SegmentTest {
 protected:
  ACarPlayResource() : mRaw(NAME, SIZE) {
    mRaw.put32(0, 13728);
    mRaw.put8(FLAG, 1);
  }

  RawSegment mRaw;
};

class NoCarPlayResource : public SegmentTest {};

TEST_F(NoCarPlayResource, IsCreatedAndYieldsNoPhones) {
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  EXPECT_THAT(records(adapter), IsEmpty());
  EXPECT_EQ(RawSegment(NAME).size(), SIZE);
  EXPECT_EQ(RawSegment(NAME).get8(FLAG), 1U);
}

TEST_F(ACarPlayResource, YieldsElevenPhonesAndNeverATwelfth) {
  for (unsigned i = 0; i < SLOTS; ++i) {
    putPhone(mRaw, i, 100 + i, i);
  }
  mRaw.put(slot(11), std::string(296, '\x01'));  // where a twelfth would be
  CpIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre(100U, 101U, 102U, 103U, 104U, 105U, 106U, 107U, 108U, 109U, 110U));
}

TEST_F(ACarPlayResource, IsReadInTheOrderOfItsSlots) {
  putPhone(mRaw, 2, 9, 1);
  putPhone(mRaw, 5, UINT64_MAX, 1);
  putPhone(mRaw, 10, 1, 1);
  CpIntegratedDeviceList adapter;

  EXPECT_THAT(ids(records(adapter)), ElementsAre(9U, UINT64_MAX, 1U));
}

TEST_F(ACarPlayResource, LeavesOutAnEntryWithoutAnIdentifier) {
  putPhone(mRaw, 3, 0, 5);
  mRaw.putText(slot(3) + 8, "Phone");
  CpIntegratedDeviceList adapter;

  EXPECT_THAT(records(adapter), IsEmpty());
}

TEST_F(ACarPlayResource, LeavesOutAnEntryThatIsNotValid) {
  putPhone(mRaw, 3, PHONE, 5);
  mRaw.put8(slot(3) + 269, 0);
  CpIntegratedDeviceList adapter;

  EXPECT_THAT(records(adapter), IsEmpty());
}

TEST_F(ACarPlayResource, TakesEveryOtherValueOfTheValidByteForValid) {
  putPhone(mRaw, 3, PHONE, 5);
  CpIntegratedDeviceList adapter;
  for (unsigned value = 0; value <= 255; ++value) {
    mRaw.put8(slot(3) + 269, value);

    EXPECT_THAT(records(adapter), SizeIs(value == 0 ? 0 : 1)) << value;
  }
}

TEST_F(ACarPlayResource, TakesAnIdentifierOfAnySingleByteForOne) {
  CpIntegratedDeviceList adapter;
  for (unsigned byte = 0; byte < 8; ++byte) {
    putPhone(mRaw, 0, std::uint64_t{1} << (8 * byte), 5);

    EXPECT_THAT(ids(records(adapter)), ElementsAre(std::uint64_t{1} << (8 * byte)));
  }
}

TEST_F(ACarPlayResource, HasItsEntriesCopiedAsTheirBytes) {
  std::string entry;
  for (unsigned i = 0; i < 296; ++i) {
    entry += static_cast<char>(static_cast<unsigned char>(i * 3 + 1));
  }
  mRaw.put(slot(10), entry);
  CpIntegratedDeviceList adapter;

  const std::vector<cps_def::WCPAtom> found = records(adapter);
  adapter.updateDeviceList();

  ASSERT_THAT(found, SizeIs(1));
  EXPECT_EQ(bytesOf(found[0]), entry);
  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(bytesOf(btList(adapter)[0].cpDevice), entry);
}

TEST_F(ACarPlayResource, ConvertsAnEntryToACarPlayDevice) {
  putPhone(mRaw, 4, PHONE, 7);
  mRaw.putText(slot(4) + 8, "Phone");
  mRaw.put8(slot(4) + 266, 3);
  mRaw.put64(CURRENT, PHONE);
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  const std::vector<IntegratedDevice> list = btList(adapter);
  ASSERT_THAT(list, SizeIs(1));
  const IntegratedDevice& device = list[0];
  EXPECT_EQ(device.type, LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY);
  EXPECT_EQ(device.name, "Phone");
  EXPECT_EQ(device.btid, 7);
  EXPECT_EQ(device.port, 1);
  EXPECT_EQ(device.session, 3);
  EXPECT_EQ(device.cpDeviceId, PHONE);
  EXPECT_EQ(device.aapId, "");
  EXPECT_EQ(device.suffix, 0);
  EXPECT_EQ(bytesOf(device.cpDevice), mRaw.bytes(slot(4), 296));
  EXPECT_EQ(device.btDevice.id, 255);
  EXPECT_EQ(device.btDevice.flag1, 1);
  EXPECT_THAT(device.btDevice.name, Each('\0'));
  EXPECT_EQ(device.aapDevice.btid, 255);
  EXPECT_THAT(device.aapDevice.id, Each('\0'));
}

TEST_F(ACarPlayResource, ConvertsTheBluetoothIdZeroTo255AndAllOthersAsTheyAre) {
  mRaw.put64(CURRENT, PHONE);
  CpIntegratedDeviceList adapter;
  for (unsigned id = 0; id <= 255; ++id) {
    putPhone(mRaw, 0, PHONE, id);

    adapter.updateDeviceList();

    const bool unpaired = id == 0 || id == 255;
    const std::vector<IntegratedDevice> list = unpaired ? usbList(adapter) : btList(adapter);
    ASSERT_THAT(list, SizeIs(1)) << id;
    EXPECT_EQ(list[0].btid, unpaired ? 255U : id);
  }
}

TEST_F(ACarPlayResource, GivesThePort1ToTheCurrentPhoneEvenWhenBit9IsClear) {
  putPhone(mRaw, 0, PHONE, 7);
  ASSERT_EQ((PHONE >> 41) & 1, 0U) << "the word at 1076 is the upper half of the identifier";
  mRaw.put64(CURRENT, PHONE);
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].port, 1);
}

TEST_F(ACarPlayResource, GivesThePort1ToOtherPhonesExactlyWhenBit9IsSet) {
  putPhone(mRaw, 0, PHONE, 7);
  CpIntegratedDeviceList adapter;
  for (unsigned bit = 0; bit < 32; ++bit) {
    mRaw.put32(USB_WORD, std::uint32_t{1} << bit);
    adapter.updateDeviceList();
    ASSERT_THAT(btList(adapter), SizeIs(1));
    EXPECT_EQ(btList(adapter)[0].port, bit == 9 ? 1 : 0) << bit;

    mRaw.put32(USB_WORD, ~(std::uint32_t{1} << bit));
    adapter.updateDeviceList();
    ASSERT_THAT(btList(adapter), SizeIs(1));
    EXPECT_EQ(btList(adapter)[0].port, bit == 9 ? 0 : 1) << bit;
  }
}

TEST_F(ACarPlayResource, TakesAPhoneForTheCurrentOneOnlyWhenAllOfItsIdentifierIsEqual) {
  putPhone(mRaw, 0, PHONE, 7);
  CpIntegratedDeviceList adapter;
  for (unsigned byte = 0; byte < 8; ++byte) {
    mRaw.put64(CURRENT, PHONE ^ (std::uint64_t{1} << (8 * byte)));  // never touches bit 41

    adapter.updateDeviceList();

    ASSERT_THAT(btList(adapter), SizeIs(1));
    EXPECT_EQ(btList(adapter)[0].port, 0) << byte;
  }
}

TEST_F(ACarPlayResource, ReadsIdentifiersOfEveryClassInBothHalves) {
  CpIntegratedDeviceList adapter;
  for (const std::uint32_t number : numberClasses()) {
    for (const std::uint64_t id : {std::uint64_t{number}, std::uint64_t{number} << 32}) {
      putPhone(mRaw, 10, id, 7);
      mRaw.put64(CURRENT, id);

      adapter.updateDeviceList();

      ASSERT_THAT(btList(adapter), SizeIs(id == 0 ? 0 : 1)) << id;
      ASSERT_TRUE(id == 0 || (btList(adapter)[0].cpDeviceId == id && btList(adapter)[0].port == 1)) << id;
    }
  }
}

TEST_F(ACarPlayResource, ConvertsANameWithoutAnEndUpToTheEndOfItsField) {
  mRaw.put(slot(10), std::string(296, '\x99'));
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].name, std::string(256, '\x99'));
}

TEST_F(ACarPlayResource, GivesAnEntryWithoutAnIdentifierNoPort) {
  mRaw.put32(USB_WORD, 0xFFFFFFFF);
  CpIntegratedDeviceList adapter;
  const cps_def::WCPAtom atom = {};

  EXPECT_EQ(adapter.toIntegratedDevice(atom).port, 0);
  EXPECT_EQ(adapter.toIntegratedDevice(atom).btid, 255);
}

TEST_F(ACarPlayResource, FilesPhonesByTheirIdAndTheirPort) {
  putPhone(mRaw, 0, 1, 0);
  putPhone(mRaw, 1, 2, 5);
  putPhone(mRaw, 2, PHONE, 0);
  mRaw.put64(CURRENT, PHONE);
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].cpDeviceId, 2U);
  EXPECT_EQ(btList(adapter)[0].port, 0);
  ASSERT_THAT(usbList(adapter), SizeIs(1));
  EXPECT_EQ(usbList(adapter)[0].cpDeviceId, PHONE);
}

TEST_F(ACarPlayResource, DropsAPhoneThatIsNeitherPairedNorCurrentNorMarkedByBit9) {
  putPhone(mRaw, 0, PHONE, 0);
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();
  EXPECT_THAT(btList(adapter), IsEmpty());
  EXPECT_THAT(usbList(adapter), IsEmpty());

  mRaw.put32(USB_WORD, 0x200);
  adapter.updateDeviceList();
  EXPECT_THAT(usbList(adapter), SizeIs(1));
}

TEST_F(ACarPlayResource, TakesTheSession1FromTheFlagWhateverTheSessionByteHolds) {
  putPhone(mRaw, 0, PHONE, 7);
  CpIntegratedDeviceList adapter;
  for (unsigned session = 0; session <= 255; ++session) {
    for (const unsigned flag : {0U, 1U, 2U, 255U}) {
      mRaw.put8(slot(0) + 265, flag);
      mRaw.put8(slot(0) + 266, session);

      adapter.updateDeviceList();

      ASSERT_THAT(btList(adapter), SizeIs(1));
      EXPECT_EQ(btList(adapter)[0].session, flag == 0 ? session : 1U) << flag;
    }
  }
}

TEST_F(ACarPlayResource, TakesTheSessionByteWhenTheFlagIsZero) {
  putPhone(mRaw, 0, PHONE, 7);
  mRaw.put8(slot(0) + 265, 0);
  mRaw.put8(slot(0) + 266, 3);
  CpIntegratedDeviceList adapter;

  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].session, 3);
}

TEST_F(ACarPlayResource, ConvertsANameOfEveryLengthUpToItsFirstNul) {
  CpIntegratedDeviceList adapter;
  for (std::size_t length = 0; length <= 256; ++length) {
    putPhone(mRaw, 0, PHONE, 255);
    mRaw.put8(slot(0) + 264, 'b');  // right behind the field
    mRaw.put(slot(0) + 8, std::string(length, 'x') + std::string(256 - length, '\0'));

    adapter.updateDeviceList();

    ASSERT_THAT(btList(adapter), SizeIs(1));
    EXPECT_EQ(btList(adapter)[0].name, std::string(length, 'x'));
  }
}

TEST_F(ACarPlayResource, IsReadAfreshAtEachRefresh) {
  putPhone(mRaw, 0, 1, 7);
  CpIntegratedDeviceList adapter;
  adapter.updateDeviceList();

  putPhone(mRaw, 0, 2, 8);
  adapter.updateDeviceList();

  ASSERT_THAT(btList(adapter), SizeIs(1));
  EXPECT_EQ(btList(adapter)[0].cpDeviceId, 2U);
}

TEST_F(ACarPlayResource, IsNotWrittenToByReading) {
  for (unsigned i = 0; i < SLOTS; ++i) {
    putPhone(mRaw, i, 100 + i, i);
  }
  CpIntegratedDeviceList adapter;
  const std::string before = mRaw.all();

  adapter.updateDeviceList();

  EXPECT_EQ(mRaw.all(), before);
}

TEST_F(ACarPlayResource, CountsTheCurrentPhoneAndTheWordAsZeroWhereTheyAreCutOff) {
  constexpr std::uint64_t WITH_BIT_9 = PHONE | (std::uint64_t{0x200} << 32);
  mRaw.put64(CURRENT, WITH_BIT_9);
  CpIntegratedDeviceList adapter;
  cps_def::WCPAtom current = {};
  current.identifier = WITH_BIT_9;
  cps_def::WCPAtom other = {};
  other.identifier = 5;
  ASSERT_EQ(adapter.toIntegratedDevice(current).port, 1);
  ASSERT_EQ(adapter.toIntegratedDevice(other).port, 1);

  for (std::size_t length = 1080 + 1; length-- > 1070;) {
    mRaw.resize(length);

    EXPECT_EQ(adapter.toIntegratedDevice(current).port, length >= 1080 ? 1 : 0) << length;
    EXPECT_EQ(adapter.toIntegratedDevice(other).port, length >= 1080 ? 1 : 0) << length;
  }
}

TEST_F(ACarPlayResource, IsAttachedAtLengthsThatAreTooShortWithOneLogLine) {
  for (unsigned i = 0; i < SLOTS; ++i) {
    putPhone(mRaw, i, 100 + i, 1);
  }
  for (const std::size_t length :
       std::vector<std::size_t>{13735, 13733, 13732, 5056, 5055, 2392, 2096, 2095, 1800, 1080, 9, 8, 5, 4, 3, 1}) {
    mRaw.resize(length);
    const CapturedStdErr log;

    CpIntegratedDeviceList adapter;
    adapter.updateDeviceList();

    const std::size_t expected = length < 1800 ? 0 : std::min<std::size_t>((length - 1800) / 296, SLOTS);
    EXPECT_THAT(btList(adapter), SizeIs(expected)) << length;
    EXPECT_EQ(mRaw.size(), length);
    EXPECT_THAT(log.lines(), SizeIs(length >= 13733 ? 0 : 1)) << length;
  }
}

TEST_F(NoCarPlayResource, GivesNoPortsWhereItCannotBeMapped) {
  ASSERT_EQ(mkdir("/dev/shm/LmSCarplayResource", 0755), 0);
  const CapturedStdErr log;
  CpIntegratedDeviceList adapter;
  cps_def::WCPAtom atom = {};
  atom.identifier = PHONE;

  EXPECT_EQ(adapter.toIntegratedDevice(atom).port, 0);
  EXPECT_THAT(log.lines(), SizeIs(1));
}

}  // namespace
