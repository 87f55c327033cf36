// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "idlctl/Invocation.h"
#include "idlctl/RunningIdlctl.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "support/ChildProcess.h"
#include "support/SaveFolder.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using idl::bench::FuncInfoPublisher;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Idlctl : public testing::Test {
 protected:
  static std::vector<std::string> findings(const nlohmann::json& object) {
    std::vector<std::string> ids;
    for (const auto& finding : object.at("findings")) {
      ids.push_back(finding.at("id"));
    }
    return ids;
  }

  // A saved table as a client leaves it: "Phone" of 3, "Phone 2" of 4.
  static void saveTwoPhones() {
    BtPublisher bluetooth;
    bluetooth.initialise();
    bluetooth.put(0, {3, "Phone", ""});
    bluetooth.put(1, {4, "Phone", ""});
    LmSIntegratedDeviceList::getInstance()->initialize();
    LmSIntegratedDeviceList::getInstance()->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
    LmSIntegratedDeviceList::destroy();
  }

  std::string savedFile() const { return mFolder.path() / "IDLSuffix.ini"; }

  SaveFolder mFolder;
};

TEST_F(Idlctl, RefusesWhatItDoesNotKnow) {
  EXPECT_EQ(Invocation({}).exitCode(), 2);
  EXPECT_EQ(Invocation({"lost"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"list", "--wrong"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"wait"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"wait", "--count", "1", "--timeout", "5"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"completion", "fish"}).exitCode(), 2);
}

TEST_F(Idlctl, SaysWhichCommandMayHaveBeenMeant) {
  EXPECT_EQ(Invocation({"lst"}).err(), "idlctl: unknown command 'lst', did you mean 'list'?\n");
  EXPECT_EQ(Invocation({"--private", "lab", "wach", "-n", "1"}).err(),
            "idlctl: unknown command 'wach', did you mean 'watch'?\n");
  EXPECT_EQ(Invocation({"suffixes", "shw"}).err(), "idlctl: unknown command 'shw', did you mean 'show'?\n");
  EXPECT_EQ(Invocation({"\x1b[2J"}).err(), "idlctl: unknown command '\\x1b[2J'\n");
  EXPECT_THAT(Invocation({"suffixes"}).err(), HasSubstr("subcommand is required"));
  EXPECT_THAT(Invocation({"dump", "bt", "--as", "lst"}).err(), Not(HasSubstr("unknown command")));
}

TEST_F(Idlctl, HasHelpWithExamplesForEachCommand) {
  for (const char* command : {"list", "watch", "wait", "dump", "suffixes", "doctor", "completion"}) {
    const Invocation help({command, "--help"});

    EXPECT_EQ(help.exitCode(), 0) << command;
    EXPECT_THAT(help.out(), HasSubstr("Example")) << command;
  }
}

TEST_F(Idlctl, DumpsOnlyWhatIsThere) {
  EXPECT_EQ(Invocation({"dump", "bt"}).exitCode(), 3);
  EXPECT_EQ(Invocation({"dump", "/nowhere/at-all"}).exitCode(), 3);
}

TEST_F(Idlctl, DumpsEveryFieldOfATable) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(9, {3, "Phone", "00:00:5E:00:53:03", 77, 1, 2});

  const Invocation dump({"dump", "bt", "--json"});

  EXPECT_EQ(dump.exitCode(), 0);
  EXPECT_EQ(dump.json().at("slots").size(), 10U);
  EXPECT_EQ(dump.json().at("slots").at(9), nlohmann::json::parse(R"({"slot": 9, "occupied": true, "header": 0, "id": 3,
      "name": "Phone", "address": "00:00:5E:00:53:03", "info": 77, "flag1": 1, "flag2": 2})"));
  EXPECT_EQ(dump.json().at("slots").at(0).at("occupied"), false);
}

