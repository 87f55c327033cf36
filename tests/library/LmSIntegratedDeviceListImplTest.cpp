// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CpIntegratedDeviceList.h"
#include "LmSIntegratedDeviceListImpl.h"
#include "SuffixProvider.h"
#include "support/LogCapture.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"
#include "support/SegmentTest.h"

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using List = std::vector<IntegratedDevice>;

static_assert(std::has_virtual_destructor_v<LmSIntegratedDeviceListImpl>);
static_assert(!std::is_copy_constructible_v<LmSIntegratedDeviceListImpl>);

// Identifies a phone, and says as the connected one that the others are attached by USB.
constexpr std::uint64_t CONNECTED_WITH_USB_FLAG = (std::uint64_t{1} << 41) + 77;

/// "2 Phone btid=3 port=1 suffix=1", with the source in front.
std::vector<std::string> told(const List& list) {
  std::vector<std::string> texts;
  texts.reserve(list.size());
  for (const IntegratedDevice& device : list) {
    texts.push_back(std::to_string(static_cast<int>(device.type)) + " " + device.name +
                    " btid=" + std::to_string(device.btid) + " port=" + std::to_string(device.port) +
                    " suffix=" + std::to_string(device.suffix));
  }
  return texts;
}

IntegratedDevice record(DeviceType type, const std::string& name, std::uint8_t btid) {
  IntegratedDevice device;
  device.type = type;
  device.name = name;
  device.btid = btid;
  return device;
}

class AService : public SegmentTest {
 protected:
  void refreshAll() {
    service.updateDeviceList(DEVICE_TYPE_CARPLAY);
    service.updateDeviceList(DEVICE_TYPE_AAP);
    service.updateDeviceList(DEVICE_TYPE_BT);
  }

  /// The list, which there has to be.
  List list() {
    List phones;
    EXPECT_TRUE(service.getDeviceList(phones));
    return phones;
  }

  SaveFolder folder;
  LogCapture log;
  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceListImpl service;
};

// --- States -----------------------------------------------------------------------------------------------------

class AServiceThatIsNotInitialized : public AService {};

TEST_F(AServiceThatIsNotInitialized, RefusesItsList) {
  List phones(2);

  EXPECT_FALSE(service.getDeviceList(phones));

  EXPECT_THAT(phones, SizeIs(2));
  EXPECT_EQ(log.count("getDeviceList [1] not initialized."), 1U);
}

TEST_F(AServiceThatIsNotInitialized, DoesNothingWithAChange) {
  btTable.phone(0, 3, "Phone");

  service.updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_EQ(log.count("updateDeviceList [1] not initialized."), 1U);
  service.initialize();
  List phones;
  EXPECT_FALSE(service.getDeviceList(phones));
  btTable.phone(1, 4, "Tab");
  service.updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AServiceThatIsNotInitialized, TakesAFormat) {
  EXPECT_TRUE(service.setFormat([](const std::string& name, unsigned char) { return "<" + name + ">"; }));
  EXPECT_FALSE(service.setFormat(nullptr));

  EXPECT_EQ(log.count("failed."), 1U);
}

TEST_F(AServiceThatIsNotInitialized, MakesFuncInfoWhenNobodyHasAndAwaitsNothing) {
  RawSegment::remove("/FuncInfo");

  service.initialize();

  EXPECT_EQ(RawSegment("/FuncInfo").size(), 2108U);
  service.updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AServiceThatIsNotInitialized, AwaitsNothingWhereFuncInfoIsTooShort) {
  const RawSegment funcInfo("/FuncInfo", 512, 255);

  service.initialize();
  service.updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AServiceThatIsNotInitialized, AwaitsBluetoothWhereFuncInfoReachesToItsFlagAndNoFurther) {
  const RawSegment funcInfo("/FuncInfo", 513, 255);

  service.initialize();
  service.updateDeviceList(DEVICE_TYPE_AAP);

  List phones;
  EXPECT_FALSE(service.getDeviceList(phones));
}

