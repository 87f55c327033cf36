// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <thread>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "idlctl/FolderPicture.h"
#include "idlctl/Invocation.h"
#include "recordings/RecordingSteps.h"
#include "simulator/TableClaim.h"
#include "support/ChildProcess.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"

namespace {

using namespace idl::bench;
using nlohmann::json;
using testing::HasSubstr;

class Replay : public testing::Test {
 protected:
  // A recording's file; the unit is as empty afterwards as it was before.
  std::string record(const std::vector<std::function<void()>>& steps) {
    std::string path = write(mFolder.path(), "recording", recordingOf(mFolder.path(), steps));
    removePhoneTables();
    return path;
  }

  SaveFolder mFolder;
};

std::vector<std::function<void()>> twoPhones() {
  return {[] {
            BtPublisher bt;
            bt.initialise();
            bt.put(0, {3, "Phone", "00:00:5E:00:53:01"});
            bt.put(1, {4, "Phone", "00:00:5E:00:53:02"});
          },
          [] { BtPublisher().remove("Phone"); }};
}

void removeClaims() {
  for (const idl::tools::Source* source : idl::tools::SOURCES) {
    std::filesystem::remove(std::string("/dev/shm/LmBench.") + source->segment);
  }
}

bool mayHaveMounts() {
  ChildProcess child([] { return unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 ? 0 : 1; });
  return child.wait() == 0;
}

/// `replay` in a process of its own, with a standard input that this one writes.
class SteppedReplay {
 public:
  explicit SteppedReplay(const std::vector<std::string>& arguments, const std::string& temporaryFolder = "/tmp")
      : mEnds(makePipe()), mProcess([&] {
          ::setenv("TMPDIR", temporaryFolder.c_str(), 1);
          ::dup2(mEnds[0], STDIN_FILENO);
          ::close(mEnds[1]);
          return Invocation(arguments).exitCode();
        }) {
    ::close(mEnds[0]);
  }

  ~SteppedReplay() { endInput(); }

  SteppedReplay(const SteppedReplay&) = delete;
  SteppedReplay& operator=(const SteppedReplay&) = delete;

  void enter() const { say("\n"); }

