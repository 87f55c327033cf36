// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Decisions.h"
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
using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// Writes down what it hears, a line each.
class Notes : public Decisions {
 public:
  Notes() { tell(this); }
  ~Notes() override { tell(nullptr); }
  Notes(const Notes&) = delete;
  Notes& operator=(const Notes&) = delete;

  /// What was heard since the last call.
  std::vector<std::string> take() {
    std::vector<std::string> lines;
    lines.swap(mLines);
    return lines;
  }

  void leftOut(const IntegratedDevice& device) override { add("left out " + device.name); }
  void mergingBegins() override { add("merging"); }
  void folded(const IntegratedDevice& device, const IntegratedDevice& pairing) override {
    add("folded " + device.name + " into " + pairing.name + " of " + std::to_string(pairing.btid));
  }
  void pairingUnknown(const IntegratedDevice& device, bool isListed) override {
    add("unknown " + device.name + " of " + std::to_string(device.btid) + (isListed ? ", listed" : ", not listed"));
  }
  void numbersLoaded(std::size_t entries, bool areForgotten) override {
    add("loaded " + std::to_string(entries) + (areForgotten ? ", forgotten" : ""));
  }
  void numberingBegins() override { add("numbering"); }
  void numberKept(std::size_t entry, const DeviceInfo& old, Key key) override {
    add(std::to_string(entry) + " keeps " + std::to_string(old.suffix) + " by " + wordOf(key));
  }
  void renamed(std::size_t entry, const DeviceInfo& old, Key key) override {
    add(std::to_string(entry) + " was " + old.name + " by " + wordOf(key));
  }
  void numberTaken(std::size_t entry, unsigned number, const std::string& name) override {
    add(std::to_string(entry) + " cannot have " + std::to_string(number) + ": " + name);
  }
  void numberGiven(std::size_t entry, unsigned number) override {
    add(std::to_string(entry) + " gets " + std::to_string(number));
  }
  void noNumberLeft(std::size_t entry) override { add(std::to_string(entry) + " gets none"); }

 private:
  static std::string wordOf(Key key) { return key == Key::BTID ? "btid" : "port"; }
  void add(const std::string& line) { mLines.push_back(line); }

  std::vector<std::string> mLines;
};

// --- Reading and merging ----------------------------------------------------------------------------------------

class AListener : public SegmentTest {
 protected:
  AListener() { service.initialize(); }

  std::vector<std::string> heardAt(LmSIntegratedDeviceListDef::DeviceType type) {
    Notes notes;
    service.updateDeviceList(type);
    return notes.take();
  }

  SaveFolder folder;
  LogCapture log;
  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceListImpl service;
};

TEST_F(AListener, HearsThatARecordIsLeftOut) {
  aapTable.phone(0, "Nowhere", "a", 255, 0);
  aapTable.phone(1, "Negative", "b", 255, -1);
  aapTable.phone(2, "Listed", "c", 255, 1);

  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP),
              ElementsAre("left out Nowhere", "left out Negative", "loaded 0", "merging", "numbering", "0 gets 1"));
}

TEST_F(AListener, HearsOnceThatTheNumbersAreLoaded) {
  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP), Contains("loaded 0"));
  Notes notes;

  service.start();
  service.tryStart(DEVICE_TYPE_AAP);

  EXPECT_THAT(notes.take(), IsEmpty());
}

TEST_F(AListener, HearsEachFoldInItsOrder) {
  btTable.phone(0, 3, "Paired");
  cpTable.phone(0, 7, "CarPlay", 3);
  aapTable.phone(0, "Android", "a", 3, 1);
  service.updateDeviceList(DEVICE_TYPE_BT);
  service.updateDeviceList(DEVICE_TYPE_CARPLAY);

  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP),
              ElementsAre("merging", "folded CarPlay into Paired of 3", "folded Android into CarPlay of 3", "numbering",
                          "0 was CarPlay by btid", "0 gets 1"));
}

TEST_F(AListener, HearsThatOnlyTheFirstPairingOfAnIdIsMergedInto) {
  btTable.phone(0, 3, "First");
  btTable.phone(1, 3, "Second");
  cpTable.phone(0, 7, "CarPlay", 3);
  service.updateDeviceList(DEVICE_TYPE_BT);

  const auto heard = heardAt(DEVICE_TYPE_CARPLAY);

  EXPECT_THAT(heard, Contains("folded CarPlay into First of 3"));
  EXPECT_THAT(heard, Not(Contains("folded CarPlay into Second of 3")));
}

TEST_F(AListener, HearsOfAPairingThatBluetoothDoesNotKnow) {
  aapTable.phone(0, "At a port", "a", 9, 2);
  aapTable.phone(1, "Nowhere", "b", 8, 0);

  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP), ElementsAre("loaded 0", "merging", "unknown At a port of 9, listed",
                                                    "unknown Nowhere of 8, not listed", "numbering", "0 gets 1"));
}

TEST_F(AListener, HearsOfTheMergeAgainAtEveryRefresh) {
  btTable.phone(0, 3, "Phone");
  cpTable.phone(0, 7, "Phone", 3);
  service.updateDeviceList(DEVICE_TYPE_BT);
  service.updateDeviceList(DEVICE_TYPE_CARPLAY);

  const auto expected = {"merging", "folded Phone into Phone of 3", "numbering", "0 keeps 1 by btid"};
  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP), testing::ElementsAreArray(expected));
  EXPECT_THAT(heardAt(DEVICE_TYPE_AAP), testing::ElementsAreArray(expected));
}

