// SPDX-License-Identifier: Apache-2.0
// A kernel with fs.protected_regular at 2 lets nobody open another user's file with O_CREAT in the shared-memory
// folder. The services of a unit are different users, so that is what every process meets there.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"
#include "support/Users.h"

namespace {

constexpr uid_t PUBLISHER = 1000;
constexpr uid_t CLIENT = 1001;
constexpr gid_t GROUP = 1000;
constexpr unsigned CHANGED = 100;
constexpr std::chrono::seconds WATCHDOG(60);

/// From one process to another: a byte says that the sender has come so far.
class Signal {
 public:
  Signal() { EXPECT_EQ(pipe(mEnds), 0); }
  ~Signal() {
    close(mEnds[0]);
    close(mEnds[1]);
  }

  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  void give() const { EXPECT_EQ(write(mEnds[1], "x", 1), 1); }

  /// False when nobody is left who could give it.
  bool await() {
    close(mEnds[1]);
    mEnds[1] = -1;
    char byte = 0;
    return read(mEnds[0], &byte, 1) == 1;
  }

 private:
  int mEnds[2] = {-1, -1};
};

void writePhone(idl::wire::BtSlot& slot, std::uint8_t id, const char* name) {
  slot.id = id;
  std::strncpy(slot.name, name, sizeof(slot.name) - 1);
}

int publish(Signal& published, Signal& clientListens) {
  become(PUBLISHER, {GROUP});
  LmSharedMemory<idl::wire::FuncInfoStruct, 1> functions(idl::wire::FUNC_INFO_SEGMENT);
  LmSharedMemory<idl::wire::AapDeviceList, 1> autoPhones(idl::wire::AAP_SEGMENT);
  LmSharedMemory<idl::wire::CarPlaySharedMemStruct, 1> carPlay(idl::wire::CARPLAY_SEGMENT);
  LmSharedMemory<idl::wire::BtPairedDeviceList, 1> pairings(idl::wire::BT_SEGMENT);
  LmSharedMemNotifier notifier(false);
  EXPECT_NE(pairings.data(), nullptr);
  {
    LmSyncGuard guard(pairings);
    for (idl::wire::BtSlot& slot : pairings.data()->slots) {
      writePhone(slot, 255, "");
    }
  }
  EXPECT_TRUE(notifier.Publish(CHANGED, nullptr, 0));  // nobody listens, but the ring now is this user's
  published.give();

  if (!clientListens.await()) {
    return 1;
  }
  {
    LmSyncGuard guard(pairings);
    writePhone(pairings.data()->slots[9], 4, "Another user's");
  }
  EXPECT_TRUE(notifier.Publish(CHANGED, nullptr, 0));
  return ::testing::Test::HasFailure() ? 1 : 0;
}

struct Listener {
  unsigned heard(unsigned id, void* /*data*/, unsigned /*size*/) {
    if (id == CHANGED && !done) {
      done = true;
      change.set_value();
    }
    return 0;
  }

  std::promise<void> change;
  bool done = false;  // the delivery thread's
};

void expectOwner(const char* name) {
  struct stat status = {};
  EXPECT_EQ(stat((std::string("/dev/shm/") + name).c_str(), &status), 0) << name;
  EXPECT_EQ(status.st_uid, PUBLISHER) << name;
}

void expectCreatingOpenIsForbidden(const char* name) {
  const int fd = shm_open((std::string("/") + name).c_str(), O_RDWR | O_CREAT, 0664);
  EXPECT_EQ(fd, -1) << name;
  EXPECT_EQ(errno, EACCES) << name;
}

int listPhones(const Signal& clientListens) {
  become(CLIENT, {GROUP});
  for (const char* name : {"BtPairedDeviceList", "AapDeviceList", "LmSCarplayResource", "FuncInfo",
                           "LmLock.BtPairedDeviceList", "LmSharedMemNotifier"}) {
    expectOwner(name);
    expectCreatingOpenIsForbidden(name);
  }

  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  Listener listener;
  LmObserver<Listener> observer(&listener, &Listener::heard);
  LmSharedMemNotifier notifier(false);
  const unsigned ids[] = {CHANGED};
  EXPECT_TRUE(notifier.AddObserver(&observer, ids, 1));
  clientListens.give();

  EXPECT_EQ(listener.change.get_future().wait_for(WATCHDOG), std::future_status::ready);
  const LmSharedSyncObject lock("BtPairedDeviceList");
  EXPECT_TRUE(lock.lock()) << "other processes are not excluded";
  EXPECT_TRUE(lock.unlock());
  list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
  EXPECT_TRUE(list->getDeviceList(phones));
  EXPECT_EQ(phones.size(), 1U);
  if (phones.size() == 1) {
    EXPECT_EQ(phones[0].name, "Another user's");
    EXPECT_EQ(unsigned{phones[0].btid}, 4U);
  }
  notifier.RemoveObserver(&observer);
  return ::testing::Test::HasFailure() ? 1 : 0;
}

class ThePublisherIsAnotherUser : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(geteuid(), 0U) << "run as root: two users are needed";
    int protection = -1;
    std::ifstream("/proc/sys/fs/protected_regular") >> protection;
    ASSERT_EQ(protection, 2) << "fs.protected_regular";
    struct stat status = {};
    ASSERT_EQ(stat("/dev/shm", &status), 0);
    ASSERT_EQ(status.st_mode & 07777U, 01777U) << "the mode of /dev/shm";
    std::filesystem::permissions(saveFolder.path(), std::filesystem::perms::all);
    setenv("LM_SAVE_FILE_DIR", saveFolder.path().c_str(), 1);
  }

  TempFolder saveFolder;
  Signal published;
  Signal clientListens;
};

TEST_F(ThePublisherIsAnotherUser, AndItsPhonesAreListed) {
  ChildProcess publisher([&] { return publish(published, clientListens); });
  ASSERT_TRUE(published.await());

  ChildProcess client([&] { return listPhones(clientListens); });

  EXPECT_EQ(client.wait(2 * WATCHDOG), 0);
  EXPECT_EQ(publisher.wait(WATCHDOG), 0);
}

}  // namespace
