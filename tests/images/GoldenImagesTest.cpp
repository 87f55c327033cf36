// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "SysDataFactory.h"
#include "images/Golden.h"
#include "support/RawSegment.h"
#include "support/TempFolder.h"

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr int NONE = -1;

/// One phone as it has to be listed, and the slots from which its source records come.
struct Expected {
  std::int32_t type;
  std::string name;
  unsigned btid;
  std::int32_t port;
  unsigned session;
  std::uint64_t cpDeviceId;
  std::string aapId;
  unsigned suffix;
  int btSlot;
  int cpSlot;
  int aapSlot;
};

// Attached ones by port, then the paired ones by Bluetooth id. Where sources were merged, the later one's header
// stands: Android Auto's before CarPlay's before Bluetooth's.
std::vector<Expected> expectedList() {
  using golden::run;
  return {
      {2, "Phone 2", 255, -5, 2, 0, "unknown pairing, attached", 2, NONE, NONE, 4},
      {1, "Current", 255, 1, 12, 0x00000500DEADBEEF, "", 1, NONE, 4, NONE},
      {2, run('a', 256), 255, 2, 255, 0, run('B', 256), 1, NONE, NONE, 2},
      {2, "", 255, 4, 0, 0, "1", 1, NONE, NONE, 9},
      {2, "Phone 3", 255, 5, 9, 0, "last", 3, NONE, NONE, 11},
      {2, "\x80\xFF Auto 7", 0, 2147483647, 3, 0, "\xC3\xA9", 7, 5, NONE, 8},
      {2, "Phone 5", 1, -1, 7, 0, "x", 5, 9, NONE, 3},
      {0, run('A', 80), 2, 0, 0, 0, "", 1, 8, NONE, NONE},
      {2, "Phone 4", 3, 1, 1, 0, "aap-1", 4, 1, 0, 0},
      {0, "Phone", 5, 0, 0, 0, "", 1, 3, NONE, NONE},
      {0, "T\xE9l\xE9phone", 7, 0, 0, 0, "", 1, 6, NONE, NONE},
      {1, run('k', 255) + " 2", 9, 0, 1, 0xFFFFFFFFFFFFFFFF, "", 2, 0, 1, NONE},
      {1, "Phone 2 2", 254, 0, 200, 0x0102030405060708, "", 2, 4, 10, NONE},
  };
}

template <class Field>
std::string raw(const Field& field) {
  return std::string(reinterpret_cast<const char*>(&field), sizeof(field));
}

void expectHeader(const IntegratedDevice& device, const Expected& expected) {
  EXPECT_EQ(static_cast<std::int32_t>(device.type), expected.type);
  EXPECT_EQ(device.name, expected.name);
  EXPECT_EQ(unsigned{device.btid}, expected.btid);
  EXPECT_EQ(device.port, expected.port);
  EXPECT_EQ(unsigned{device.session}, expected.session);
  EXPECT_EQ(device.cpDeviceId, expected.cpDeviceId);
  EXPECT_EQ(device.aapId, expected.aapId);
  EXPECT_EQ(unsigned{device.suffix}, expected.suffix);
}

// The bytes of one slot, or those of a record that no source filled.
std::string btSlot(int slot) {
  if (slot != NONE) {
    return golden::pairings().substr(4 + 112 * static_cast<std::size_t>(slot), 112);
  }
  std::string bytes(112, '\0');
  bytes[4] = '\xFF';
  bytes[108] = 1;
  return bytes;
}

std::string aapSlot(int slot) {
  if (slot != NONE) {
    return golden::autoPhones().substr(4 + 524 * static_cast<std::size_t>(slot), 524);
  }
  std::string bytes(524, '\0');
  bytes[519] = '\xFF';
  return bytes;
}

std::string cpSlot(int slot) {
  return slot == NONE ? std::string(296, '\0')
                      : golden::carPlay().substr(1800 + 296 * static_cast<std::size_t>(slot), 296);
}

