// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "idlctl/Invocation.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "support/SaveFolder.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using idl::bench::FuncInfoPublisher;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::uint64_t USB_ATTACHED = std::uint64_t{1} << 41;

class List : public testing::Test {
 protected:
  static std::vector<std::string> names(const nlohmann::json& object) {
    std::vector<std::string> found;
    for (const auto& device : object.at("devices")) {
      found.push_back(device.at("name"));
    }
    return found;
  }

  SaveFolder mFolder;
};

TEST_F(List, OfAnEmptyMachineIsEmptyAndSaysWhatIsAbsent) {
  const Invocation list({"list"});

  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(list.out(), "");
  EXPECT_THAT(list.err(), HasSubstr("bt (BtPairedDeviceList): absent"));
  EXPECT_THAT(list.err(), HasSubstr("no phones"));
}

TEST_F(List, HasTheFieldsUnderTheRecordsOwnNames) {
  CpPublisher carPlay;
  carPlay.initialise();
  carPlay.put(0, {USB_ATTACHED + 5, "iPhone", 0, false, 4});
  carPlay.setCurrentPhone(USB_ATTACHED + 5);

  const Invocation list({"list", "--json"});

  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(list.json().at("schema"), 1);
  EXPECT_EQ(list.json().at("started"), true);
  EXPECT_EQ(list.json().at("devices"), nlohmann::json::parse(R"([{"type": "cp", "name": "iPhone", "btid": 255,
      "port": 1, "session": 4, "cpDeviceId": "2199023255557", "aapId": "", "suffix": 1}])"));
}

TEST_F(List, IsThatOfAClientThatStartsNow) {
  BtPublisher bluetooth;
  CpPublisher carPlay;
  AapPublisher androidAuto;
  bluetooth.initialise();
  carPlay.initialise();
  androidAuto.initialise();
  bluetooth.put(0, {3, "Phone", "00:00:5E:00:53:03"});
  bluetooth.put(1, {1, "Phone", "00:00:5E:00:53:01"});
  carPlay.put(2, {7, "Phone", 3});
  androidAuto.put(5, {"id", "Phone", 0, 255, 2});

  const Invocation listed({"list", "--json"});

  auto* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  for (const auto type : {LmSIntegratedDeviceListDef::DEVICE_TYPE_BT, LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY,
                          LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP}) {
    list->updateDeviceList(type);
  }
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
  ASSERT_TRUE(list->getDeviceList(phones));
  std::vector<std::string> expected;
  for (const auto& phone : phones) {
    expected.push_back(phone.name);
  }
  EXPECT_EQ(expected.size(), 3U);
  EXPECT_EQ(names(listed.json()), expected);
  LmSIntegratedDeviceList::destroy();
}

TEST_F(List, StartsWithTheSavedNumbers) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  bluetooth.put(1, {4, "Phone", ""});
  auto* client = LmSIntegratedDeviceList::getInstance();
  client->initialize();
  client->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  bluetooth.clear(0);
  client->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);  // saves "Phone 2" of 4 alone
  LmSIntegratedDeviceList::destroy();
  bluetooth.put(0, {3, "Phone", ""});

  const Invocation explained({"list", "--explain"});

  EXPECT_THAT(names(Invocation({"list", "--json"}).json()), ElementsAre("Phone", "Phone 2"));
  EXPECT_THAT(explained.out(), HasSubstr("number 2 kept from the saved table: the same name and Bluetooth id"));
  EXPECT_THAT(explained.out(), HasSubstr("number 1, the first that is free"));
}

TEST_F(List, IsNotStartedWhereBluetoothIsAwaitedAndAbsent) {
  FuncInfoPublisher().setBluetooth(true);
  CpPublisher carPlay;
  carPlay.initialise();
  carPlay.put(0, {7, "Phone", 3});

  const Invocation list({"list", "--json"});

  EXPECT_EQ(list.json().at("started"), false);
  EXPECT_THAT(list.json().at("devices"), IsEmpty());
}

TEST_F(List, ExplainsWhatWasMergedFromWhere) {
  BtPublisher bluetooth;
  AapPublisher androidAuto;
  bluetooth.initialise();
  androidAuto.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  androidAuto.put(0, {"id", "My Phone", 0, 3, 0});

  const Invocation list({"list", "--explain"});

  EXPECT_THAT(list.out(), HasSubstr("merged by the Bluetooth id 3 from Bluetooth and Android Auto; name, btid, port, "
                                    "session and identifiers from Android Auto, the last"));
}

TEST_F(List, ExplainsWhatIsNotListed) {
  AapPublisher androidAuto;
  androidAuto.initialise();
  androidAuto.put(0, {"a", "Unknown", 0, 9, 0});
  androidAuto.put(1, {"b", "Nowhere", 0, 255, 0});
  androidAuto.put(2, {"c", "Claimant", 0, 9, 2});

  const Invocation list({"list", "--explain"});

  EXPECT_THAT(list.out(), HasSubstr("Not listed: \"Unknown\" of Android Auto: it claims the Bluetooth id 9, which "
                                    "Bluetooth does not know, and has no USB port"));
  EXPECT_THAT(list.out(),
              HasSubstr("Not listed: \"Nowhere\" of Android Auto: neither paired nor at a positive USB port"));
  EXPECT_THAT(list.out(), HasSubstr("claims the Bluetooth id 9, which Bluetooth does not know: listed as connected by "
                                    "USB alone"));
}

TEST_F(List, ExplainsBecauseOfWhomANumberIsNotFree) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  bluetooth.put(1, {4, "Phone", ""});

  const Invocation list({"list", "--explain"});

  EXPECT_THAT(list.out(), HasSubstr("number 2, the first that is free: 1 would show \"Phone\" as row 1 does"));
}

TEST_F(List, ShowsHostileNamesEscaped) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "\x1b[2Jgone\xff\n", ""});

  const Invocation list({"list"});
  const Invocation json({"list", "--json"});

  EXPECT_THAT(list.out(), HasSubstr(R"("\x1b[2Jgone\xff\n")"));
  EXPECT_EQ(list.out().find('\x1b'), std::string::npos);
  EXPECT_EQ(json.json().at("devices").at(0).at("nameHex"), "1b5b324a676f6e65ff0a");
}

}  // namespace
