// SPDX-License-Identifier: Apache-2.0
// Every single allocation of every operation fails once: the caller gets std::bad_alloc, nothing leaks, no lock stays
// held, and the list and the numbers are those of the last complete refresh.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "SysDataIDLSuffix.h"
#include "support/LogCapture.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"
#include "support/SegmentTest.h"

namespace {

std::atomic<long> liveAllocations{0};

// Of the thread under test alone: other threads' allocations neither fail nor count towards a failure.
thread_local unsigned allocationsUntilFailure = 0;  // 0: none fails

void* allocate(std::size_t size) {
  if (allocationsUntilFailure != 0 && --allocationsUntilFailure == 0) {
    return nullptr;
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr) {
    ++liveAllocations;
  }
  return memory;
}

void* allocateOrThrow(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

void release(void* memory) {
  if (memory != nullptr) {
    --liveAllocations;
    std::free(memory);
  }
}

}  // namespace

void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { release(memory); }

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::ElementsAre;

using List = std::vector<IntegratedDevice>;

// Long enough that no string keeps it inside itself.
const std::string NAME = "A phone with a name that is rather long";

/// What became of an operation of which one allocation was to fail.
enum class Outcome {
  THREW,    // std::bad_alloc
  FAILED,   // an allocation failed and the operation got by without it
  NO_MORE,  // it has fewer allocations than that
};

Outcome withFailure(unsigned allocation, const std::function<void()>& operation) {
  Outcome outcome = Outcome::NO_MORE;
  allocationsUntilFailure = allocation;
  try {
    operation();
    outcome = allocationsUntilFailure == 0 ? Outcome::FAILED : Outcome::NO_MORE;
  } catch (const std::bad_alloc&) {
    outcome = Outcome::THREW;
  }
  allocationsUntilFailure = 0;
  return outcome;
}

/// Runs on a thread of its own, which gets no lock that the calling thread still holds.
void onAnotherThread(const std::function<void()>& operation) {
  std::thread thread(operation);
  thread.join();
}

std::vector<std::string> told(const List& list) {
  std::vector<std::string> texts;
  texts.reserve(list.size());
  for (const IntegratedDevice& device : list) {
    texts.push_back(std::to_string(device.btid) + " " + device.name);
  }
  return texts;
}

/// Whether the suffix file has one record, of a phone with this Bluetooth id.
bool holdsOnePhone(const SaveFolder& folder, char btid) {
  const std::string file = folder.contents("IDLSuffix.ini");
  return file.size() == 2630 && file[0] == 1 && file[1] == btid && file[263] == 0;
}

class AnyAllocation : public SegmentTest {
 protected:
  // The finalizer keeps one small registration for each singleton that was ever made: the list itself, and the three
  // that a started list needs for its file.
  static constexpr long MADE_WITH_THE_LIST = 1;
  static constexpr long MADE_WITH_A_STARTED_LIST = 4;

  AnyAllocation() {
    // Whatever the framework makes once in a process is made now.
    begin();
    refreshAll();
    end();
  }

  ~AnyAllocation() override { end(); }

  void begin() {
    list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
  }

  void refreshAll() {
    list->updateDeviceList(DEVICE_TYPE_CARPLAY);
    list->updateDeviceList(DEVICE_TYPE_AAP);
    list->updateDeviceList(DEVICE_TYPE_BT);
  }

  void end() {
    LmSIntegratedDeviceList::destroy();
    SaveFolder::letGo();
    SysDataIDLSuffix::destroy();
  }

  std::vector<std::string> names() {
    List phones;
    onAnotherThread([&] { EXPECT_TRUE(list->getDeviceList(phones)); });
    return told(phones);
  }

  /// The Bluetooth ids of the paired phones, all of one name; up to four.
  void pair(const std::vector<unsigned>& ids) {
    for (unsigned slot = 0; slot < 4; ++slot) {
      if (slot < ids.size()) {
        btTable.phone(slot, ids[slot], NAME);
      } else {
        btTable.clear(slot);
      }
    }
  }

