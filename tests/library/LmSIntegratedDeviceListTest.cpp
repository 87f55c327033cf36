// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "SysDataIDLSuffix.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"
#include "support/SegmentTest.h"

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using List = std::vector<IntegratedDevice>;

static_assert(std::has_virtual_destructor_v<LmSIntegratedDeviceList>);
static_assert(std::is_base_of_v<LmSingleton<LmSIntegratedDeviceList>, LmSIntegratedDeviceList>);
static_assert(!std::is_copy_constructible_v<LmSIntegratedDeviceList>);

std::vector<std::string> namesOf(const List& list) {
  std::vector<std::string> names;
  names.reserve(list.size());
  for (const IntegratedDevice& device : list) {
    names.push_back(device.name);
  }
  return names;
}

class AFacade : public SegmentTest {
 protected:
  AFacade() { list = LmSIntegratedDeviceList::getInstance(); }
  ~AFacade() override { endOfProcess(); }

  static void endOfProcess() {
    LmSIntegratedDeviceList::destroy();
    SaveFolder::letGo();
    SysDataIDLSuffix::destroy();
  }

  std::vector<std::string> names() {
    List phones;
    EXPECT_TRUE(list->getDeviceList(phones));
    return namesOf(phones);
  }

  SaveFolder folder;
  LogCapture log;
  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceList* list = nullptr;
};

