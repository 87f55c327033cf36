// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/LmSyncGuard.h"
#include "idlctl/FolderPicture.h"
#include "idlctl/Invocation.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SaveFolder.h"
#include "support/Users.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using testing::HasSubstr;

constexpr uid_t NOBODY = 65534;
constexpr char SHARED_MEMORY[] = "/dev/shm";

const std::vector<std::vector<std::string>> INSPECTIONS = {
    {"list"},
    {"list", "--explain"},
    {"list", "--json"},
    {"dump", "bt"},
    {"dump", "cp", "--check"},
    {"dump", "aap", "--json"},
    {"dump", "funcinfo"},
    {"doctor"},
    {"suffixes", "show"},
    {"suffixes", "check"},
    {"watch", "--timeout", "50ms"},
    {"wait", "--count", "99", "--timeout", "50ms"},
};

// A unit whose services and client have been at work.
void useAUnit() {
  BtPublisher bluetooth;
  CpPublisher carPlay;
  AapPublisher androidAuto;
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

class Inspections : public testing::TestWithParam<std::vector<std::string>> {
 protected:
  SaveFolder mFolder;
};

TEST_P(Inspections, ChangeNothingOnAnEmptyMachine) {
  const auto before = std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path()));

  const Invocation inspection(GetParam());

  EXPECT_EQ(std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path())), before);
}

TEST_P(Inspections, ChangeNothingOnAUnitInUse) {
  useAUnit();
  const auto before = std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path()));

  const Invocation inspection(GetParam());

  EXPECT_EQ(std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path())), before);
}

TEST_P(Inspections, ChangeNothingAsAUserWhoMayOnlyRead) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "another user can be had by root alone";
  }
  useAUnit();
  const auto before = std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path()));
  ChildProcess reader([] {
    become(NOBODY, {NOBODY});
    const Invocation inspection(GetParam());
    return 0;
  });

  EXPECT_EQ(reader.wait(), 0);

  EXPECT_EQ(std::make_tuple(pictureOf(SHARED_MEMORY), pictureOf(mFolder.path())), before);
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

INSTANTIATE_TEST_SUITE_P(Each, Inspections, testing::ValuesIn(INSPECTIONS));

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

TEST_F(AnInspector, ReadsWithoutTheLockOfALivingHolderAndSaysSo) {
  useAUnit();
  const LmSharedSyncObject lock("BtPairedDeviceList");
  const LmSyncGuard guard(lock);
  ChildProcess inspector([] {
    const Invocation list({"list"});
    const bool isTold = list.err().find("bt (BtPairedDeviceList): read without lock") != std::string::npos;
    const bool isListed = list.out().find("\"Phone\"") != std::string::npos;
    return list.exitCode() == 0 && isTold && isListed ? 0 : 1;
  });

  EXPECT_EQ(inspector.wait(), 0);
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

}  // namespace
