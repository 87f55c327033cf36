// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "IntegratedDeviceList/idl.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using ::testing::Each;
using ::testing::IsEmpty;

static_assert(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT == 0);
static_assert(LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY == 1);
static_assert(LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP == 2);
static_assert(sizeof(DeviceType) == 4);
static_assert(std::is_base_of_v<DeviceInfo, IntegratedDevice>);
static_assert(!std::is_trivially_destructible_v<DeviceInfo> && !std::is_polymorphic_v<DeviceInfo>);
static_assert(!std::is_polymorphic_v<IntegratedDevice>);
static_assert(std::is_nothrow_move_constructible_v<IntegratedDevice>, "lists grow by moving");
static_assert(std::is_same_v<decltype(DeviceInfo::btid), std::uint8_t>);
static_assert(std::is_same_v<decltype(DeviceInfo::port), std::int32_t>);
static_assert(std::is_same_v<decltype(DeviceInfo::session), std::uint8_t>);
static_assert(std::is_same_v<decltype(DeviceInfo::cpDeviceId), std::uint64_t>);
static_assert(std::is_same_v<decltype(DeviceInfo::suffix), std::uint8_t>);

template <class Record>
std::string bytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

template <class Member, class Whole>
std::ptrdiff_t place(const Member& member, const Whole& whole) {
  return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&whole);
}

IntegratedDevice filled() {
  IntegratedDevice device;
  device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
  device.name = std::string(200, 'N');
  device.btid = 9;
  device.port = INT32_MIN;
  device.session = 255;
  device.cpDeviceId = UINT64_MAX;
  device.aapId = std::string(300, 'A');
  device.suffix = 254;
  device.btDevice.id = 9;
  std::memset(device.btDevice.name, 'b', sizeof(device.btDevice.name));
  std::memset(device.btDevice.address, 'c', sizeof(device.btDevice.address));
  device.btDevice.info = 0xFFFFFFFF;
  device.btDevice.flag1 = 77;
  device.btDevice.flag2 = 78;
  auto* const atom = reinterpret_cast<unsigned char*>(&device.cpDevice);
  for (unsigned i = 0; i < 296; ++i) {
    atom[i] = static_cast<unsigned char>(i + 1);
  }
  device.aapDevice.session = 5;
  std::memset(device.aapDevice.name, 'd', sizeof(device.aapDevice.name));
  std::memset(device.aapDevice.id, 'e', sizeof(device.aapDevice.id));
  device.aapDevice.btid = 6;
  device.aapDevice.port = INT32_MAX;
  return device;
}

void expectEqual(const IntegratedDevice& actual, const IntegratedDevice& expected) {
  EXPECT_EQ(actual.type, expected.type);
  EXPECT_EQ(actual.name, expected.name);
  EXPECT_EQ(actual.btid, expected.btid);
  EXPECT_EQ(actual.port, expected.port);
  EXPECT_EQ(actual.session, expected.session);
  EXPECT_EQ(actual.cpDeviceId, expected.cpDeviceId);
  EXPECT_EQ(actual.aapId, expected.aapId);
  EXPECT_EQ(actual.suffix, expected.suffix);
  EXPECT_EQ(actual.btDevice.id, expected.btDevice.id);
  EXPECT_EQ(bytesOf(actual.btDevice.name), bytesOf(expected.btDevice.name));
  EXPECT_EQ(bytesOf(actual.btDevice.address), bytesOf(expected.btDevice.address));
  EXPECT_EQ(actual.btDevice.info, expected.btDevice.info);
  EXPECT_EQ(actual.btDevice.flag1, expected.btDevice.flag1);
  EXPECT_EQ(actual.btDevice.flag2, expected.btDevice.flag2);
  EXPECT_EQ(bytesOf(actual.cpDevice), bytesOf(expected.cpDevice));
  EXPECT_EQ(actual.aapDevice.session, expected.aapDevice.session);
  EXPECT_EQ(bytesOf(actual.aapDevice.name), bytesOf(expected.aapDevice.name));
  EXPECT_EQ(bytesOf(actual.aapDevice.id), bytesOf(expected.aapDevice.id));
  EXPECT_EQ(actual.aapDevice.btid, expected.aapDevice.btid);
  EXPECT_EQ(actual.aapDevice.port, expected.aapDevice.port);
}

