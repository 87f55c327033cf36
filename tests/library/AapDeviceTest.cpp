// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "IntegratedDeviceList/AapDevice.h"

namespace {

using ::testing::Each;

static_assert(std::has_virtual_destructor_v<AapDevice>);
static_assert(std::is_copy_constructible_v<AapDevice> && std::is_copy_assignable_v<AapDevice>);
static_assert(std::is_same_v<decltype(AapDevice::session), std::uint8_t>);
static_assert(std::is_same_v<decltype(AapDevice::name), char[257]>);
static_assert(std::is_same_v<decltype(AapDevice::id), char[257]>);
static_assert(std::is_same_v<decltype(AapDevice::btid), std::uint8_t>);
static_assert(std::is_same_v<decltype(AapDevice::port), std::int32_t>);

/// Tells when it is destroyed as what it is.
struct Derived : AapDevice {
  explicit Derived(bool& gone) : mGone(gone) {}
  Derived(const Derived&) = delete;
  Derived& operator=(const Derived&) = delete;
  ~Derived() override { mGone = true; }
  bool& mGone;
};

AapDevice filled() {
  AapDevice device;
  device.session = 200;
  std::memset(device.name, 'n', sizeof(device.name));
  std::memset(device.id, 'i', sizeof(device.id));
  device.btid = 7;
  device.port = INT32_MIN;
  return device;
}

void expectFilled(const AapDevice& device) {
  EXPECT_EQ(device.session, 200);
  EXPECT_THAT(device.name, Each('n'));
  EXPECT_THAT(device.id, Each('i'));
  EXPECT_EQ(device.btid, 7);
  EXPECT_EQ(device.port, INT32_MIN);
}

TEST(ADefaultAapDevice, IsNotPairedNotConnectedAndHasEmptyTexts) {
  const AapDevice device;

  EXPECT_EQ(device.session, 0);
  EXPECT_THAT(device.name, Each('\0'));
  EXPECT_THAT(device.id, Each('\0'));
  EXPECT_EQ(device.btid, 255);
  EXPECT_EQ(device.port, 0);
}

TEST(AnAapDevice, LaysItsFieldsOutInTheirOrder) {
  const AapDevice device;
  const auto* const base = reinterpret_cast<const unsigned char*>(&device.session);

  EXPECT_EQ(reinterpret_cast<const unsigned char*>(device.name) - base, 1);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(device.id) - base, 258);
  EXPECT_EQ(&device.btid - base, 515);
  EXPECT_GE(reinterpret_cast<const unsigned char*>(&device.port) - base, 516);
}

TEST(AnAapDevice, IsCopiedFieldByFieldWithTextsThatHaveNoEnd) {
  const AapDevice original = filled();

  const auto copy = std::make_unique<AapDevice>(original);
  AapDevice assigned;
  assigned = original;

  expectFilled(*copy);
  expectFilled(assigned);
}

TEST(AnAapDevice, AssignedToItselfStaysAsItIs) {
  AapDevice device = filled();
  const AapDevice& itself = device;

  device = itself;

  expectFilled(device);
}

TEST(AnAapDevice, IsDestroyedWholeThroughItsBase) {
  bool gone = false;
  std::unique_ptr<AapDevice> device = std::make_unique<Derived>(gone);

  device.reset();

  EXPECT_TRUE(gone);
}

}  // namespace