TEST_F(AFacade, GoesFromConstructedToInitializedToStarted) {
  List phones(1);
  EXPECT_FALSE(list->getDeviceList(phones));
  list->updateDeviceList(DEVICE_TYPE_BT);
  EXPECT_EQ(log.count("not initialized."), 2U);

  list->initialize();
  EXPECT_FALSE(list->getDeviceList(phones));
  EXPECT_THAT(phones, SizeIs(1));

  btTable.phone(0, 3, "Phone");
  list->updateDeviceList(DEVICE_TYPE_BT);
  EXPECT_TRUE(list->getDeviceList(phones));
  EXPECT_THAT(namesOf(phones), ElementsAre("Phone"));
  EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(AFacade, WaitsForBluetoothWhereTheUnitHasIt) {
  funcInfoTable.awaitBluetooth();
  list->initialize();
  List phones;

  list->updateDeviceList(DEVICE_TYPE_CARPLAY);
  EXPECT_FALSE(list->getDeviceList(phones));
  list->updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_TRUE(list->getDeviceList(phones));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AFacade, DoesNotLookAtFuncInfoInASecondInitialize) {
  list->initialize();
  funcInfoTable.awaitBluetooth();

  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AFacade, IgnoresAnUnknownSourceSilently) {
  list->initialize();
  btTable.phone(0, 3, "Phone");
  list->updateDeviceList(DEVICE_TYPE_BT);
  btTable.clear(0);

  list->updateDeviceList(static_cast<DeviceType>(3));

  EXPECT_THAT(names(), ElementsAre("Phone"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AFacade, NumbersInTheCallersFormat) {
  EXPECT_TRUE(list->setFormat(
      [](const std::string& name, unsigned char suffix) { return name + "#" + std::to_string(suffix); }));
  list->initialize();
  btTable.phone(0, 3, "Phone");
  btTable.phone(1, 4, "Phone");

  list->updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_THAT(names(), ElementsAre("Phone#1", "Phone#2"));
}

// The format is a plain function, hence what it does is said outside.
std::atomic<bool> formatThrows{false};

std::string formatThatMayThrow(const std::string& name, unsigned char suffix) {
  if (formatThrows) {
    throw std::runtime_error("no format");
  }
  return name + "#" + std::to_string(suffix);
}

TEST_F(AFacade, OutlivesAFormatThatThrows) {
  formatThrows = false;
  ASSERT_TRUE(list->setFormat(&formatThatMayThrow));
  list->initialize();
  btTable.phone(0, 3, "Phone");
  list->updateDeviceList(DEVICE_TYPE_BT);
  btTable.phone(1, 4, "Phone");

  formatThrows = true;
  EXPECT_THROW(list->updateDeviceList(DEVICE_TYPE_BT), std::runtime_error);

  EXPECT_THAT(names(), ElementsAre("Phone#1"));
  std::thread other([this] { EXPECT_THAT(names(), ElementsAre("Phone#1")); });  // gets no mutex that is still held
  other.join();
  formatThrows = false;
  list->updateDeviceList(DEVICE_TYPE_BT);
  EXPECT_THAT(names(), ElementsAre("Phone#1", "Phone#2"));
}

TEST_F(AFacade, KeepsTheNumbersOfPairedPhonesOverARestart) {
  btTable.phone(0, 3, "Phone");
  btTable.phone(1, 4, "Phone");
  aapTable.phone(0, "Phone", "id", 255, 1);
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  list->updateDeviceList(DEVICE_TYPE_AAP);
  ASSERT_THAT(names(), ElementsAre("Phone 3", "Phone", "Phone 2"));

  endOfProcess();
  btTable.clear(0);
  list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  list->updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(names(), ElementsAre("Phone", "Phone 2"));
}

TEST_F(AFacade, ForgetsTheStoredNumbersWhenAnotherSourceThanBluetoothIsReportedFirst) {
  btTable.phone(0, 3, "Phone");
  btTable.phone(1, 4, "Phone");
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  endOfProcess();
  btTable.clear(0);
  list = LmSIntegratedDeviceList::getInstance();
  list->initialize();

  list->updateDeviceList(DEVICE_TYPE_AAP);
  list->updateDeviceList(DEVICE_TYPE_BT);

  EXPECT_THAT(names(), ElementsAre("Phone"));
}

// --- Many threads -----------------------------------------------------------------------------------------------

constexpr unsigned STATES = 10;

/// State k has k + 1 phones, "k.0" to "k.k", with all names different.
void publish(BtTable& table, unsigned state) {
  for (unsigned slot = 0; slot < 10; ++slot) {
    if (slot <= state) {
      table.phone(slot, slot, std::to_string(state) + "." + std::to_string(slot));
    } else {
      table.clear(slot);
    }
  }
}

/// The state that `list` shows; STATES when it is none of them.
unsigned stateOf(const List& list) {
  if (list.empty() || list.size() > STATES) {
    return STATES;
  }
  const auto state = static_cast<unsigned>(list.size() - 1);
  for (unsigned i = 0; i < list.size(); ++i) {
    const IntegratedDevice& device = list[i];
    if (device.name != std::to_string(state) + "." + std::to_string(i) || device.btid != i || device.suffix != 1 ||
        device.btDevice.id != i || device.name != device.btDevice.name) {
      return STATES;
    }
  }
  return state;
}

class EightThreads : public AFacade {
 protected:
  static constexpr unsigned MIN_ROUNDS = 50;
  static constexpr std::size_t MIN_STATES_SEEN = 3;

  /// What one of the threads does: everything, again and again.
  void callEverything(unsigned self) {
    static constexpr DeviceType types[] = {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP};
    for (unsigned round = 0; round < MIN_ROUNDS || (!seenEnough() && !timeIsOver()); ++round) {
      LmSIntegratedDeviceList* const mine = LmSIntegratedDeviceList::getInstance();
      mine->initialize();
      mine->updateDeviceList(types[(self + round) % 3]);
      List phones;
      if (mine->getDeviceList(phones)) {
        note(stateOf(phones));
      }
      if (round % 8 == 0) {
        mine->setFormat(nullptr);
      }
    }
  }

  void note(unsigned state) {
    const std::lock_guard<std::mutex> guard(mutex);
    seen.insert(state);
  }

  bool seenEnough() {
    const std::lock_guard<std::mutex> guard(mutex);
    return seen.size() >= MIN_STATES_SEEN;
  }

  bool timeIsOver() const { return std::chrono::steady_clock::now() > deadline; }

  const std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  std::mutex mutex;
  std::set<unsigned> seen;
};

TEST_F(EightThreads, SeeOnlyListsThatThePublisherHasPublished) {
  publish(btTable, 0);
  funcInfoTable.awaitBluetooth();
  ChildProcess publisher([] {
    const LmSharedSyncObject lock("BtPairedDeviceList");
    RawSegment shared("/BtPairedDeviceList");
    for (unsigned state = 0;; state = (state + 1) % STATES) {
      const LmSyncGuard guard(lock);
      for (unsigned slot = 0; slot < 10; ++slot) {
        // Byte by byte where it hurts most: a reader without the lock would see halves.
        shared.put8(4 + 112 * slot + 4, 255);
        shared.putText(4 + 112 * slot + 5, std::to_string(state) + "." + std::to_string(slot));
        shared.put8(4 + 112 * slot + 4, slot <= state ? slot : 255);
      }
    }
    return 0;
  });

  std::vector<std::thread> threads;
  threads.reserve(8);
  for (unsigned i = 0; i < 8; ++i) {
    threads.emplace_back([this, i] { callEverything(i); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(seen.count(STATES), 0U) << "a list that was never published";
  EXPECT_GE(seen.size(), MIN_STATES_SEEN);
  publisher.signal(SIGKILL);
  EXPECT_EQ(publisher.wait(), -SIGKILL);
}

TEST_F(EightThreads, AllGetTheOneFacadeThatIsMade) {
  for (unsigned round = 0; round < 50; ++round) {
    endOfProcess();
    std::atomic<unsigned> arrived{0};
    std::vector<LmSIntegratedDeviceList*> got(8);
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (unsigned i = 0; i < 8; ++i) {
      threads.emplace_back([&arrived, &got, i] {
        ++arrived;
        while (arrived < 8) {
          std::this_thread::yield();
        }
        got[i] = LmSIntegratedDeviceList::getInstance();
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }

    EXPECT_THAT(got, testing::Each(LmSIntegratedDeviceList::getInstance()));
  }
}

}  // namespace