TEST_F(AServiceThatIsNotInitialized, AwaitsNothingWhereFuncInfoCannotBeMapped) {
  RawSegment::remove("/FuncInfo");
  std::filesystem::create_directory("/dev/shm/FuncInfo");

  service.initialize();
  service.updateDeviceList(DEVICE_TYPE_CARPLAY);

  EXPECT_THAT(list(), IsEmpty());
}

class AnInitializedService : public AService {
 protected:
  AnInitializedService() { service.initialize(); }
};

TEST_F(AnInitializedService, HasNoListBeforeTheFirstReport) {
  List phones(3);
  phones[1].name = "kept";

  EXPECT_FALSE(service.getDeviceList(phones));

  ASSERT_THAT(phones, SizeIs(3));
  EXPECT_EQ(phones[1].name, "kept");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnInitializedService, StartsWithTheFirstReportOfAnySource) {
  btTable.phone(0, 3, "not read yet");
  aapTable.phone(0, "Phone", "id", 255, 1);

  service.updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(told(list()), ElementsAre("2 Phone btid=255 port=1 suffix=1"));
}

TEST_F(AnInitializedService, IgnoresOtherSourcesSilently) {
  aapTable.phone(0, "Phone", "id", 255, 1);
  List phones;

  service.updateDeviceList(static_cast<DeviceType>(3));
  service.updateDeviceList(static_cast<DeviceType>(-1));
  EXPECT_FALSE(service.getDeviceList(phones));
  service.updateDeviceList(DEVICE_TYPE_AAP);
  aapTable.clear(0);
  service.updateDeviceList(static_cast<DeviceType>(3));

  EXPECT_THAT(list(), SizeIs(1));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnInitializedService, DoesNotLookAtFuncInfoAgain) {
  funcInfoTable.awaitBluetooth();

  service.initialize();
  service.updateDeviceList(DEVICE_TYPE_CARPLAY);

  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AnInitializedService, KeepsItsFormatFromItsStartOn) {
  service.setFormat([](const std::string& name, unsigned char) { return "<" + name + ">"; });
  aapTable.phone(0, "Phone", "id", 255, 1);
  service.updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_TRUE(service.setFormat(nullptr));
  service.updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(told(list()), ElementsAre("2 <Phone> btid=255 port=1 suffix=1"));
}

class AServiceThatAwaitsBluetooth : public AService {
 protected:
  AServiceThatAwaitsBluetooth() {
    funcInfoTable.awaitBluetooth(128);
    service.initialize();
  }
};