  void say(const std::string& text) const {
    EXPECT_EQ(::write(mEnds[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  void endInput() {
    if (mEnds[1] != -1) {
      ::close(mEnds[1]);
      mEnds[1] = -1;
    }
  }

  void signal(int number) const { mProcess.signal(number); }
  int wait() { return mProcess.wait(); }

 private:
  static std::array<int, 2> makePipe() {
    std::array<int, 2> ends = {-1, -1};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    return ends;
  }

  std::array<int, 2> mEnds;
  ChildProcess mProcess;
};

bool comesToBe(const std::string& path) {
  for (int k = 0; k < 6000 && !std::filesystem::exists(path); ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return std::filesystem::exists(path);
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

bool comesToHold(const std::string& path, const std::string& text) {
  for (int k = 0; k < 6000 && contentsOf(path).find(text) == std::string::npos; ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return contentsOf(path).find(text) != std::string::npos;
}

constexpr char BT_TABLE[] = "/dev/shm/BtPairedDeviceList";

TEST_F(Replay, HasTheSameListsAgain) {
  const std::string path = record(aDayInACar());

  const Invocation check({"replay", path, "--check", "--here"});

  EXPECT_EQ(check.exitCode(), 0) << check.out() << check.err();
  EXPECT_THAT(check.out(), HasSubstr("11 passes, the same lists"));
}

TEST_F(Replay, HasThemWithOtherNames) {
  const std::string path = record(aDayInACar());
  const std::string other = mFolder.path() / "other";
  ASSERT_EQ(Invocation({"record", "--from", path, "--pseudonymise", "-o", other}).exitCode(), 0);

  const Invocation check({"replay", other, "--check", "--here"});

  EXPECT_EQ(check.exitCode(), 0) << check.out() << check.err();
}

TEST_F(Replay, ChecksInAFolderOfItsOwn) {
  if (!mayHaveMounts()) {
    // A container may forbid them; then there is no folder of its own to check in, and --here is what is tested.
    GTEST_SKIP() << "this kernel lets this user have no namespaces";
  }
  const std::string path = record(twoPhones());
  const auto before = pictureOf("/dev/shm");

  const Invocation check({"replay", path, "--check"});

  EXPECT_EQ(check.exitCode(), 0) << check.out() << check.err();
  EXPECT_EQ(pictureOf("/dev/shm"), before);
}

TEST_F(Replay, BeginsWithTheRecordedNumbers) {
  write(mFolder.path(), "IDLSuffix.ini",
        std::string("\1\4Phone", 7) + std::string(255, '\0') + std::string("\1", 1) + std::string(263 * 9, '\0'));
  const std::string path = record(twoPhones());
  std::filesystem::remove(mFolder.path() / "IDLSuffix.ini");
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  ASSERT_EQ(eventsOf(text).at(2).list.rows.at(0).header.name, "Phone 2");

  const Invocation here({"replay", path, "--check", "--here"});
  const Invocation apart({"replay", path, "--check"});

  EXPECT_EQ(here.exitCode(), 0) << here.out() << here.err();
  EXPECT_EQ(apart.exitCode(), mayHaveMounts() ? 0 : 3) << apart.out() << apart.err();
}

TEST_F(Replay, ShowsWhereTheListsGoApart) {
  const std::string path = record(twoPhones());
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  json last = json::parse(lines[3]);
  last["list"]["rows"][0]["name"] = "Phone";
  last["list"]["rows"][0]["suffix"] = 1;
  lines[3] = last.dump();
  std::string text;
  for (const std::string& line : lines) {
    text += line + '\n';
  }
  const std::string other = write(mFolder.path(), "other", text);

  const Invocation check({"replay", other, "--check", "--here"});

  EXPECT_EQ(check.exitCode(), 1);
  EXPECT_THAT(check.out(), HasSubstr(":4: at ")) << check.out();
  EXPECT_THAT(check.out(), HasSubstr("in pass 2, after bt was taken over, the list went apart")) << check.out();
  EXPECT_THAT(check.out(), HasSubstr("row 1: name \"Phone\" -> \"Phone 2\" suffix 1 -> 2")) << check.out();
}

TEST_F(Replay, NoticesOneBitOfASourcesRecord) {
  const std::string path = record(twoPhones());
  std::ifstream file(path);
  std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::string address = "30303a30303a35453a30303a35333a3031000000000001";  // up to the flags
  text.replace(text.find(address), address.size(), "30303a30303a35453a30303a35333a3031000000000003");
  const std::string other = write(mFolder.path(), "other", text);

  const Invocation check({"replay", other, "--check", "--here"});

  EXPECT_EQ(check.exitCode(), 1);
  EXPECT_THAT(check.out(), HasSubstr("row 1: btBytes from byte 104 on")) << check.out();
}

TEST_F(Replay, PublishesTheTablesAsTheyWere) {
  const auto steps = aDayInACar();
  std::string text;
  json list;
  {
    text = recordingOf(mFolder.path(), steps);
    list = Invocation({"list", "--json"}).json();
  }
  const auto tables = [] {
    std::map<std::string, std::string> found;
    for (const char* name : {"/dev/shm/BtPairedDeviceList", "/dev/shm/LmSCarplayResource", "/dev/shm/AapDeviceList"}) {
      std::ifstream file(name, std::ios::binary);
      found[name].assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return found;
  };
  const auto before = tables();
  removePhoneTables();

  const Invocation replay({"replay", write(mFolder.path(), "recording", text), "--speed", "1000"});

  EXPECT_EQ(replay.exitCode(), 0) << replay.err();
  EXPECT_EQ(tables(), before);
  EXPECT_EQ(Invocation({"list", "--json"}).json(), list);
}

TEST_F(Replay, EndsWhereItIsTold) {
  const std::string path = record({[] { usleep(50000); }, [] { BtPublisher().initialise(); }});

  ASSERT_EQ(Invocation({"replay", path, "--until", "20ms"}).exitCode(), 0);

  EXPECT_FALSE(std::filesystem::exists("/dev/shm/BtPairedDeviceList"));
}

TEST_F(Replay, TakesItsTime) {
  const std::string path = record({[] {},
                                   [] {
                                     usleep(200000);
                                     BtPublisher().initialise();
                                   }});
  const auto start = std::chrono::steady_clock::now();

  ASSERT_EQ(Invocation({"replay", path}).exitCode(), 0);
  const auto took = std::chrono::steady_clock::now() - start;
  ASSERT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 0);

  EXPECT_GE(took, std::chrono::milliseconds(200));
  EXPECT_LT(std::chrono::steady_clock::now() - start - took, took);
}

TEST_F(Replay, PutsTheSavedTableWhereItIsTold) {
  const std::string image(2630, '\0');
  write(mFolder.path(), "IDLSuffix.ini", image);
  const std::string path = record(twoPhones());
  const std::string folder = mFolder.path() / "elsewhere";
  std::filesystem::create_directory(folder);

  ASSERT_EQ(Invocation({"replay", path, "--speed", "1000", "--save-dir", folder}).exitCode(), 0);

  EXPECT_EQ(std::filesystem::file_size(folder + "/IDLSuffix.ini"), image.size());
}

TEST_F(Replay, PutsNoSavedTableWhereNoneCouldBeRead) {
  const std::string folder = mFolder.path() / "elsewhere" / "below";
  for (const char* state : {"absent", "unreadable", "not a file"}) {
    const std::string path = record(twoPhones());
    std::string text;
    {
      std::ifstream file(path);
      text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    const json saved = {{"event", "saved"}, {"schema", 1}, {"state", state}, {"timeMs", 0}};
    text.insert(text.find('\n') + 1, saved.dump() + '\n');
    text = renumbered(text);

    const Invocation replay({"replay", write(mFolder.path(), "other", text), "--speed", "1000", "--save-dir", folder});

    EXPECT_EQ(replay.exitCode(), 0) << replay.err();
    EXPECT_TRUE(std::filesystem::is_empty(folder)) << state;
    removePhoneTables();
  }
}

TEST_F(Replay, LeavesSavedNumbersAlone) {
  const std::string path = record(twoPhones());
  const std::string saved = write(mFolder.path(), "IDLSuffix.ini", "somebody's");

  const Invocation replay({"replay", path, "--speed", "1000", "--save-dir", mFolder.path()});

  EXPECT_EQ(replay.exitCode(), 3);
  EXPECT_THAT(replay.err(), HasSubstr("has saved numbers already"));
  EXPECT_EQ(mFolder.contents("IDLSuffix.ini"), "somebody's");
  EXPECT_FALSE(std::filesystem::exists(BT_TABLE));
}

TEST_F(Replay, SaysThatThereIsNoFolderForTheSavedTable) {
  const std::string path = record(twoPhones());

  EXPECT_EQ(Invocation({"replay", path, "--save-dir", path + "/below"}).exitCode(), 3);
}

// A recording that was damaged further on had left a folder with its numbers.
TEST_F(Replay, MakesNoFolderForADamagedRecording) {
  const std::string text = contentsOf(record(twoPhones()));
  const std::string folder = mFolder.path() / "elsewhere";

  const Invocation replay({"replay", write(mFolder.path(), "other", text + "garbage\n"), "--save-dir", folder});

  EXPECT_EQ(replay.exitCode(), 4);
  EXPECT_FALSE(std::filesystem::exists(folder));
  EXPECT_FALSE(std::filesystem::exists(BT_TABLE));
}

// It wrote over a live service's table without a word: a service has no claim.
TEST_F(Replay, IsRefusedWhereAServiceHasATable) {
  const std::string path = record(twoPhones());
  for (const std::string name : {"BtPairedDeviceList", "LmSCarplayResource", "AapDeviceList"}) {
    removeClaims();
    if (name == "BtPairedDeviceList") {
      BtPublisher().initialise();
    } else if (name == "AapDeviceList") {
      AapPublisher().initialise();
    } else {
      CpPublisher().put(0, {7, "Phone", 0});
    }
    const auto before = pictureOf("/dev/shm");

    const Invocation replay({"replay", path, "--speed", "1000"});

    EXPECT_EQ(replay.exitCode(), 1);
    EXPECT_THAT(replay.err(), HasSubstr(name));
    EXPECT_THAT(replay.err(), HasSubstr("--take-over"));
    EXPECT_EQ(pictureOf("/dev/shm"), before);
    EXPECT_EQ(Invocation({"replay", path, "--speed", "1000", "--take-over"}).exitCode(), 0);
    removePhoneTables();
  }
}

TEST_F(Replay, IsRefusedWhereAServiceHasFuncInfo) {
  const std::string path = record(twoPhones());
  removeClaims();
  FuncInfoPublisher().setBluetooth(true);

  EXPECT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 1);
}

TEST_F(Replay, WritesOverWhatAStandInHasLeft) {
  const std::string path = record(twoPhones());
  removeClaims();
  ASSERT_EQ(Invocation({"publish", "bt", "--phone", "name=\"Phone\" id=3", "--timeout", "0ms"}).exitCode(), 0);
  FuncInfoPublisher().setBluetooth(true);

  EXPECT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 0);
}

TEST_F(Replay, WritesOverWhatAClientMakes) {
  const std::string path = record(twoPhones());
  removeClaims();
  ChildProcess client([] {
    LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
    for (const idl::tools::Source* source : idl::tools::TABLES) {
      list->updateDeviceList(source->type);
    }
    return 0;
  });
  ASSERT_EQ(client.wait(), 0);
  ASSERT_TRUE(std::filesystem::exists("/dev/shm/LmSCarplayResource"));

  EXPECT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 0);
}

TEST_F(Replay, IsStoppedHoweverLongALineIsAway) {
  const std::string text = contentsOf(record(twoPhones()));
  SteppedReplay replay({"replay", "-"});
  replay.say(text.substr(0, text.find('\n', text.find("\"pass\":true")) + 1));
  ASSERT_TRUE(comesToBe(BT_TABLE));

  replay.signal(SIGTERM);

  EXPECT_EQ(replay.wait(), 0);
}

TEST_F(Replay, IsRefusedWhereAnotherStandInHasAnyTable) {
  const std::string path = record(twoPhones());
  for (const char* table : {"BtPairedDeviceList", "LmSCarplayResource", "AapDeviceList", "FuncInfo"}) {
    const TableClaim claim(table);

    EXPECT_EQ(Invocation({"replay", path, "--speed", "1000"}).exitCode(), 1);
    EXPECT_EQ(Invocation({"replay", path, "--check", "--here"}).exitCode(), 1);
  }
  EXPECT_FALSE(std::filesystem::exists(BT_TABLE));
}

TEST_F(Replay, ChecksNowhereWhereATableIs) {
  const std::string path = record(twoPhones());
  FuncInfoPublisher().setBluetooth(true);
  const auto before = pictureOf("/dev/shm");

  const Invocation check({"replay", path, "--check", "--here"});

  EXPECT_EQ(check.exitCode(), 1);
  EXPECT_THAT(check.err(), HasSubstr("FuncInfo"));
  EXPECT_EQ(pictureOf("/dev/shm"), before);
}

TEST_F(Replay, LeavesNothingOfACheckHere) {
  // Elsewhere, so that this process has opened no lock yet.
  ChildProcess recorder([this] {
    record(aDayInACar());
    return 0;
  });
  ASSERT_EQ(recorder.wait(), 0);
  const std::string path = mFolder.path() / "recording";
  for (const std::string& name : namesIn("/dev/shm")) {
    if (name.rfind("Lm", 0) == 0) {
      std::filesystem::remove("/dev/shm/" + name);
    }
  }
  const auto before = namesIn("/dev/shm");

  EXPECT_EQ(Invocation({"replay", path, "--check", "--here"}).exitCode(), 0);

  EXPECT_EQ(namesIn("/dev/shm"), before);
}

// What somebody had made meanwhile was written over, and taken away with the rest.
TEST_F(Replay, LeavesATableThatIsMadeAnewWhileItChecksHere) {
  const std::string text = contentsOf(record(twoPhones()));
  const std::size_t firstPass = text.find('\n', text.find("\"pass\":true")) + 1;
  SteppedReplay replay({"replay", "-", "--check", "--here"});
  replay.say(text.substr(0, firstPass));
  ASSERT_TRUE(comesToHold(BT_TABLE, "Phone"));
  RawSegment::remove("/BtPairedDeviceList");
  BtPublisher().put(0, {9, "Somebody's", ""});
  const std::string table = contentsOf(BT_TABLE);

  replay.say(text.substr(firstPass));
  replay.endInput();

  EXPECT_EQ(replay.wait(), 1);
  EXPECT_EQ(contentsOf(BT_TABLE), table);
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/FuncInfo"));
}

TEST_F(Replay, LeavesATableThatAServiceHasOpenedWhileItChecksHere) {
  const std::string path = record(twoPhones());
  const std::string text = contentsOf(path);
  SteppedReplay replay({"replay", "-", "--check", "--here"});
  replay.say(text.substr(0, text.find('\n', text.find("\"pass\":true")) + 1));
  ASSERT_TRUE(comesToBe(BT_TABLE));
  const BtPublisher service;

  replay.signal(SIGTERM);

  EXPECT_EQ(replay.wait(), 1);
  EXPECT_TRUE(std::filesystem::exists(BT_TABLE));
  EXPECT_FALSE(std::filesystem::exists("/dev/shm/FuncInfo"));
}

TEST_F(Replay, LeavesNothingOfACheckHereThatIsStopped) {
  const std::string path = record(twoPhones());
  const std::string text = contentsOf(path);
  const std::string temporary = mFolder.path() / "temporary";
  std::filesystem::create_directory(temporary);
  for (const char* name : {"/dev/shm/LmSharedMemNotifier", "/dev/shm/LmLock.BtPairedDeviceList"}) {
    std::filesystem::remove(name);
  }
  const auto before = namesIn("/dev/shm");
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    SteppedReplay replay({"replay", "-", "--check", "--here"}, temporary);
    replay.say(text.substr(0, text.find('\n', text.find("\"pass\":true")) + 1));
    ASSERT_TRUE(comesToBe(BT_TABLE));
    EXPECT_FALSE(std::filesystem::is_empty(temporary));

    replay.signal(number);

    EXPECT_EQ(replay.wait(), 1) << number;
    EXPECT_EQ(namesIn("/dev/shm"), before) << number;
    EXPECT_TRUE(std::filesystem::is_empty(temporary)) << number;
  }
}

TEST_F(Replay, SaysThatThereWasNothingToCheck) {
  const std::string path = record(twoPhones());
  std::ifstream file(path);
  std::string header;
  std::getline(file, header);

  const Invocation empty({"replay", write(mFolder.path(), "header", header + '\n'), "--check", "--here"});

  EXPECT_EQ(empty.exitCode(), 1);
  EXPECT_THAT(empty.out(), HasSubstr("nothing was checked"));
}

TEST_F(Replay, SaysThatItCouldNotTell) {
  const std::string path = record(twoPhones());
  for (const char* how : {"--check", "--to-scenario"}) {
    std::ofstream full("/dev/full");
    std::ostringstream err;
    std::vector<std::string> arguments = {"replay", path, how};
    if (how == std::string("--check")) {
      arguments.emplace_back("--here");
    }

    EXPECT_EQ(idl::tools::idlctl(arguments, {full, err, false}), 3);
  }
}

TEST_F(Replay, TakesAStepForEachEnter) {
  const std::string path = record(twoPhones());
  SteppedReplay replay({"replay", path, "--step"});
  replay.enter();
  EXPECT_FALSE(std::filesystem::exists(BT_TABLE));
  replay.enter();
  EXPECT_TRUE(comesToBe(BT_TABLE));
  replay.enter();
  replay.enter();

  EXPECT_EQ(replay.wait(), 0);
}

TEST_F(Replay, IsStoppedBetweenTwoSteps) {
  const std::string path = record(twoPhones());
  for (const int number : {SIGINT, SIGTERM}) {
    SteppedReplay replay({"replay", path, "--step"});
    replay.enter();
    replay.enter();
    ASSERT_TRUE(comesToBe(BT_TABLE));

    replay.signal(number);

    EXPECT_EQ(replay.wait(), 0);
    removePhoneTables();
  }
}

TEST_F(Replay, IsPlayedToItsEndWhenNobodyCanStepAnyMore) {
  const std::string path = record(twoPhones());
  SteppedReplay replay({"replay", path, "--step"});

  replay.endInput();

  EXPECT_EQ(replay.wait(), 0);
  EXPECT_TRUE(std::filesystem::exists(BT_TABLE));
}

TEST_F(Replay, IsStoppedHoweverLongAnEventIsAway) {
  const std::string path = record(twoPhones());
  std::ifstream file(path);
  std::string text;
  for (std::string line; std::getline(file, line);) {
    json object = json::parse(line);
    if (object.at("event") == "end") {
      object["timeMs"] = 90ULL * 366 * 24 * 3600 * 1000;
    }
    text += object.dump() + '\n';
  }
  SteppedReplay replay({"replay", write(mFolder.path(), "other", text), "--speed", "0.001"});
  ASSERT_TRUE(comesToBe(BT_TABLE));

  replay.signal(SIGTERM);

  EXPECT_EQ(replay.wait(), 0);
}

TEST_F(Replay, BecomesAScenarioThatPlays) {
  const std::string path = record(twoPhones());
  const Invocation scenario({"replay", path, "--to-scenario"});
  ASSERT_EQ(scenario.exitCode(), 0);
  EXPECT_THAT(scenario.out(), HasSubstr("\nexpect row 2 \"Phone 2\" type=bt btid=4"));

  const Invocation run({"run", write(mFolder.path(), "scenario", scenario.out())});

  EXPECT_EQ(run.exitCode(), 0) << run.out() << run.err();
}

TEST_F(Replay, BecomesAScenarioThatPlaysWhateverHappened) {
  const std::string path = record(aDayInACar());
  const Invocation scenario({"replay", path, "--to-scenario"});
  EXPECT_THAT(scenario.out(), HasSubstr("# a text of bt6 has no end"));
  EXPECT_THAT(scenario.out(), HasSubstr("# expect list"));

  const Invocation run({"run", write(mFolder.path(), "scenario", scenario.out())});

  EXPECT_EQ(run.exitCode(), 0) << run.out() << run.err() << scenario.out();
}

TEST_F(Replay, RefusesWhatDoesNotGoTogether) {
  EXPECT_EQ(Invocation({"replay"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--check", "--to-scenario"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--check", "--speed", "2"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--here"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--check", "--take-over"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--to-scenario", "--take-over"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "x", "--until", "5"}).exitCode(), 2);
  EXPECT_EQ(Invocation({"replay", "-", "--step"}).exitCode(), 2);
  for (const char* speed : {"nan", "-nan", "inf", "0", "-1", "1e7", "x"}) {
    EXPECT_EQ(Invocation({"replay", "x", "--speed", speed}).exitCode(), 2) << speed;
    EXPECT_EQ(Invocation({"run", "x", "--speed", speed}).exitCode(), 2) << speed;
  }
  EXPECT_EQ(Invocation({"record", "--from", "x", "--timeout", "1s"}).exitCode(), 2);
}

}  // namespace
