// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/LmSyncGuard.h"
#include "idlctl/FolderPicture.h"
#include "idlctl/Invocation.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SaveFolder.h"
#include "support/Users.h"
#include "tools/inspect/LockView.h"
#include "tools/inspect/TableCopy.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using idl::bench::FuncInfoPublisher;

constexpr uid_t NOBODY = 65534;
constexpr char SHARED_MEMORY[] = "/dev/shm";

const std::vector<std::vector<std::string>> INSPECTIONS = {
    {"list"},
    {"list", "--explain"},
    {"list", "--json"},
    {"dump", "bt"},
    {"dump", "bt", "--hex"},
    {"dump", "cp", "--check"},
    {"dump", "aap", "--json"},
    {"dump", "funcinfo"},
    {"dump", "/dev/shm/BtPairedDeviceList", "--as", "bt"},
    {"doctor"},
    {"doctor", "--json"},
    {"suffixes", "show"},
    {"suffixes", "check"},
    {"watch", "--timeout", "50ms", "--interval", "5ms"},
    {"watch", "-n", "1", "--timeout", "50ms"},
    {"record", "--timeout", "50ms", "--interval", "5ms"},
    {"record", "--timeout", "50ms", "--pseudonymise"},
    {"wait", "--count", "99", "--timeout", "50ms"},
    {"wait", "--source", "bt", "--state", "present", "--timeout", "1ms"},
};

const char* const TABLES[] = {"BtPairedDeviceList", "LmSCarplayResource", "AapDeviceList", "FuncInfo"};

std::string pathOf(const std::string& object) { return std::string(SHARED_MEMORY) + '/' + object; }

// A unit whose services and client have been at work.
void useAUnit() {
  BtPublisher bluetooth;
  CpPublisher carPlay;
  AapPublisher androidAuto;
  FuncInfoPublisher functions;
  functions.setBluetooth(true);
  bluetooth.initialise();
  carPlay.initialise();
  androidAuto.initialise();
  bluetooth.put(0, {3, "Phone", ""});
  carPlay.put(0, {7, "Phone", 3});
  androidAuto.put(0, {"id", "Phone", 0, 255, 2});
  LmSIntegratedDeviceList::getInstance()->initialize();
  LmSIntegratedDeviceList::getInstance()->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  LmSIntegratedDeviceList::destroy();
}