  /// `operation` begins after begin() and two phones, of ids 1 and 2 and numbers 1 and 2; it is to take phones of the
  /// ids 2, 3 and 4 in. Then the next refresh takes in 3, 2 and 1, and numbers them as if it never had been.
  void expectARefreshToSurvive(const std::function<void()>& prepare, const std::function<void()>& operation) {
    unsigned thrown = 0;
    Outcome outcome = Outcome::THREW;
    for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
      SCOPED_TRACE(allocation);
      const SaveFolder folder;
      pair({1, 2});
      aapTable.clear(0);
      cpTable.clear(0);
      const long before = liveAllocations;
      begin();
      refreshAll();
      ASSERT_THAT(names(), ElementsAre("1 " + NAME, "2 " + NAME + " 2"));

      pair({2, 3, 4});
      prepare();
      outcome = withFailure(allocation, operation);

      if (outcome == Outcome::THREW) {
        ++thrown;
        EXPECT_THAT(names(), ElementsAre("1 " + NAME, "2 " + NAME + " 2"));
        pair({3, 2, 1});
        aapTable.clear(0);
        cpTable.clear(0);
        onAnotherThread([&] {
          operation();  // what its adapter had taken in when memory ran out is no table that ever was
          refreshAll();
        });
        EXPECT_THAT(names(), ElementsAre("1 " + NAME, "2 " + NAME + " 2", "3 " + NAME + " 3"));
      }
      end();
      EXPECT_EQ(liveAllocations, before + MADE_WITH_A_STARTED_LIST);
    }
    EXPECT_GT(thrown, 5U);
  }

  /// Phones of all sources, of which `change` adds one to the source `failing`. The refresh that is to take it in
  /// fails; what is told of `other` next has to give the list that there would be had it not failed.
  void expectTheNextSourceToMakeUpFor(DeviceType failing, DeviceType other, const std::function<void()>& change) {
    const auto publish = [this] {
      pair({1, 2});
      aapTable.phone(0, NAME, NAME, 255, 2);
      aapTable.clear(1);
      cpTable.phone(0, 77, NAME, 0);
      cpTable.connect(77 + (std::uint64_t{1} << 41));
      cpTable.clear(1);
    };
    std::vector<std::string> before;
    std::vector<std::string> after;
    {
      const SaveFolder folder;
      publish();
      begin();
      refreshAll();
      before = names();
      change();
      list->updateDeviceList(failing);
      after = names();
      end();
    }
    ASSERT_EQ(before.size(), 4U);
    ASSERT_EQ(after.size(), 5U);

    unsigned thrown = 0;
    Outcome outcome = Outcome::THREW;
    for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
      SCOPED_TRACE(allocation);
      const SaveFolder folder;
      publish();
      begin();
      refreshAll();
      ASSERT_EQ(names(), before);

      change();
      outcome = withFailure(allocation, [&] { list->updateDeviceList(failing); });

      if (outcome == Outcome::THREW) {
        ++thrown;
        EXPECT_EQ(names(), before);
        onAnotherThread([&] { list->updateDeviceList(other); });
        EXPECT_EQ(names(), after);
      }
      end();
    }
    EXPECT_GT(thrown, 10U);
  }

  SaveFolder outerFolder;
  LogCapture log;
  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceList* list = nullptr;
};

TEST_F(AnyAllocation, ThatFailsWhileTheListIsMadeLeavesNothingBehind) {
  unsigned thrown = 0;
  Outcome outcome = Outcome::THREW;
  for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
    SCOPED_TRACE(allocation);
    const long before = liveAllocations;

    outcome = withFailure(allocation, [] { LmSIntegratedDeviceList::getInstance(); });

    if (outcome == Outcome::THREW) {
      ++thrown;
      EXPECT_EQ(mappings("/BtPairedDeviceList") + mappings("/LmSCarplayResource") + mappings("/AapDeviceList"), 0U);
      onAnotherThread([] { LmSIntegratedDeviceList::getInstance()->initialize(); });
    }
    end();
    EXPECT_EQ(liveAllocations, before + MADE_WITH_THE_LIST);
  }
  EXPECT_GT(thrown, 10U);
}

