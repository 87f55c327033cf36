// SPDX-License-Identifier: Apache-2.0
// A unit that makes its shared objects at boot, empty, each with an owner and a group of its own, as SECURITY.md
// recommends: each service is in the group of its own table, clients are in all of them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"
#include "support/Users.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;

enum User : uid_t { BLUETOOTH = 2001, ANDROID_AUTO = 2002, CARPLAY = 2003, CLIENT = 2004 };
enum Group : gid_t { OF_BLUETOOTH = 3001, OF_ANDROID_AUTO, OF_CARPLAY, OF_FUNCTIONS, OF_NOTIFICATIONS };

const std::vector<gid_t> ALL_GROUPS = {OF_BLUETOOTH, OF_ANDROID_AUTO, OF_CARPLAY, OF_FUNCTIONS, OF_NOTIFICATIONS};

void makeEmpty(const std::string& name, uid_t owner, gid_t group) {
  const int file = shm_open(("/" + name).c_str(), O_RDWR | O_CREAT | O_EXCL, 0664);
  ASSERT_NE(file, -1) << name;
  ASSERT_EQ(fchown(file, owner, group), 0) << name;
  ASSERT_EQ(fchmod(file, 0664), 0) << name;
  close(file);
}

void makeTable(const std::string& name, uid_t owner, gid_t group) {
  makeEmpty(name, owner, group);
  makeEmpty("LmLock." + name, owner, group);
}

/// What `body` throws or fails at is the child's failure.
int runAs(uid_t user, const std::vector<gid_t>& groups, const std::function<void()>& body) {
  return ChildProcess([&] {
           become(user, groups);
           body();
           return ::testing::Test::HasFailure() ? 1 : 0;
         })
      .wait(std::chrono::seconds(100));
}

int openForWriting(const std::string& name) {
  const int file = shm_open(("/" + name).c_str(), O_RDWR, 0);
  if (file == -1) {
    return errno;
  }
  close(file);
  return 0;
}

class TablesWithGroupsOfTheirOwn : public ::testing::Test {
 protected:
  void SetUp() override {
    // The services and clients are users of their own here, and only root can become several.
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can become another user";
    }
    const int asAnother = ChildProcess([] {
                            become(CLIENT, ALL_GROUPS);
                            return 0;
                          }).wait();
    // A container may know root alone, and refuse to make a process somebody else's.
    if (asAnother != 0) {
      GTEST_SKIP() << "root cannot become another user in this container";
    }
    makeTable("BtPairedDeviceList", BLUETOOTH, OF_BLUETOOTH);
    makeTable("AapDeviceList", ANDROID_AUTO, OF_ANDROID_AUTO);
    makeTable("LmSCarplayResource", CARPLAY, OF_CARPLAY);
    makeTable("FuncInfo", 0, OF_FUNCTIONS);
    makeEmpty("LmSharedMemNotifier", 0, OF_NOTIFICATIONS);
    std::filesystem::permissions(saveFolder.path(), std::filesystem::perms::all);
    setenv("LM_SAVE_FILE_DIR", saveFolder.path().c_str(), 1);
  }

  static void publishAll() {
    EXPECT_EQ(runAs(BLUETOOTH, {OF_BLUETOOTH, OF_NOTIFICATIONS},
                    [] {
                      idl::bench::BtPublisher bluetooth;
                      bluetooth.initialise();
                      bluetooth.put(0, {3, "Paired", "00:00:5E:00:53:03"});
                    }),
              0);
    EXPECT_EQ(runAs(ANDROID_AUTO, {OF_ANDROID_AUTO, OF_NOTIFICATIONS},
                    [] {
                      idl::bench::AapPublisher androidAuto;
                      androidAuto.initialise();
                      androidAuto.put(0, {"id", "Android", 1, 255, 2});
                    }),
              0);
    EXPECT_EQ(runAs(CARPLAY, {OF_CARPLAY, OF_NOTIFICATIONS},
                    [] {
                      idl::bench::CpPublisher carPlay;
                      carPlay.initialise();
                      carPlay.put(0, {7, "Carla's"});
                      carPlay.setCurrentPhone(7);
                    }),
              0);
  }

  TempFolder saveFolder;
};

TEST_F(TablesWithGroupsOfTheirOwn, AreMadeWholeByTheirServicesAndListedWithoutALogLine) {
  const CapturedStdErr said;

  publishAll();
  const int listed = runAs(CLIENT, ALL_GROUPS, [] {
    LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
    list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
    list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY);
    list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP);
    std::vector<IntegratedDevice> phones;
    EXPECT_TRUE(list->getDeviceList(phones));
    ASSERT_EQ(phones.size(), 3U);
    EXPECT_EQ(phones[0].name, "Carla's");
    EXPECT_EQ(phones[1].name, "Android");
    EXPECT_EQ(phones[2].name, "Paired");
  });

  EXPECT_EQ(listed, 0);
  EXPECT_EQ(said.text(), "");
}

TEST_F(TablesWithGroupsOfTheirOwn, AreMadeWholeByAClientThatComesFirst) {
  const CapturedStdErr said;

  const int listed = runAs(CLIENT, ALL_GROUPS, [] {
    LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
    list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
    std::vector<IntegratedDevice> phones;
    EXPECT_TRUE(list->getDeviceList(phones));
    EXPECT_EQ(phones.size(), 10U);  // as every Bluetooth table reads that nobody has written
  });
  publishAll();

  EXPECT_EQ(listed, 0);
  EXPECT_EQ(said.text(), "");
}

TEST_F(TablesWithGroupsOfTheirOwn, AreWrittenByNoOtherService) {
  const CapturedStdErr said;

  const int tried = runAs(BLUETOOTH, {OF_BLUETOOTH, OF_NOTIFICATIONS}, [] {
    EXPECT_EQ(openForWriting("BtPairedDeviceList"), 0);
    EXPECT_EQ(openForWriting("LmLock.BtPairedDeviceList"), 0);
    for (const char* name : {"AapDeviceList", "LmLock.AapDeviceList", "LmSCarplayResource", "LmLock.LmSCarplayResource",
                             "FuncInfo", "LmLock.FuncInfo"}) {
      EXPECT_EQ(openForWriting(name), EACCES) << name;
    }
    const LmSharedMemory<idl::wire::AapDeviceList, 1> foreign(idl::wire::AAP_SEGMENT);
    EXPECT_EQ(foreign.data(), nullptr);
    EXPECT_FALSE(LmSharedSyncObject("AapDeviceList").lock()) << "another service's lock was taken";
  });

  EXPECT_EQ(tried, 0);
}

}  // namespace