void writeOver(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

/// What an inspector may come upon, and should leave as it is.
struct State {
  const char* name;
  void (*make)(const std::string& saveFolder);
};

const State STATES[] = {
    {"an empty machine", [](const std::string&) {}},
    {"a unit in use", [](const std::string&) { useAUnit(); }},
    // CarPlay's defaults are not written, the size words are wrong, and there is no lock.
    {"tables that nobody has written",
     [](const std::string&) {
       writeOver(pathOf("BtPairedDeviceList"), std::string(1124, '\0'));
       writeOver(pathOf("LmSCarplayResource"), std::string(13736, '\0'));
       writeOver(pathOf("AapDeviceList"), std::string(6292, '\0'));
       writeOver(pathOf("FuncInfo"), std::string(2108, '\0'));
     }},
    {"objects without a length",
     [](const std::string&) {
       for (const char* table : TABLES) {
         writeOver(pathOf(table), "");
       }
     }},
    {"tables that are cut",
     [](const std::string&) {
       useAUnit();
       for (const char* table : TABLES) {
         std::filesystem::resize_file(pathOf(table), 500);
       }
     }},
    {"a lock whose holder is dead",
     [](const std::string&) {
       useAUnit();
       ChildProcess holder([] {
         BtPublisher().crash(idl::bench::CrashPoint::HALF_WRITTEN, 1, {4, "Phone", ""});
         return 0;
       });
       EXPECT_EQ(holder.wait(), -SIGKILL);
     }},
    {"garbage in the locks",
     [](const std::string&) {
       useAUnit();
       for (const char* table : TABLES) {
         writeOver(pathOf(std::string("LmLock.") + table), std::string(4096, '\x5a'));
       }
     }},
    {"locks that are cut",
     [](const std::string&) {
       useAUnit();
       for (const char* table : TABLES) {
         std::filesystem::resize_file(pathOf(std::string("LmLock.") + table), 20);
       }
     }},
    {"something else in the places of tables and locks",
     [](const std::string&) {
       mkfifo(pathOf("BtPairedDeviceList").c_str(), 0666);
       std::filesystem::create_directory(pathOf("LmSCarplayResource"));
       std::filesystem::create_symlink("/dev/shm/nowhere", pathOf("AapDeviceList"));
       std::filesystem::create_symlink("/dev/shm/nowhere", pathOf("FuncInfo"));
       mkfifo(pathOf("LmLock.BtPairedDeviceList").c_str(), 0666);
       std::filesystem::create_directory(pathOf("LmLock.LmSCarplayResource"));
       std::filesystem::create_symlink("/dev/shm/nowhere", pathOf("LmLock.AapDeviceList"));
     }},
    {"a saved table that would be forgotten",
     [](const std::string& saveFolder) {
       useAUnit();
       std::string record(263, '\0');
       record.replace(0, 7, "\x01\x03Phone");
       record[262] = 1;
       writeOver(saveFolder + "/IDLSuffix.ini", record + record);
     }},
};

class Inspections : public testing::TestWithParam<std::vector<std::string>> {
 protected:
  using Pictures = std::pair<std::map<std::string, std::string>, std::map<std::string, std::string>>;

  Pictures pictures() const { return {pictureOf(SHARED_MEMORY), pictureOf(mFolder.path())}; }

  // Only what lies there, and to be read by everybody: the folder of shared memory lets anybody make something new.
  void letEverybodyRead() const {
    for (const std::filesystem::path& folder : {std::filesystem::path(SHARED_MEMORY), mFolder.path()}) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (!entry.is_symlink()) {
          ASSERT_EQ(chmod(entry.path().c_str(), entry.is_directory() ? 0755 : 0644), 0);
        }
      }
    }
    ASSERT_EQ(chmod(mFolder.path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(SHARED_MEMORY, 01777), 0);
  }

  void makeAnew(const State& state) const {
    for (const std::filesystem::path& folder : {std::filesystem::path(SHARED_MEMORY), mFolder.path()}) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path() != mFolder.path()) {
          std::filesystem::remove_all(entry.path());
        }
      }
    }
    SaveFolder::letGo();
    state.make(mFolder.path());
  }

  SaveFolder mFolder;
};

TEST_P(Inspections, ChangeNothing) {
  for (const State& state : STATES) {
    SCOPED_TRACE(state.name);
    makeAnew(state);
    const Pictures before = pictures();
    ChildProcess inspector([] { return Invocation(GetParam()).exitCode(); });

    EXPECT_THAT(inspector.wait(), testing::AnyOf(0, 1, 3, 4, 124));

    EXPECT_EQ(pictures(), before);
  }
}

TEST_P(Inspections, ChangeNothingAsAUserWhoMayOnlyRead) {
  // The tables are this process's own: who may only read them has to be another user, and only root can become one.
  if (geteuid() != 0) {
    GTEST_SKIP() << "another user can be had by root alone";
  }
  for (const State& state : STATES) {
    SCOPED_TRACE(state.name);
    makeAnew(state);
    letEverybodyRead();
    const Pictures before = pictures();
    ChildProcess reader([] {
      become(NOBODY, {NOBODY});
      return Invocation(GetParam()).exitCode();
    });

    EXPECT_THAT(reader.wait(), testing::AnyOf(0, 1, 3, 4, 124));

    EXPECT_EQ(pictures(), before);
  }
}

TEST_P(Inspections, EndWhateverIsWrittenIntoTheTables) {
  for (std::uint32_t seed = 0; seed < 20; ++seed) {
    BtPublisher().writeGarbage(seed);
    CpPublisher().writeGarbage(seed);
    AapPublisher().writeGarbage(seed);

    const Invocation inspection(GetParam());

    EXPECT_THAT(inspection.exitCode(), testing::AnyOf(0, 1, 3, 4, 124));
  }
}

