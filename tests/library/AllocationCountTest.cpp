// SPDX-License-Identifier: Apache-2.0
// How often memory is allocated: not at all where as many phones are read or refreshed as before.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"
#include "support/SegmentTest.h"

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// The other forms come down to these.
void* operator new(std::size_t size) {
  ++allocations;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
// Not in line: there GCC sees that what operator new gave is freed, and takes it for a mistake.
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr DeviceType SOURCES[] = {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP};
constexpr unsigned MOST_BT = idl::wire::BtPairedDeviceList::SLOT_COUNT;
constexpr unsigned MOST_CP = idl::wire::CarPlaySharedMemStruct::PHONE_COUNT;
constexpr unsigned MOST_AAP = idl::wire::AapDeviceList::SLOT_COUNT;
constexpr unsigned MOST_PHONES = MOST_BT + MOST_CP + MOST_AAP;

template <class Operation>
std::size_t allocationsOf(Operation operation) {
  const std::size_t before = allocations;
  operation();
  return allocations - before;
}

class AKnownList : public SegmentTest {
 protected:
  AKnownList() {
    list->initialize();
    cpTable.connect(std::uint64_t{1} << 41);  // all are attached
  }

  ~AKnownList() override { LmSIntegratedDeviceList::destroy(); }

  /// Lists `count` phones, all named `name`, or each with a number of its own behind that; refreshed until nothing is
  /// new any more.
  void fill(unsigned count, const std::string& name, bool isAlike) {
    for (unsigned i = 0; i < MOST_PHONES; ++i) {
      put(i, i < count, isAlike ? name : name + std::to_string(100 + i));
    }
    for (int round = 0; round < 3; ++round) {
      for (const DeviceType source : SOURCES) {
        list->updateDeviceList(source);
      }
    }
  }

  std::vector<IntegratedDevice> phones() {
    std::vector<IntegratedDevice> read;
    EXPECT_TRUE(list->getDeviceList(read));
    return read;
  }

  const SaveFolder folder;
  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();

 private:
  void put(unsigned index, bool isThere, const std::string& name) {
    if (index < MOST_BT) {
      isThere ? btTable.phone(index, index, name) : btTable.clear(index);
    } else if (index < MOST_BT + MOST_AAP) {
      const unsigned slot = index - MOST_BT;
      isThere ? aapTable.phone(slot, name, "id", 255, static_cast<std::int32_t>(slot) + 2) : aapTable.clear(slot);
    } else {
      const unsigned slot = index - MOST_BT - MOST_AAP;
      isThere ? cpTable.phone(slot, 1 + slot, name, 0) : cpTable.clear(slot);
    }
  }
};

const std::string SHORT_NAME = "Phone";
const std::string LONG_NAME = "A phone with a name that no string keeps inside itself";

TEST_F(AKnownList, IsReadIntoAVectorOfItsLengthWithoutAnAllocation) {
  fill(MOST_PHONES, SHORT_NAME, true);
  std::vector<IntegratedDevice> old = phones();
  ASSERT_EQ(old.size(), MOST_PHONES);

  EXPECT_EQ(allocationsOf([&] { list->getDeviceList(old); }), 0U);
}

TEST_F(AKnownList, OfLongNamesIsReadIntoAVectorThatHasRoomForThemWithoutAnAllocation) {
  fill(MOST_PHONES, LONG_NAME, false);
  std::vector<IntegratedDevice> old = phones();
  ASSERT_EQ(old.size(), MOST_PHONES);

  EXPECT_EQ(allocationsOf([&] { list->getDeviceList(old); }), 0U);
}

TEST_F(AKnownList, IsReadIntoANewVectorWithOneAllocation) {
  fill(MOST_PHONES, SHORT_NAME, true);
  std::vector<IntegratedDevice> read;

  EXPECT_EQ(allocationsOf([&] { list->getDeviceList(read); }), 1U);
}

TEST_F(AKnownList, IsRefreshedWithoutAnAllocationHoweverManyPhonesItHas) {
  for (const bool isAlike : {false, true}) {
    for (unsigned count = 0; count <= MOST_PHONES; ++count) {
      fill(count, SHORT_NAME, isAlike);
      ASSERT_EQ(phones().size(), count);
      for (const DeviceType source : SOURCES) {
        SCOPED_TRACE(testing::Message() << count << " phones, source " << source);

        EXPECT_EQ(allocationsOf([&] { list->updateDeviceList(source); }), 0U);
      }
    }
  }
}

TEST_F(AKnownList, IsSavedWithAsManyAllocationsHoweverManyPhonesAreSaved) {
  const auto allocationsOfASave = [this](unsigned count) {
    fill(count, SHORT_NAME, false);
    btTable.phone(0, 0, "Renamed");
    return allocationsOf([this] { list->updateDeviceList(DEVICE_TYPE_BT); });
  };
  const std::size_t withOne = allocationsOfASave(1);

  EXPECT_EQ(allocationsOfASave(MOST_BT), withOne);
  EXPECT_EQ(allocationsOfASave(MOST_PHONES), withOne);
}

}  // namespace