TEST_F(Idlctl, DumpsAFileByItsSize) {
  AapPublisher androidAuto;
  androidAuto.initialise();
  androidAuto.put(1, {"id", "Phone", 0, 255, -1});

  const Invocation dump({"dump", "/dev/shm/AapDeviceList", "--json"});

  EXPECT_EQ(dump.json().at("source"), "aap");
  EXPECT_EQ(dump.json().at("slots").at(1).at("port"), -1);
}

TEST_F(Idlctl, DumpsBytes) {
  BtPublisher().initialise();

  const Invocation dump({"dump", "bt", "--hex"});

  EXPECT_THAT(dump.out(), HasSubstr("000000  60 04 00 00 "));
}

TEST_F(Idlctl, TellsADamagedTableByItsExitCode) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  EXPECT_EQ(Invocation({"dump", "bt", "--check"}).exitCode(), 0);

  bluetooth.resize(500);

  EXPECT_EQ(Invocation({"dump", "bt"}).exitCode(), 4);
  EXPECT_THAT(findings(Invocation({"dump", "bt", "--check", "--json"}).json()), Contains("too-short"));
}

TEST_F(Idlctl, TellsASuspiciousTableWhenItIsAsked) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "A", ""});
  bluetooth.put(1, {3, "B", ""});

  EXPECT_EQ(Invocation({"dump", "bt"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"dump", "bt", "--check"}).exitCode(), 1);
  EXPECT_THAT(findings(Invocation({"dump", "bt", "--check", "--json"}).json()), ElementsAre("bt-id-twice"));
}

TEST_F(Idlctl, WaitsForAName) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  ChildProcess waiter([] { return Invocation({"wait", "--name", "iPh*", "--timeout", "60s"}).exitCode(); });

  bluetooth.put(0, {3, "iPhone", ""});

  EXPECT_EQ(waiter.wait(), 0);
}

TEST_F(Idlctl, WaitsForAllThatIsAskedForAtOnce) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "A", ""});
  bluetooth.put(1, {4, "B", ""});

  EXPECT_EQ(Invocation({"wait", "--name", "A", "--btid", "3", "--type", "bt", "--timeout", "1ms"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"wait", "--name", "A", "--btid", "4", "--timeout", "1ms"}).exitCode(), 124);
  EXPECT_EQ(Invocation({"wait", "--count", "2", "--timeout", "1ms"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"wait", "--name", "A", "--count", "0", "--timeout", "1ms"}).exitCode(), 124);
}

TEST_F(Idlctl, WaitsForASourceToComeAndGo) {
  EXPECT_EQ(Invocation({"wait", "--source", "bt", "--state", "absent", "--timeout", "1ms"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"wait", "--source", "bt", "--state", "present", "--timeout", "1ms"}).exitCode(), 124);
  BtPublisher().initialise();
  EXPECT_EQ(Invocation({"wait", "--source", "bt", "--state", "present", "--timeout", "1ms"}).exitCode(), 0);
}

TEST_F(Idlctl, WaitsForNoCountBelowNone) {
  EXPECT_EQ(Invocation({"wait", "--count", "-1", "--timeout", "1ms"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"wait", "--count", "1.5", "--timeout", "1ms"}).exitCode(), 2);
}

TEST_F(Idlctl, SaysOnceOfWhichTablesItCannotKnow) {
  std::filesystem::create_directory("/dev/shm/BtPairedDeviceList");

  const Invocation wait({"wait", "--count", "1", "--timeout", "200ms"});

  EXPECT_EQ(wait.exitCode(), 124);
  EXPECT_THAT(wait.err(), HasSubstr("bt (BtPairedDeviceList): "));
  EXPECT_EQ(wait.err().find("bt (Bt"), wait.err().rfind("bt (Bt"));
}