// "watch_n_1_timeout_50ms"
std::string nameOf(const testing::TestParamInfo<std::vector<std::string>>& info) {
  std::string name;
  for (const std::string& argument : info.param) {
    name += name.empty() ? "" : "_";
    std::copy_if(argument.begin(), argument.end(), std::back_inserter(name),
                 [](unsigned char character) { return std::isalnum(character) != 0; });
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Each, Inspections, testing::ValuesIn(INSPECTIONS), nameOf);

// What the above compares has to tell the smallest change.
class APictureOfAFolder : public testing::Test {
 protected:
  APictureOfAFolder() { writeOver(mFile, "bytes"); }

  template <class Change>
  bool tells(Change change) const {
    const auto before = pictureOf(mFolder.path());
    change();
    return pictureOf(mFolder.path()) != before;
  }

  SaveFolder mFolder;
  const std::string mFile = mFolder / "file";
};

TEST_F(APictureOfAFolder, TellsEveryKindOfChange) {
  EXPECT_FALSE(tells([] {}));
  EXPECT_FALSE(tells([&] { std::ifstream(mFile).get(); }));

  EXPECT_TRUE(tells([&] { writeOver(mFile, "other"); }));
  EXPECT_TRUE(tells([&] { writeOver(mFile, "other"); })) << "the same bytes once more";
  EXPECT_TRUE(tells([&] { chmod(mFile.c_str(), 0600); }));
  EXPECT_TRUE(tells([&] { std::filesystem::resize_file(mFile, 9); }));
  EXPECT_TRUE(tells([&] {
    writeOver(mFile + "2", "");
    std::filesystem::remove(mFile + "2");
  })) << "made and removed";
  EXPECT_TRUE(tells([&] {
    writeOver(mFile + "2", "");
    std::filesystem::rename(mFile + "2", mFile);
  }));
}

class AnInspector : public testing::Test {
 protected:
  SaveFolder mFolder;
};

TEST_F(AnInspector, ReadsUnderTheLockWhereItMay) {
  useAUnit();

  const auto source = Invocation({"list", "--json"}).json().at("sources").at("bt");

  EXPECT_EQ(source.at("state"), "present");
  EXPECT_EQ(source.at("readWithoutLock"), false);
}

TEST_F(AnInspector, SeesTheSameListAsAUserWhoMayOnlyRead) {
  // The tables are this process's own: who may only read them has to be another user, and only root can become one.
  if (geteuid() != 0) {
    GTEST_SKIP() << "another user can be had by root alone";
  }
  useAUnit();
  for (const char* table : TABLES) {
    chmod(pathOf(table).c_str(), 0644);
    chmod(pathOf(std::string("LmLock.") + table).c_str(), 0644);
  }
  chmod(mFolder.path().c_str(), 0755);
  chmod((mFolder / "IDLSuffix.ini").c_str(), 0644);
  const nlohmann::json roots = Invocation({"list", "--json"}).json();
  ChildProcess reader([&] {
    become(NOBODY, {NOBODY});
    const Invocation list({"list", "--json"});
    const bool isMarked = list.json().at("sources").at("bt").at("readWithoutLock") &&
                          list.err().find("bt (BtPairedDeviceList): read without lock") != std::string::npos;
    return list.exitCode() == 0 && list.json().at("devices") == roots.at("devices") && isMarked ? 0 : 1;
  });

  EXPECT_EQ(roots.at("devices").size(), 2U);
  EXPECT_EQ(reader.wait(), 0);
}

TEST_F(AnInspector, ReadsWithoutTheLockOfALivingHolderAndSaysSo) {
  useAUnit();
  const LmSharedSyncObject lock("BtPairedDeviceList");
  const LmSyncGuard guard(lock);
  const auto before = pictureOf(SHARED_MEMORY);
  ChildProcess inspector([] {
    const Invocation list({"list"});
    const bool isTold = list.err().find("bt (BtPairedDeviceList): read without lock") != std::string::npos;
    const bool isListed = list.out().find("\"Phone\"") != std::string::npos;
    return list.exitCode() == 0 && isTold && isListed ? 0 : 1;
  });

  EXPECT_EQ(inspector.wait(), 0);
  EXPECT_EQ(pictureOf(SHARED_MEMORY), before);
}

TEST_F(AnInspector, LeavesTheLockOfADeadHolderToOthers) {
  useAUnit();
  ChildProcess holder([] {
    BtPublisher().crash(idl::bench::CrashPoint::LOCKED, 1, {4, "Phone", ""});
    return 0;
  });
  ASSERT_EQ(holder.wait(), -SIGKILL);
  const auto before = pictureOf(SHARED_MEMORY);

  const Invocation doctor({"doctor", "--json"});

  EXPECT_EQ(doctor.json().at("sources").at("bt").at("lock"), "held by the dead");
  EXPECT_EQ(doctor.exitCode(), 1);
  EXPECT_EQ(pictureOf(SHARED_MEMORY), before);
}

TEST_F(AnInspector, TakesAPipeInATablesPlaceForAnEmptySource) {
  useAUnit();
  RawSegment::remove("/AapDeviceList");
  ASSERT_EQ(mkfifo("/dev/shm/AapDeviceList", 0666), 0);

  const Invocation list({"list", "--json"});

  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(list.json().at("sources").at("aap").at("state"), "not a table");
  EXPECT_EQ(list.json().at("devices").size(), 1U);
}

TEST_F(AnInspector, CannotOpenWhatItMayNotRead) {
  // A table's owner may read it, or give itself the right to: this takes two users.
  if (geteuid() != 0) {
    GTEST_SKIP() << "root makes a table that another user may not read";
  }
  useAUnit();
  chmod("/dev/shm/BtPairedDeviceList", 0600);
  ChildProcess reader([] {
    become(NOBODY, {NOBODY});
    return Invocation({"list"}).exitCode() == 3 && Invocation({"dump", "bt"}).exitCode() == 3 ? 0 : 1;
  });

  EXPECT_EQ(reader.wait(), 0);
}

// Looks at Bluetooth's table again and again, until somebody ends it.
int lookOnAndOn() {
  for (;;) {
    idl::tools::copyTable(idl::tools::BT_SOURCE);
  }
}

void letPass(std::chrono::microseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
  }
}