TEST_F(AnyAllocation, ThatFailsWhileFuncInfoIsReadLeavesItToBeReadAgain) {
  unsigned thrown = 0;
  Outcome outcome = Outcome::THREW;
  funcInfoTable.awaitBluetooth();
  for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
    SCOPED_TRACE(allocation);
    const long before = liveAllocations;
    list = LmSIntegratedDeviceList::getInstance();

    outcome = withFailure(allocation, [this] { list->initialize(); });

    if (outcome == Outcome::THREW) {
      ++thrown;
      List phones;
      onAnotherThread([&] {
        list->initialize();
        list->updateDeviceList(DEVICE_TYPE_AAP);
        EXPECT_FALSE(list->getDeviceList(phones));
        list->updateDeviceList(DEVICE_TYPE_BT);
        EXPECT_TRUE(list->getDeviceList(phones));
      });
    }
    end();
    EXPECT_EQ(liveAllocations, before + (outcome == Outcome::THREW ? MADE_WITH_A_STARTED_LIST : MADE_WITH_THE_LIST));
  }
  EXPECT_GT(thrown, 0U);
}

TEST_F(AnyAllocation, ThatFailsInTheFirstRefreshLeavesTheStoredNumbersToBeLoaded) {
  unsigned thrown = 0;
  Outcome outcome = Outcome::THREW;
  for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
    SCOPED_TRACE(allocation);
    const SaveFolder folder;
    pair({1, 2});
    const long before = liveAllocations;
    begin();
    refreshAll();
    end();
    pair({2});
    begin();

    outcome = withFailure(allocation, [this] { list->updateDeviceList(DEVICE_TYPE_BT); });

    if (outcome == Outcome::THREW) {
      ++thrown;
      onAnotherThread([this] { list->updateDeviceList(DEVICE_TYPE_BT); });
    }
    EXPECT_THAT(names(), ElementsAre("2 " + NAME + " 2"));
    EXPECT_TRUE(holdsOnePhone(folder, 2));
    end();
    EXPECT_EQ(liveAllocations, before + 2 * MADE_WITH_A_STARTED_LIST);
  }
  EXPECT_GT(thrown, 10U);
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfBluetoothLeavesTheLastCompleteOne) {
  expectARefreshToSurvive([] {}, [this] { list->updateDeviceList(DEVICE_TYPE_BT); });
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfAndroidAutoLeavesTheLastCompleteOne) {
  expectARefreshToSurvive([this] { aapTable.phone(0, NAME, NAME, 255, 1); },
                          [this] { list->updateDeviceList(DEVICE_TYPE_AAP); });
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfCarPlayLeavesTheLastCompleteOne) {
  expectARefreshToSurvive(
      [this] {
        cpTable.phone(0, 77, NAME, 2);
        cpTable.connect(77);
      },
      [this] { list->updateDeviceList(DEVICE_TYPE_CARPLAY); });
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfBluetoothIsMadeUpForByTheNextOfAnotherSource) {
  const auto pairAThird = [this] { pair({1, 2, 3}); };

  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_BT, DEVICE_TYPE_AAP, pairAThird);
  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, pairAThird);
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfAndroidAutoIsMadeUpForByTheNextOfAnotherSource) {
  const auto attachAnother = [this] { aapTable.phone(1, NAME, NAME, 255, 3); };

  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_AAP, DEVICE_TYPE_BT, attachAnother);
  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_AAP, DEVICE_TYPE_CARPLAY, attachAnother);
}

TEST_F(AnyAllocation, ThatFailsInARefreshOfCarPlayIsMadeUpForByTheNextOfAnotherSource) {
  const auto attachAnother = [this] { cpTable.phone(1, 78, NAME, 0); };

  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_CARPLAY, DEVICE_TYPE_BT, attachAnother);
  expectTheNextSourceToMakeUpFor(DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP, attachAnother);
}

TEST_F(AnyAllocation, ThatFailsWhileTheListIsReadLeavesItToBeReadAgain) {
  pair({1, 2});
  begin();
  refreshAll();
  unsigned thrown = 0;
  Outcome outcome = Outcome::THREW;
  for (unsigned allocation = 1; outcome != Outcome::NO_MORE; ++allocation) {
    SCOPED_TRACE(allocation);
    const long before = liveAllocations;
    {
      List phones;

      outcome = withFailure(allocation, [&] { list->getDeviceList(phones); });

      if (outcome == Outcome::THREW) {
        ++thrown;
        EXPECT_THAT(names(), ElementsAre("1 " + NAME, "2 " + NAME + " 2"));
      }
    }
    EXPECT_EQ(liveAllocations, before);
  }
  EXPECT_GT(thrown, 2U);
}

}  // namespace
