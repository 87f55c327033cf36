// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "idlctl/Invocation.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "support/SaveFolder.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using testing::HasSubstr;

/// A table that a stand-in has left, for another one that is told something.
class AStandIn : public testing::Test {
 protected:
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static std::string table(const std::string& segment) { return contentOf("/dev/shm/" + segment); }

  std::string fileOf(const std::string& content) const {
    std::string path = mFolder.path() / "input";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    return path;
  }

  static Invocation publish(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "publish");
    arguments.insert(arguments.end(), {"--timeout", "0ms"});
    return Invocation(arguments);
  }

  // What is wrong with it is said, and no table has changed.
  static void expectRefused(const std::vector<std::string>& arguments, const std::string& why) {
    BtPublisher bluetooth;
    bluetooth.initialise();
    bluetooth.put(7, {3, "Phone", ""});
    CpPublisher carPlay;
    carPlay.initialise();
    carPlay.put(7, {1001, "Phone"});
    AapPublisher androidAuto;
    androidAuto.initialise();
    androidAuto.put(7, {"id", "Phone"});
    const std::string before = table(BtPublisher::SEGMENT) + table(CpPublisher::SEGMENT) + table(AapPublisher::SEGMENT);

    const Invocation refused = publish(arguments);

    EXPECT_EQ(refused.exitCode(), 2) << testing::PrintToString(arguments);
    EXPECT_THAT(refused.err(), HasSubstr(why));
    EXPECT_EQ(table(BtPublisher::SEGMENT) + table(CpPublisher::SEGMENT) + table(AapPublisher::SEGMENT), before)
        << testing::PrintToString(arguments);
  }

  const SaveFolder mFolder;
};

TEST_F(AStandIn, LeavesTheTableAsItIsWhereItIsToldWhatCannotBe) {
  std::vector<std::string> eleven = {"bt"};
  for (int i = 0; i < 11; ++i) {
    eleven.insert(eleven.end(), {"--phone", "name=A"});
  }

  expectRefused(eleven, "room for 10 phones");
  expectRefused({"bt", "--current", "3"}, "CarPlay's alone");
  expectRefused({"aap", "--current", "3"}, "CarPlay's alone");
  expectRefused({"cp", "--current", "-1"}, "no number");
  expectRefused({"cp", "--current", "x"}, "no number");
  expectRefused({"bt", "--phone", "port=1"}, "no field 'port'");
}

TEST_F(AStandIn, LeavesTheTableAsItIsWhereAFileSaysWhatCannotBe) {
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 99, "id": 3}]})")}, "no slot 99");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": -1, "id": 3}]})")}, "no slot -1");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 10, "occupied": false}]})")}, "no slot 10");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 3}, {"slot": 1, "id": 4}]})")}, "twice");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 255}]})")}, "slot 1:");
  expectRefused({"cp", "--file", fileOf(R"({"slots": [{"slot": 1}]})")}, "slot 1:");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 3, "name": "A\u0000B"}]})")}, "NUL");
  expectRefused({"bt", "--file", fileOf(R"({"slots": 3})")}, "input");
}

TEST_F(AStandIn, WritesOnlyTheBytesOfAWholeSegment) {
  expectRefused({"bt", "--file", fileOf("{\"slots\":\n  [}")}, "line 2, column 4");
  expectRefused({"bt", "--file", fileOf("")}, "neither the 1124 bytes of BtPairedDeviceList nor JSON");
  expectRefused({"bt", "--file", fileOf("[]")}, "no table");
  expectRefused({"bt", "--file", fileOf("{}")}, "slots");
  expectRefused({"bt", "--file", fileOf(std::string(1123, '\x01'))}, "neither");
  AapPublisher().initialise();
  expectRefused({"bt", "--file", fileOf(table(AapPublisher::SEGMENT))}, "neither");
  expectRefused({"bt", "--file", fileOf(std::string(1124, '\x01')), "--phone", "id=3"}, "--phone");
  expectRefused({"bt", "--file", fileOf(R"({"source": "aap", "slots": []})")}, "not of bt");
}

