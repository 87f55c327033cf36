// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "IntegratedDeviceList/BtPairedDevice.h"

namespace {

using ::testing::Each;

static_assert(std::has_virtual_destructor_v<BtPairedDevice>);
static_assert(std::is_copy_constructible_v<BtPairedDevice> && std::is_copy_assignable_v<BtPairedDevice>);
static_assert(std::is_same_v<decltype(BtPairedDevice::id), std::uint8_t>);
static_assert(std::is_same_v<decltype(BtPairedDevice::name), char[81]>);
static_assert(std::is_same_v<decltype(BtPairedDevice::address), char[18]>);
static_assert(std::is_same_v<decltype(BtPairedDevice::info), std::uint32_t>);
static_assert(std::is_same_v<decltype(BtPairedDevice::flag1), std::uint8_t>);
static_assert(std::is_same_v<decltype(BtPairedDevice::flag2), std::uint8_t>);

/// Tells when it is destroyed as what it is.
struct Derived : BtPairedDevice {
  explicit Derived(bool& gone) : mGone(gone) {}
  Derived(const Derived&) = delete;
  Derived& operator=(const Derived&) = delete;
  ~Derived() override { mGone = true; }
  bool& mGone;
};

BtPairedDevice filled() {
  BtPairedDevice device;
  device.id = 7;
  std::memset(device.name, 'n', sizeof(device.name));
  std::memset(device.address, 'a', sizeof(device.address));
  device.info = 0xFEDCBA98;
  device.flag1 = 2;
  device.flag2 = 255;
  return device;
}

void expectFilled(const BtPairedDevice& device) {
  EXPECT_EQ(device.id, 7);
  EXPECT_THAT(device.name, Each('n'));
  EXPECT_THAT(device.address, Each('a'));
  EXPECT_EQ(device.info, 0xFEDCBA98U);
  EXPECT_EQ(device.flag1, 2);
  EXPECT_EQ(device.flag2, 255);
}

TEST(ADefaultBtPairedDevice, HasNoIdEmptyTextsAndFlag1Set) {
  const BtPairedDevice device;

  EXPECT_EQ(device.id, 255);
  EXPECT_THAT(device.name, Each('\0'));
  EXPECT_THAT(device.address, Each('\0'));
  EXPECT_EQ(device.info, 0U);
  EXPECT_EQ(device.flag1, 1);
  EXPECT_EQ(device.flag2, 0);
}

TEST(ABtPairedDevice, LaysItsFieldsOutInTheirOrder) {
  const BtPairedDevice device;
  const auto* const base = reinterpret_cast<const unsigned char*>(&device.id);

  EXPECT_EQ(reinterpret_cast<const unsigned char*>(device.name) - base, 1);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(device.address) - base, 82);
  EXPECT_EQ(
      reinterpret_cast<const unsigned char*>(&device.flag1) - reinterpret_cast<const unsigned char*>(&device.info), 4);
  EXPECT_EQ(&device.flag2 - &device.flag1, 1);
  EXPECT_GT(reinterpret_cast<const unsigned char*>(&device.info) - base, 99);
}

TEST(ABtPairedDevice, IsCopiedFieldByFieldWithTextsThatHaveNoEnd) {
  const BtPairedDevice original = filled();

  const auto copy = std::make_unique<BtPairedDevice>(original);
  BtPairedDevice assigned;
  assigned = original;

  expectFilled(*copy);
  expectFilled(assigned);
}

TEST(ABtPairedDevice, AssignedToItselfStaysAsItIs) {
  BtPairedDevice device = filled();
  const BtPairedDevice& itself = device;

  device = itself;

  expectFilled(device);
}

TEST(ABtPairedDevice, IsDestroyedWholeThroughItsBase) {
  bool gone = false;
  std::unique_ptr<BtPairedDevice> device = std::make_unique<Derived>(gone);

  device.reset();

  EXPECT_TRUE(gone);
}

}  // namespace