TEST_F(Idlctl, WatchesWhatHappens) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  RunningIdlctl watch({"watch", "--json", "-n", "1", "--interval", "5ms", "--timeout", "60s"});
  const auto initial = nlohmann::json::parse(watch.line());

  bluetooth.put(1, {1, "Phone", ""});
  const auto added = nlohmann::json::parse(watch.line());

  EXPECT_EQ(initial.at("event"), "initial");
  EXPECT_EQ(initial.at("devices").size(), 1U);
  EXPECT_EQ(added.at("event"), "added");
  EXPECT_EQ(added.at("row"), 1);
  EXPECT_EQ(added.at("device").at("name"), "Phone 2");
  EXPECT_EQ(watch.wait(), 0);
}

TEST_F(Idlctl, WatchesOnWhenASourceIsLost) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  RunningIdlctl watch({"watch", "--interval", "5ms"});
  watch.line();  // the heading
  EXPECT_THAT(watch.line(), HasSubstr("\"Phone\""));

  bluetooth.vanish();

  EXPECT_EQ(watch.line(), "source lost: bt");

  bluetooth.comeBack();

  EXPECT_EQ(watch.line(), "source back: bt");
  // A table that is just being made may be seen before it is written: as nameless phones, that then go.
  std::string line = watch.line();
  while (!line.empty() && line != "removed row 1: \"Phone\" type=bt btid=3 suffix=1") {
    line = watch.line();
  }
  EXPECT_NE(line, "");
  watch.signal(SIGTERM);
  EXPECT_EQ(watch.wait(), 0);
}

// Unpaired phones of one name at one port take each other's numbers at every pass, so a pass too many is seen.
TEST_F(Idlctl, NumbersNothingAnewWhereNoBytesChange) {
  AapPublisher androidAuto;
  androidAuto.initialise();
  androidAuto.put(0, {"a", "Phone", 0, 255, 2});
  androidAuto.put(1, {"b", "Phone", 0, 255, 2});
  CpPublisher carPlay;
  carPlay.initialise();
  RunningIdlctl watch({"watch", "--json", "--interval", "1ms"});
  EXPECT_EQ(nlohmann::json::parse(watch.line()).at("event"), "initial");

  for (int i = 0; i < 50; ++i) {
    androidAuto.put(0, {"a", "Phone", 0, 255, 2});
  }
  carPlay.vanish();

  EXPECT_EQ(nlohmann::json::parse(watch.line()).at("event"), "sourceLost");
  androidAuto.put(2, {"c", "Other", 0, 255, 3});
  EXPECT_NE(nlohmann::json::parse(watch.line()).at("event"), "sourceLost");
}

TEST_F(Idlctl, TellsNothingWhereNothingChanges) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  RunningIdlctl watch({"watch", "--json", "--interval", "1ms"});
  EXPECT_EQ(nlohmann::json::parse(watch.line()).at("event"), "initial");

  for (int i = 0; i < 20; ++i) {
    bluetooth.put(0, {3, "Phone", ""});  // the same bytes
  }
  bluetooth.put(0, {3, "Renamed", ""});

  const auto changed = nlohmann::json::parse(watch.line());
  EXPECT_EQ(changed.at("event"), "changed");
  EXPECT_EQ(changed.at("fields"), nlohmann::json({"name"}));
}

TEST_F(Idlctl, EndsItsWatchInOrderWhenItIsStopped) {
  BtPublisher().initialise();
  RunningIdlctl watch({"watch", "--json"});
  watch.line();  // it takes signals from before its first line on

  watch.signal(SIGINT);

  EXPECT_EQ(watch.wait(), 0);
}

TEST_F(Idlctl, ShowsTheSavedNumbers) {
  saveTwoPhones();

  const Invocation shown({"suffixes", "show", "--json"});

  EXPECT_EQ(shown.exitCode(), 0);
  EXPECT_EQ(shown.json().at("entries"),
            nlohmann::json::parse(R"([{"btid": 3, "name": "Phone", "suffix": 1, "displayed": "Phone"},
                                      {"btid": 4, "name": "Phone", "suffix": 2, "displayed": "Phone 2"}])"));
  EXPECT_EQ(Invocation({"suffixes", "check"}).exitCode(), 0);
}