TEST(ADefaultDeviceInfo, IsABluetoothRecordOfNothing) {
  const DeviceInfo info;

  EXPECT_EQ(info.type, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  EXPECT_THAT(info.name, IsEmpty());
  EXPECT_EQ(info.btid, 255);
  EXPECT_EQ(info.port, 0);
  EXPECT_EQ(info.session, 0);
  EXPECT_EQ(info.cpDeviceId, 0U);
  EXPECT_THAT(info.aapId, IsEmpty());
  EXPECT_EQ(info.suffix, 0);
}

TEST(ADefaultIntegratedDevice, IsNeitherPairedNorConnectedNorAndroidAuto) {
  const IntegratedDevice device;

  EXPECT_EQ(device.type, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  EXPECT_FALSE(idl::isBtPaired(device));
  EXPECT_FALSE(idl::isUsbConnected(device));
  EXPECT_FALSE(idl::isUsbConnectedOnly(device));
  EXPECT_FALSE(idl::isAAPDevice(device));
}

TEST(ADefaultIntegratedDevice, HasTheDefaultsOfAllThreeSourceRecords) {
  const IntegratedDevice device;

  EXPECT_EQ(device.btDevice.id, 255);
  EXPECT_THAT(device.btDevice.name, Each('\0'));
  EXPECT_THAT(device.btDevice.address, Each('\0'));
  EXPECT_EQ(device.btDevice.info, 0U);
  EXPECT_EQ(device.btDevice.flag1, 1);
  EXPECT_EQ(device.btDevice.flag2, 0);
  EXPECT_EQ(bytesOf(device.cpDevice), std::string(296, '\0'));
  EXPECT_EQ(device.aapDevice.session, 0);
  EXPECT_THAT(device.aapDevice.name, Each('\0'));
  EXPECT_THAT(device.aapDevice.id, Each('\0'));
  EXPECT_EQ(device.aapDevice.btid, 255);
  EXPECT_EQ(device.aapDevice.port, 0);
}

TEST(AnIntegratedDevice, KeepsItsMembersInTheirOrderBehindTheHeader) {
  const IntegratedDevice device;
  const DeviceInfo& header = device;

  EXPECT_EQ(place(header, device), 0);
  EXPECT_EQ(place(device.type, device), 0);
  EXPECT_LT(place(device.type, device), place(device.name, device));
  EXPECT_LT(place(device.name, device), place(device.btid, device));
  EXPECT_LT(place(device.btid, device), place(device.port, device));
  EXPECT_LT(place(device.port, device), place(device.session, device));
  EXPECT_LT(place(device.session, device), place(device.cpDeviceId, device));
  EXPECT_LT(place(device.cpDeviceId, device), place(device.aapId, device));
  EXPECT_LT(place(device.aapId, device), place(device.suffix, device));
  EXPECT_LT(place(device.suffix, device), place(device.btDevice, device));
  EXPECT_LT(place(device.btDevice, device), place(device.cpDevice, device));
  EXPECT_LT(place(device.cpDevice, device), place(device.aapDevice, device));
}

TEST(AnIntegratedDevice, IsCopiedMemberByMember) {
  const IntegratedDevice original = filled();

  const std::vector<IntegratedDevice> copies(2, original);
  IntegratedDevice assigned;
  assigned = original;

  expectEqual(copies[0], filled());
  expectEqual(copies[1], filled());
  expectEqual(assigned, filled());
  expectEqual(original, filled());
  const BtPairedDevice& btDevice = copies[0].btDevice;
  const AapDevice& aapDevice = copies[0].aapDevice;
  EXPECT_EQ(typeid(btDevice), typeid(BtPairedDevice));
  EXPECT_EQ(typeid(aapDevice), typeid(AapDevice));
}

TEST(AnIntegratedDevice, CopiesTheCarPlayRecordWithItsTrailingBytes) {
  const IntegratedDevice original = filled();

  const std::vector<IntegratedDevice> copies(1, original);

  const std::string copied = bytesOf(copies[0].cpDevice);
  for (unsigned i = 0; i < 296; ++i) {
    EXPECT_EQ(static_cast<unsigned char>(copied[i]), static_cast<unsigned char>(i + 1)) << "byte " << i;
  }
}

TEST(AnIntegratedDevice, IsMovedWhole) {
  IntegratedDevice first = filled();
  IntegratedDevice second = filled();

  const IntegratedDevice moved(std::move(first));
  IntegratedDevice assigned;
  assigned = std::move(second);

  expectEqual(moved, filled());
  expectEqual(assigned, filled());
}

TEST(AnIntegratedDevice, AssignedToItselfStaysAsItIs) {
  IntegratedDevice device = filled();
  const IntegratedDevice& itself = device;
  DeviceInfo& header = device;

  device = itself;
  header = itself;

  expectEqual(device, filled());
}

TEST(AnIntegratedDevice, IsACopyOfItsOwn) {
  const IntegratedDevice original = filled();
  IntegratedDevice copy(original);

  copy.name += "x";
  copy.aapId.clear();
  copy.btDevice.name[0] = 'x';
  copy.cpDevice.identifier = 0;
  copy.aapDevice.id[0] = 'x';

  expectEqual(original, filled());
}

}  // namespace