void expectRecords(const IntegratedDevice& device, const Expected& expected) {
  const std::string bt = btSlot(expected.btSlot);
  EXPECT_EQ(raw(device.btDevice.id), bt.substr(4, 1));
  EXPECT_EQ(raw(device.btDevice.name), bt.substr(5, 81));
  EXPECT_EQ(raw(device.btDevice.address), bt.substr(86, 18));
  EXPECT_EQ(raw(device.btDevice.info), bt.substr(104, 4));
  EXPECT_EQ(raw(device.btDevice.flag1), bt.substr(108, 1));
  EXPECT_EQ(raw(device.btDevice.flag2), bt.substr(109, 1));

  EXPECT_EQ(raw(device.cpDevice), cpSlot(expected.cpSlot));

  const std::string aap = aapSlot(expected.aapSlot);
  EXPECT_EQ(raw(device.aapDevice.session), aap.substr(4, 1));
  EXPECT_EQ(raw(device.aapDevice.name), aap.substr(5, 257));
  EXPECT_EQ(raw(device.aapDevice.id), aap.substr(262, 257));
  EXPECT_EQ(raw(device.aapDevice.btid), aap.substr(519, 1));
  EXPECT_EQ(raw(device.aapDevice.port), aap.substr(520, 4));
}

void expectList(const std::vector<IntegratedDevice>& list) {
  const std::vector<Expected> expected = expectedList();
  ASSERT_EQ(list.size(), expected.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    SCOPED_TRACE("phone " + std::to_string(i));
    expectHeader(list[i], expected[i]);
    expectRecords(list[i], expected[i]);
  }
}

/// A unit whose services have published and whose last journey has left numbers.
class TheUnitsImages : public ::testing::Test {
 protected:
  TheUnitsImages() {
    setenv("LM_SAVE_FILE_DIR", saveFolder.path().c_str(), 1);
    saveFolder.put("IDLSuffix.ini", golden::savedBefore());
    list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
  }

  ~TheUnitsImages() override {
    LmSIntegratedDeviceList::destroy();
    SysDataFactory::destroy();  // it remembers the folder
    unsetenv("LM_SAVE_FILE_DIR");
  }

  bool refresh(LmSIntegratedDeviceListDef::DeviceType type) {
    list->updateDeviceList(type);
    return list->getDeviceList(phones);
  }

  static const std::string& published(RawSegment& segment, const std::string& bytes) {
    segment.put(0, bytes);
    return bytes;
  }

  TempFolder saveFolder;
  RawSegment pairings{"/BtPairedDeviceList", 1124};
  RawSegment autoPhones{"/AapDeviceList", 6292};
  RawSegment carPlay{"/LmSCarplayResource", 13736};
  RawSegment functions{"/FuncInfo", 2108};
  const std::string pairingBytes = published(pairings, golden::pairings());
  const std::string autoPhoneBytes = published(autoPhones, golden::autoPhones());
  const std::string carPlayBytes = published(carPlay, golden::carPlay());
  const std::string functionBytes = published(functions, golden::functions());
  LmSIntegratedDeviceList* list = nullptr;
  std::vector<IntegratedDevice> phones;
};

TEST_F(TheUnitsImages, BecomeOneListAndOneSavedFile) {
  // Bluetooth is among the functions, so nothing is listed before it has reported.
  EXPECT_FALSE(refresh(DEVICE_TYPE_CARPLAY));
  EXPECT_FALSE(refresh(DEVICE_TYPE_AAP));
  ASSERT_TRUE(refresh(DEVICE_TYPE_BT));

  expectList(phones);
  EXPECT_EQ(saveFolder.contents("IDLSuffix.ini"), golden::savedAfter());
}

TEST_F(TheUnitsImages, GiveTheSameAtEveryLaterRefresh) {
  refresh(DEVICE_TYPE_CARPLAY);
  refresh(DEVICE_TYPE_AAP);

  for (const auto type : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP, DEVICE_TYPE_BT}) {
    ASSERT_TRUE(refresh(type));
    expectList(phones);
    EXPECT_EQ(saveFolder.contents("IDLSuffix.ini"), golden::savedAfter());
  }
}

TEST_F(TheUnitsImages, StayAsTheyWere) {
  refresh(DEVICE_TYPE_CARPLAY);
  refresh(DEVICE_TYPE_AAP);
  ASSERT_TRUE(refresh(DEVICE_TYPE_BT));

  EXPECT_EQ(pairings.all(), pairingBytes);
  EXPECT_EQ(autoPhones.all(), autoPhoneBytes);
  EXPECT_EQ(carPlay.all(), carPlayBytes);
  EXPECT_EQ(functions.all(), functionBytes);
}

}  // namespace