TEST_F(AStandIn, WritesTheBytesOfItsSegmentAsTheyAre) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(2, {3, "Phone", ""});
  const std::string before = table(BtPublisher::SEGMENT);
  bluetooth.clear(2);

  EXPECT_EQ(publish({"bt", "--file", fileOf(before)}).exitCode(), 0);

  EXPECT_EQ(table(BtPublisher::SEGMENT), before);
}

// A whole table by way of its dump: other bytes in between, the same ones afterwards.
TEST_F(AStandIn, WritesWhatDumpHasToldOfATable) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(9, {3, "A\xFF\xC3", "\xE2\x82", 77, 0, 2, 0xA1A2A3A4});
  bluetooth.put(0, {0, "Z\u00fc", "", 4294967295U, 255, 255, 1});
  CpPublisher carPlay;
  carPlay.initialise();
  carPlay.put(10, {0xFFFFFFFFFFFFFFFFU, "A\xFF\xC3", 3, true, 200});
  carPlay.setCurrentPhone(0xFFFFFFFFFFFFFFFFU);
  AapPublisher androidAuto;
  androidAuto.initialise();
  androidAuto.put(11, {"id\x80", "A\xFF\xC3", 5, 3, -1, 0xA1A2A3A4});

  for (const auto& [source, segment] : {std::pair{"bt", BtPublisher::SEGMENT}, std::pair{"cp", CpPublisher::SEGMENT},
                                        std::pair{"aap", AapPublisher::SEGMENT}}) {
    const std::string before = table(segment);
    const std::string dumped = Invocation({"dump", source, "--json"}).out();
    EXPECT_THAT(dumped, HasSubstr("\"nameHex\": \"41ffc3\""));
    EXPECT_EQ(publish({source}).exitCode(), 0);
    EXPECT_NE(table(segment), before);

    EXPECT_EQ(publish({source, "--file", fileOf(dumped)}).exitCode(), 0);

    EXPECT_EQ(table(segment), before) << source;
  }
}

TEST_F(AStandIn, RefusesBytesThatAreNoHexadecimal) {
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 3, "nameHex": "4"}]})")}, "nameHex");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 3, "nameHex": "4x"}]})")}, "nameHex");
  expectRefused({"bt", "--file", fileOf(R"({"slots": [{"slot": 1, "id": 3, "nameHex": "4100"}]})")}, "NUL");
  expectRefused({"cp", "--file", fileOf(R"({"currentPhone": "-1", "slots": []})")}, "currentPhone");
}

TEST_F(AStandIn, ReadsNumbersAsScenariosDo) {
  EXPECT_EQ(publish({"bt", "--phone", "id=010"}).exitCode(), 0);
  EXPECT_EQ(BtPublisher().phones().at(0).id, 10);
  EXPECT_EQ(publish({"cp", "--phone", "identifier=0x10", "--current", "0x10"}).exitCode(), 0);
  EXPECT_EQ(CpPublisher().phones().at(0).identifier, 16U);
  EXPECT_EQ(CpPublisher().currentPhone(), 16U);
  EXPECT_EQ(publish({"aap", "--phone", "port=-2147483648"}).exitCode(), 0);
  EXPECT_EQ(AapPublisher().phones().at(0).port, -2147483647 - 1);

  expectRefused({"cp", "--phone", "identifier=\" -1\""}, "no number");
  expectRefused({"cp", "--phone", "identifier=-1"}, "no number");
  expectRefused({"bt", "--phone", "id=+3"}, "no number");
  expectRefused({"bt", "--phone", "info=4294967296"}, "no number");
  expectRefused({"aap", "--phone", "port=2147483648"}, "no number");
}

TEST_F(AStandIn, ListsNoPhoneThatWouldLeaveItsSlotFree) {
  expectRefused({"bt", "--phone", "id=255"}, "slot free");
  expectRefused({"cp", "--phone", "identifier=0"}, "slot free");
  expectRefused({"aap", "--phone", "id=\"\""}, "slot free");
}

}  // namespace