TEST_F(AServiceThatAwaitsBluetooth, TakesOtherReportsInButStartsWithThatOfBluetooth) {
  cpTable.phone(0, 77, "CarPhone", 0);
  cpTable.connect(77);
  aapTable.phone(0, "Phone", "id", 255, 2);
  btTable.phone(0, 3, "Paired");
  List phones;
  service.updateDeviceList(DEVICE_TYPE_CARPLAY);
  EXPECT_FALSE(service.getDeviceList(phones));
  service.updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_FALSE(service.getDeviceList(phones));
  cpTable.clear(0);
  aapTable.clear(0);

  service.updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_THAT(told(list()), ElementsAre("1 CarPhone btid=255 port=1 suffix=1", "2 Phone btid=255 port=2 suffix=1",
                                        "0 Paired btid=3 port=0 suffix=1"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AServiceThatAwaitsBluetooth, StaysStartedAfterwards) {
  service.updateDeviceList(DEVICE_TYPE_BT);
  aapTable.phone(0, "Phone", "id", 255, 2);

  service.updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(list(), SizeIs(1));
}

// Of adapters and a provider that it is given, as whoever looks at a unit makes one.
class AServiceOfGivenParts : public AService {
 protected:
  static std::unique_ptr<LmSIntegratedDeviceListImpl> made(bool awaitsBluetooth) {
    return std::make_unique<LmSIntegratedDeviceListImpl>(
        std::make_unique<BtIntegratedDeviceList>(), std::make_unique<CpIntegratedDeviceList>(),
        std::make_unique<AapIntegratedDeviceList>(), std::make_unique<SuffixProvider>(), awaitsBluetooth);
  }
};

TEST_F(AServiceOfGivenParts, IsInitialisedAndStartsWithTheFirstReport) {
  const auto given = made(false);
  List phones;

  given->updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_TRUE(given->getDeviceList(phones));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AServiceOfGivenParts, AwaitsBluetoothIfItIsToldTo) {
  const auto given = made(true);
  List phones;

  given->updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_FALSE(given->getDeviceList(phones));
  given->updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_TRUE(given->getDeviceList(phones));
}

// --- The merge --------------------------------------------------------------------------------------------------

class AMergedList : public AnInitializedService {};

TEST_F(AMergedList, IsEmptyWhenAllSourcesAre) {
  refreshAll();

  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AMergedList, OfBluetoothAloneIsOrderedById) {
  btTable.phone(0, 9, "Nine");
  btTable.phone(4, 254, "Last");
  btTable.phone(9, 0, "Zero");

  refreshAll();

  EXPECT_THAT(told(list()), ElementsAre("0 Zero btid=0 port=0 suffix=1", "0 Nine btid=9 port=0 suffix=1",
                                        "0 Last btid=254 port=0 suffix=1"));
}

TEST_F(AMergedList, HasOneRecordForAPhoneThatAllSourcesKnow) {
  btTable.phone(0, 3, "Paired");
  cpTable.phone(0, 77, "CarPhone", 3);
  aapTable.phone(0, "DroidPhone", "id", 3, 2, 5);

  refreshAll();

  const List phones = list();
  ASSERT_THAT(told(phones), ElementsAre("2 DroidPhone btid=3 port=2 suffix=1"));
  EXPECT_EQ(phones[0].session, 5);
  EXPECT_EQ(phones[0].aapId, "id");
  EXPECT_EQ(phones[0].cpDeviceId, 0U);
  EXPECT_EQ(phones[0].btDevice.id, 3);
  EXPECT_STREQ(phones[0].btDevice.name, "Paired");
  EXPECT_EQ(phones[0].cpDevice.identifier, 77U);
  EXPECT_STREQ(phones[0].cpDevice.name, "CarPhone");
  EXPECT_STREQ(phones[0].aapDevice.name, "DroidPhone");
  EXPECT_STREQ(phones[0].aapDevice.id, "id");
}

TEST_F(AMergedList, TakesAllOfCarPlaysHeaderForAPairedPhone) {
  btTable.phone(0, 3, "Paired");
  cpTable.phone(5, 77, "CarPhone", 3);
  cpTable.put8(1800 + 296 * 5 + 266, 9);
  cpTable.connect(77);

  refreshAll();

  const List phones = list();
  ASSERT_THAT(told(phones), ElementsAre("1 CarPhone btid=3 port=1 suffix=1"));
  EXPECT_EQ(phones[0].session, 9);
  EXPECT_EQ(phones[0].cpDeviceId, 77U);
  EXPECT_EQ(phones[0].aapId, "");
  EXPECT_STREQ(phones[0].btDevice.name, "Paired");
  EXPECT_EQ(phones[0].cpDevice.identifier, 77U);
  EXPECT_STREQ(phones[0].aapDevice.id, "");
}

TEST_F(AMergedList, DropsAPhoneOfAnUnknownPairingThatIsNotConnected) {
  aapTable.phone(0, "Phone", "id", 7, 0);
  cpTable.phone(0, 77, "CarPhone", 8);

  refreshAll();

  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AMergedList, ListsAConnectedPhoneOfAnUnknownPairingAsUsbAlone) {
  btTable.phone(0, 3, "Paired");
  aapTable.phone(0, "Phone", "id", 7, 2);

  refreshAll();

  const List phones = list();
  EXPECT_THAT(told(phones), ElementsAre("2 Phone btid=255 port=2 suffix=1", "0 Paired btid=3 port=0 suffix=1"));
  EXPECT_EQ(phones[0].aapDevice.btid, 7);
}

TEST_F(AMergedList, MergesIntoTheFirstOfTwoPairingsOfOneId) {
  btTable.phone(2, 3, "First");
  btTable.phone(6, 3, "Second");
  aapTable.phone(0, "Phone", "id", 3, 1);
  cpTable.phone(0, 77, "CarPhone", 3);

  refreshAll();

  const List phones = list();
  ASSERT_THAT(told(phones), ElementsAre("2 Phone btid=3 port=1 suffix=1", "0 Second btid=3 port=0 suffix=1"));
  EXPECT_STREQ(phones[0].btDevice.name, "First");
  EXPECT_EQ(phones[1].cpDevice.identifier, 0U);
}

TEST_F(AMergedList, LetsTheLaterOfTwoRecordsOfOneSourceWin) {
  btTable.phone(0, 3, "Paired");
  aapTable.phone(0, "Early", "id1", 3, 1);
  aapTable.phone(1, "Late", "id2", 3, 2);

  refreshAll();

  const List phones = list();
  ASSERT_THAT(told(phones), ElementsAre("2 Late btid=3 port=2 suffix=1"));
  EXPECT_STREQ(phones[0].aapDevice.id, "id2");
}

TEST_F(AMergedList, OrdersUsbPhonesByPortAsASignedNumber) {
  aapTable.phone(0, "Two", "id1", 255, 2);
  aapTable.phone(1, "One", "id2", 255, 1);
  aapTable.phone(2, "MinusOne", "id3", 7, -1);

  refreshAll();

  EXPECT_THAT(told(list()), ElementsAre("2 MinusOne btid=255 port=-1 suffix=1", "2 One btid=255 port=1 suffix=1",
                                        "2 Two btid=255 port=2 suffix=1"));
}

TEST_F(AMergedList, DropsAnUnpairedPhoneAtANegativePort) {
  aapTable.phone(0, "MinusOne", "id", 255, -1);

  refreshAll();

  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AMergedList, KeepsTheOrderOfTheSourcesAtOnePort) {
  cpTable.connect(CONNECTED_WITH_USB_FLAG);
  aapTable.phone(0, "KeptDroid", "id1", 8, 1);
  aapTable.phone(1, "Droid", "id2", 255, 1);
  cpTable.phone(0, 5, "KeptCar", 9);
  cpTable.phone(1, CONNECTED_WITH_USB_FLAG, "Car", 0);

  refreshAll();

  EXPECT_THAT(told(list()), ElementsAre("1 Car btid=255 port=1 suffix=1", "2 Droid btid=255 port=1 suffix=1",
                                        "1 KeptCar btid=255 port=1 suffix=1", "2 KeptDroid btid=255 port=1 suffix=1"));
}

TEST_F(AMergedList, KeepsTheOrderOfTheTableForManyPhonesAtOnePort) {
  std::vector<std::string> expected;
  for (unsigned slot = 0; slot < 12; ++slot) {
    const std::string name = std::string("Phone") + static_cast<char>('L' - static_cast<char>(slot));
    aapTable.phone(slot, name, name, slot % 2 == 0 ? 255 : 200 + slot, 1);
  }
  for (const char* name : {"L", "J", "H", "F", "D", "B", "K", "I", "G", "E", "C", "A"}) {
    expected.push_back(std::string("2 Phone") + name + " btid=255 port=1 suffix=1");
  }

  refreshAll();

  EXPECT_EQ(told(list()), expected);
}

TEST_F(AMergedList, KeepsTheOrderOfTheTablesForAsManyPhonesAsOnePortCanHave) {
  std::vector<std::string> expected;
  cpTable.connect(CONNECTED_WITH_USB_FLAG);
  for (unsigned slot = 0; slot < 11; ++slot) {
    const std::string name = std::string("Car") + static_cast<char>('a' + static_cast<char>(slot));
    cpTable.phone(slot, 100 + slot, name, 0);
    expected.push_back("1 " + name + " btid=255 port=1 suffix=1");
  }
  for (unsigned slot = 0; slot < 12; ++slot) {
    const std::string name = std::string("Droid") + static_cast<char>('a' + static_cast<char>(slot));
    aapTable.phone(slot, name, name, 255, 1);
    expected.push_back("2 " + name + " btid=255 port=1 suffix=1");
  }

  refreshAll();

  EXPECT_EQ(told(list()), expected);
}

// The table has no more than ten slots, and a sort that need not be stable leaves so few in place anyway: what needs a
// stable one is the part of the phones at one port.
TEST_F(AMergedList, KeepsTheOrderOfTheTableForPairingsOfOneId) {
  for (unsigned slot = 0; slot < 10; ++slot) {
    btTable.phone(slot, 3, std::string("Phone") + static_cast<char>('J' - static_cast<char>(slot)));
  }

  refreshAll();

  const List phones = list();
  ASSERT_THAT(phones, SizeIs(10));
  for (unsigned i = 0; i < 10; ++i) {
    EXPECT_EQ(phones[i].name, std::string("Phone") + static_cast<char>('J' - static_cast<char>(i)));
  }
}

TEST_F(AMergedList, HasTenNamelessPhonesOfABluetoothTableThatNobodyHasWritten) {
  for (unsigned slot = 0; slot < 10; ++slot) {
    btTable.phone(slot, 0, "");
  }

  refreshAll();

  const List phones = list();
  ASSERT_THAT(phones, SizeIs(10));
  EXPECT_EQ(phones[0].name, "");
  EXPECT_EQ(phones[9].name, " 10");
}

TEST_F(AMergedList, HoldsWhatTheSourcesReportedLast) {
  btTable.phone(0, 3, "Paired");
  aapTable.phone(0, "Phone", "id", 3, 1);
  refreshAll();
  btTable.clear(0);
  aapTable.clear(0);

  EXPECT_THAT(told(list()), ElementsAre("2 Phone btid=3 port=1 suffix=1"));
  service.updateDeviceList(DEVICE_TYPE_BT);
  EXPECT_THAT(told(list()), ElementsAre("2 Phone btid=255 port=1 suffix=1"));
  service.updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_THAT(list(), IsEmpty());
}

TEST_F(AMergedList, IsNumberedByTheOrderInWhichItStands) {
  btTable.phone(0, 4, "Phone");
  btTable.phone(1, 3, "Phone");
  aapTable.phone(0, "Phone", "id", 255, 2);

  refreshAll();

  // CarPlay and Android Auto were reported before Bluetooth was.
  EXPECT_THAT(told(list()), ElementsAre("2 Phone btid=255 port=2 suffix=1", "0 Phone 2 btid=3 port=0 suffix=2",
                                        "0 Phone 3 btid=4 port=0 suffix=3"));
}

TEST_F(AMergedList, IsNotNumberedByTheMergeItself) {
  btTable.phone(0, 3, "Phone");
  refreshAll();

  service.updateDeviceList();

  EXPECT_THAT(told(list()), ElementsAre("0 Phone btid=3 port=0 suffix=0"));
}

TEST_F(AMergedList, ReplacesWhateverTheCallersListHeld) {
  btTable.phone(0, 3, "Phone");
  refreshAll();
  List phones(7);

  EXPECT_TRUE(service.getDeviceList(phones));

  EXPECT_THAT(told(phones), ElementsAre("0 Phone btid=3 port=0 suffix=1"));
}

// --- Folding one list into another ------------------------------------------------------------------------------

class Folding : public AService {
 protected:
  void fold(const List& source) { service.aggregateDeviceList(target, source, unmatched); }

  List target;
  List unmatched;
};

TEST_F(Folding, IntoAnEmptyListMatchesNothing) {
  fold({record(DEVICE_TYPE_AAP, "Phone", 3)});

  EXPECT_THAT(target, IsEmpty());
  EXPECT_THAT(told(unmatched), ElementsAre("2 Phone btid=3 port=0 suffix=0"));
}

TEST_F(Folding, NeverMatchesAPhoneThatIsNotPaired) {
  target = {record(DEVICE_TYPE_BT, "Paired", 255)};

  fold({record(DEVICE_TYPE_AAP, "Phone", 255)});

  EXPECT_EQ(target[0].name, "Paired");
  EXPECT_THAT(unmatched, SizeIs(1));
}

TEST_F(Folding, AppendsToWhatIsUnmatchedAlready) {
  unmatched = {record(DEVICE_TYPE_CARPLAY, "Early", 1)};

  fold({record(DEVICE_TYPE_AAP, "Late", 2), record(DEVICE_TYPE_AAP, "Later", 3)});

  EXPECT_THAT(told(unmatched), ElementsAre("1 Early btid=1 port=0 suffix=0", "2 Late btid=2 port=0 suffix=0",
                                           "2 Later btid=3 port=0 suffix=0"));
}

TEST_F(Folding, OverwritesEveryFieldOfTheHeader) {
  target = {record(DEVICE_TYPE_BT, "Paired", 3)};
  IntegratedDevice source = record(DEVICE_TYPE_CARPLAY, "Phone", 3);
  source.port = -4;
  source.session = 5;
  source.cpDeviceId = 0x123456789ABCDEF0;
  source.aapId = "id";
  source.suffix = 6;

  fold({source});

  EXPECT_EQ(target[0].type, DEVICE_TYPE_CARPLAY);
  EXPECT_EQ(target[0].name, "Phone");
  EXPECT_EQ(target[0].btid, 3);
  EXPECT_EQ(target[0].port, -4);
  EXPECT_EQ(target[0].session, 5);
  EXPECT_EQ(target[0].cpDeviceId, 0x123456789ABCDEF0U);
  EXPECT_EQ(target[0].aapId, "id");
  EXPECT_EQ(target[0].suffix, 6);
  EXPECT_THAT(unmatched, IsEmpty());
}

TEST_F(Folding, TakesTheRecordOfTheSourcesOwnTypeAlone) {
  for (const DeviceType type : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP}) {
    SCOPED_TRACE(static_cast<int>(type));
    target = {record(DEVICE_TYPE_BT, "Paired", 3)};
    target[0].btDevice.info = 1;
    IntegratedDevice source = record(type, "Phone", 3);
    source.btDevice.info = 2;
    source.cpDevice.reserved2[25] = 2;
    source.aapDevice.port = 2;

    fold({source});

    EXPECT_EQ(target[0].btDevice.info, 1U);
    EXPECT_EQ(target[0].cpDevice.reserved2[25], type == DEVICE_TYPE_CARPLAY ? 2 : 0);
    EXPECT_EQ(target[0].aapDevice.port, type == DEVICE_TYPE_AAP ? 2 : 0);
  }
}

TEST_F(Folding, KeepsARecordThatWasFoldedInBefore) {
  target = {record(DEVICE_TYPE_BT, "Paired", 3)};
  IntegratedDevice carPhone = record(DEVICE_TYPE_CARPLAY, "Car", 3);
  carPhone.cpDevice.identifier = 77;
  IntegratedDevice droidPhone = record(DEVICE_TYPE_AAP, "Droid", 3);
  droidPhone.aapDevice.port = 2;

  fold({carPhone});
  fold({droidPhone});

  EXPECT_EQ(target[0].type, DEVICE_TYPE_AAP);
  EXPECT_EQ(target[0].cpDevice.identifier, 77U);
  EXPECT_EQ(target[0].aapDevice.port, 2);
}

TEST_F(Folding, GivesOnlyTheFirstMatchTheRecord) {
  target = {record(DEVICE_TYPE_BT, "Other", 2), record(DEVICE_TYPE_BT, "First", 3),
            record(DEVICE_TYPE_BT, "Second", 3)};

  fold({record(DEVICE_TYPE_AAP, "Phone", 3)});

  EXPECT_THAT(told(target), ElementsAre("0 Other btid=2 port=0 suffix=0", "2 Phone btid=3 port=0 suffix=0",
                                        "0 Second btid=3 port=0 suffix=0"));
}

}  // namespace