TEST_F(Idlctl, FindsSavedNumbersThatWouldBeForgotten) {
  saveTwoPhones();
  std::fstream file(savedFile(), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(263 + 262);
  file.put(1);
  file.close();

  const Invocation check({"suffixes", "check"});

  EXPECT_EQ(check.exitCode(), 4);
  EXPECT_THAT(check.out(),
              HasSubstr("displayed as \"Phone\": btid 3 (\"Phone\", number 1) btid 4 (\"Phone\", number 1)"));
}

TEST_F(Idlctl, ForgetsOnlyWhatItIsToldTo) {
  saveTwoPhones();

  EXPECT_EQ(Invocation({"suffixes", "forget"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"suffixes", "forget", "--btid", "9"}).exitCode(), 1);
  EXPECT_EQ(Invocation({"suffixes", "forget", "--btid", "3"}).exitCode(), 0);

  EXPECT_EQ(Invocation({"suffixes", "show", "--json"}).json().at("entries"),
            nlohmann::json::parse(R"([{"btid": 4, "name": "Phone", "suffix": 2, "displayed": "Phone 2"}])"));
}

TEST_F(Idlctl, TellsTheDoctorOfAnEmptyMachine) {
  const Invocation doctor({"doctor", "--json"});

  EXPECT_EQ(doctor.exitCode(), 1);
  EXPECT_EQ(findings(doctor.json()), std::vector<std::string>(4, "absent"));
}

TEST_F(Idlctl, TellsTheDoctorNothingOfAHealthyBench) {
  BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  CpPublisher().initialise();
  AapPublisher().initialise();
  FuncInfoPublisher().setBluetooth(true);

  const Invocation doctor({"doctor"});

  EXPECT_EQ(doctor.exitCode(), 0) << doctor.out();
  EXPECT_THAT(doctor.out(), HasSubstr("Nothing is wrong."));
}

TEST_F(Idlctl, TellsTheDoctorOfABluetoothTableThatNobodyWrote) {
  const BtPublisher bluetooth;  // attaching alone makes the table

  EXPECT_THAT(findings(Invocation({"doctor", "--json"}).json()), Contains("bt-not-written"));
}

TEST_F(Idlctl, TellsTheDoctorWhatOnlyAllTablesTogetherShow) {
  BtPublisher().initialise();
  AapPublisher androidAuto;
  androidAuto.initialise();
  androidAuto.put(0, {"a", "Phone", 0, 255, 2});
  androidAuto.put(1, {"b", "Phone", 0, 255, 2});
  androidAuto.put(2, {"c", "Claimant", 0, 9, 1});

  const auto found = findings(Invocation({"doctor", "--json"}).json());

  EXPECT_THAT(found, Contains("same-name-same-port"));
  EXPECT_THAT(found, Contains("pairing-unknown"));
  EXPECT_THAT(found, Not(Contains("bt-not-written")));
}

// What bash and zsh make of this the tests of the installed program show.
TEST_F(Idlctl, CompletesItsOwnArguments) {
  for (const char* shell : {"bash", "zsh"}) {
    const Invocation completion({"completion", shell});

    EXPECT_EQ(completion.exitCode(), 0);
    EXPECT_THAT(completion.out(), HasSubstr("'suffixes forget') place='suffixes forget' ;;"));
    EXPECT_THAT(completion.out(), ContainsRegex("'in list'\\) offers='.*--explain.*--private"));
    EXPECT_THAT(completion.out(), ContainsRegex("'in suffixes forget'\\) offers='.*--btid.*--all"));
    EXPECT_THAT(completion.out(), HasSubstr("'wait --source') option='wait --source' ;;"));
    EXPECT_THAT(completion.out(), HasSubstr("'wait --source') offers='bt cp aap' ;;"));
    EXPECT_THAT(completion.out(), ContainsRegex("'in dump'\\) offers='.*bt cp aap funcinfo"));
    EXPECT_THAT(completion.out(), ContainsRegex("'in completion'\\) offers='.*bash zsh"));
  }
}

}  // namespace