TEST_F(AListener, HearsOfNoNumbersBeforeTheListIsStarted) {
  funcInfoTable.awaitBluetooth();
  LmSIntegratedDeviceListImpl waiting;
  waiting.initialize();
  cpTable.phone(0, 7, "Phone", 3);
  Notes notes;

  waiting.updateDeviceList(DEVICE_TYPE_CARPLAY);
  const auto before = notes.take();
  waiting.updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_THAT(before, Not(Contains("numbering")));
  EXPECT_THAT(notes.take(), Contains("loaded 0"));
}

TEST_F(AListener, ChangesNoDecision) {
  const auto listOf = [&] {
    LmSIntegratedDeviceListImpl list;
    list.initialize();
    for (const auto type : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP}) {
      list.updateDeviceList(type);
    }
    std::vector<IntegratedDevice> phones;
    EXPECT_TRUE(list.getDeviceList(phones));
    std::vector<std::string> names;
    for (const IntegratedDevice& phone : phones) {
      names.push_back(phone.name + ' ' + std::to_string(phone.suffix) + ' ' + std::to_string(phone.btid));
    }
    return names;
  };
  btTable.phone(0, 3, "Phone");
  btTable.phone(1, 4, "Phone");
  cpTable.phone(0, 7, "Phone", 3);
  aapTable.phone(0, "Phone", "a", 9, 2);
  aapTable.phone(1, "Phone", "b", 255, 0);

  const auto unheard = listOf();
  std::vector<std::string> heard;
  {
    Notes notes;
    heard = listOf();
    EXPECT_THAT(notes.take(), Not(IsEmpty()));
  }

  EXPECT_EQ(heard, unheard);
  EXPECT_EQ(unheard.size(), 3U);
}

TEST_F(AListener, HearsNothingAfterItWasToldOff) {
  btTable.phone(0, 3, "Phone");
  Notes notes;
  Decisions::tell(nullptr);

  service.updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_THAT(notes.take(), IsEmpty());
}

// --- Numbering --------------------------------------------------------------------------------------------------

IntegratedDevice phone(const std::string& name, std::uint8_t btid, std::int32_t port = 0) {
  IntegratedDevice device;
  device.name = name;
  device.btid = btid;
  device.port = port;
  return device;
}

DeviceInfo saved(const std::string& name, std::uint8_t btid, std::uint8_t suffix) {
  IntegratedDevice entry = phone(name, btid);
  entry.suffix = suffix;
  return entry;
}

class AListenerToNumbers : public testing::Test {
 protected:
  std::vector<std::string> heardOf(std::vector<IntegratedDevice> list) {
    provider.appendSuffix(list);
    return notes.take();
  }

  LogCapture log;
  Notes notes;
  SuffixProvider provider{std::vector<DeviceInfo>{saved("Phone", 4, 2)}};
};

TEST_F(AListenerToNumbers, HearsHowManyWereSaved) {
  provider.start();

  EXPECT_THAT(notes.take(), ElementsAre("loaded 1"));
}

TEST_F(AListenerToNumbers, HearsThatSavedNumbersAreForgotten) {
  SuffixProvider alike({saved("Phone", 3, 1), saved("Phone", 4, 1)});

  alike.start();

  EXPECT_THAT(notes.take(), ElementsAre("loaded 2, forgotten"));
}

TEST_F(AListenerToNumbers, HearsWhichAreKeptGivenAndTaken) {
  provider.start();
  notes.take();

  EXPECT_THAT(heardOf({phone("Phone", 3), phone("Phone", 4), phone("Phone", 5)}),
              ElementsAre("numbering", "1 keeps 2 by btid", "0 gets 1", "2 cannot have 1: Phone",
                          "2 cannot have 2: Phone 2", "2 gets 3"));
}

TEST_F(AListenerToNumbers, HearsThatAnotherNameIsInTheWay) {
  provider.start();
  notes.take();

  // What is called "Tab 2" comes to the same as the second "Tab".
  EXPECT_THAT(
      heardOf({phone("Tab 2", 1), phone("Tab", 2), phone("Tab", 3)}),
      ElementsAre("numbering", "0 gets 1", "1 gets 1", "2 cannot have 1: Tab", "2 cannot have 2: Tab 2", "2 gets 3"));
}

TEST_F(AListenerToNumbers, HearsThatARenamedPhoneKeepsNothing) {
  provider.start();
  notes.take();

  EXPECT_THAT(heardOf({phone("Renamed", 4)}), ElementsAre("numbering", "0 was Phone by btid", "0 gets 1"));
}

TEST_F(AListenerToNumbers, HearsByWhichKeyANumberIsKept) {
  provider.start();
  heardOf({phone("Phone", 255, 2), phone("Phone", 255, 3)});

  EXPECT_THAT(heardOf({phone("Phone", 255, 3)}), ElementsAre("numbering", "0 keeps 2 by port"));
  EXPECT_THAT(heardOf({phone("Other", 255, 3)}), ElementsAre("numbering", "0 was Phone by port", "0 gets 1"));
}

TEST_F(AListenerToNumbers, HearsThatNoNumberIsLeft) {
  provider.setFormat([](const std::string&, unsigned char) { return std::string("always"); });
  provider.start();
  notes.take();

  EXPECT_THAT(heardOf({phone("A", 1), phone("B", 2)}), ElementsAre("numbering", "0 gets 1", "1 cannot have 1: always",
                                                                   "1 cannot have 2: always", "1 gets none"));
}

}  // namespace