TEST(AnInspectorThatASignalEnds, HasLeftTheLock) {
  BtPublisher bluetooth;
  bluetooth.initialise();

  for (int i = 0; i < 200; ++i) {
    ChildProcess inspector(lookOnAndOn);
    letPass(std::chrono::microseconds(500 + 7 * i));
    inspector.signal(i % 2 == 0 ? SIGTERM : SIGHUP);
    ASSERT_LT(inspector.wait(), 0);
    ASSERT_EQ(idl::tools::viewLock(BtPublisher::SEGMENT).state, idl::tools::LockView::State::FREE) << i;
  }
}

TEST(AnInspectorThatIsKilled, IsNamedByTheLockIfItHeldIt) {
  BtPublisher bluetooth;
  bluetooth.initialise();

  for (int i = 0; i < 5000; ++i) {
    ChildProcess inspector(lookOnAndOn);
    letPass(std::chrono::microseconds(500 + i % 500));
    inspector.signal(SIGKILL);
    inspector.wait();
    const idl::tools::LockView lock = idl::tools::viewLock(BtPublisher::SEGMENT);
    if (lock.state == idl::tools::LockView::State::HELD_BY_DEAD) {
      EXPECT_THAT(lock.holder, testing::AnyOf(0U, static_cast<std::uint32_t>(inspector.pid())));
      if (lock.holder != 0) {
        return;
      }
      bluetooth.put(0, {3, "Phone", ""});  // takes the lock over
    }
  }
  FAIL() << "never killed while it held the lock";
}

}  // namespace
