// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"
#include "support/RawSegment.h"

// Every offset here is a number, so that the structs are compared with what other programs write, not with themselves.

namespace {

using idl::wire::AapDeviceList;
using idl::wire::AapSlot;
using idl::wire::BtPairedDeviceList;
using idl::wire::BtSlot;
using idl::wire::CarPlaySharedMemStruct;
using idl::wire::FuncInfoStruct;

static_assert(sizeof(FuncInfoStruct) == 2104);
static_assert(sizeof(BtSlot) == 112 && sizeof(BtPairedDeviceList) == 1120);
static_assert(sizeof(AapSlot) == 524 && sizeof(AapDeviceList) == 6288);
static_assert(sizeof(CarPlaySharedMemStruct) == 13728 && alignof(CarPlaySharedMemStruct) == 8);
static_assert(BtPairedDeviceList::SLOT_COUNT == 10);
static_assert(AapDeviceList::SLOT_COUNT == 12);
static_assert(CarPlaySharedMemStruct::PHONE_COUNT == 11);
static_assert(idl::wire::CARPLAY_NOTIFICATION_ID == 6);

void put(std::string& bytes, std::size_t offset, const std::string& what) { bytes.replace(offset, what.size(), what); }

std::string number(std::uint64_t value, unsigned width) { return RawSegment::littleEndian(value, width); }

template <class Struct>
Struct read(const std::string& bytes) {
  EXPECT_EQ(bytes.size(), sizeof(Struct));
  Struct value;
  std::memcpy(&value, bytes.data(), sizeof(value));
  return value;
}

template <class Struct>
std::string written(const Struct& value) {
  return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

std::string btSlotBytes() {
  std::string bytes(112, '\0');
  put(bytes, 0, number(0xA1A2A3A4, 4));
  put(bytes, 4, number(200, 1));
  put(bytes, 5, std::string(80, 'n'));
  put(bytes, 86, std::string(17, 'a'));
  put(bytes, 104, number(0xB1B2B3B4, 4));
  put(bytes, 108, number(0xC1, 1));
  put(bytes, 109, number(0xC2, 1));
  put(bytes, 110, number(0xD1D2, 2));
  return bytes;
}

BtSlot btSlot() {
  BtSlot slot = {};
  slot.header = 0xA1A2A3A4;
  slot.id = 200;
  std::memset(slot.name, 'n', 80);
  std::memset(slot.address, 'a', 17);
  slot.info = 0xB1B2B3B4;
  slot.flag1 = 0xC1;
  slot.flag2 = 0xC2;
  slot.padding[0] = 0xD2;
  slot.padding[1] = 0xD1;
  return slot;
}

std::string aapSlotBytes() {
  std::string bytes(524, '\0');
  put(bytes, 0, number(0xA1A2A3A4, 4));
  put(bytes, 4, number(201, 1));
  put(bytes, 5, std::string(256, 'n'));
  put(bytes, 262, std::string(256, 'i'));
  put(bytes, 519, number(202, 1));
  put(bytes, 520, number(0x80000001, 4));
  return bytes;
}

AapSlot aapSlot() {
  AapSlot slot = {};
  slot.header = 0xA1A2A3A4;
  slot.session = 201;
  std::memset(slot.name, 'n', 256);
  std::memset(slot.id, 'i', 256);
  slot.btid = 202;
  slot.port = INT32_MIN + 1;
  return slot;
}

TEST(TheSegmentNames, AreThoseThatTheServicesUse) {
  EXPECT_STREQ(idl::wire::FUNC_INFO_SEGMENT, "FuncInfo");
  EXPECT_STREQ(idl::wire::BT_SEGMENT, "BtPairedDeviceList");
  EXPECT_STREQ(idl::wire::CARPLAY_SEGMENT, "LmSCarplayResource");
  EXPECT_STREQ(idl::wire::AAP_SEGMENT, "AapDeviceList");
}

TEST(TheBtSlotsFormat, IsReadFromItsBytes) {
  const auto slot = read<BtSlot>(btSlotBytes());

  EXPECT_EQ(slot.header, 0xA1A2A3A4U);
  EXPECT_EQ(slot.id, 200);
  EXPECT_EQ(std::string(slot.name), std::string(80, 'n'));
  EXPECT_EQ(std::string(slot.address), std::string(17, 'a'));
  EXPECT_EQ(slot.info, 0xB1B2B3B4U);
  EXPECT_EQ(slot.flag1, 0xC1);
  EXPECT_EQ(slot.flag2, 0xC2);
}

TEST(TheBtSlotsFormat, IsWrittenAsItsBytes) { EXPECT_EQ(written(btSlot()), btSlotBytes()); }

TEST(TheBtTablesFormat, HasASlotAtEachMultipleOf112) {
  BtPairedDeviceList table = {};
  std::string bytes(1120, '\0');
  for (unsigned k = 0; k < 10; ++k) {
    table.slots[k].id = static_cast<std::uint8_t>(k + 1);
    put(bytes, 112 * k + 4, number(k + 1, 1));
  }

  EXPECT_EQ(written(table), bytes);
}

TEST(TheAapSlotsFormat, IsReadFromItsBytes) {
  const auto slot = read<AapSlot>(aapSlotBytes());

  EXPECT_EQ(slot.header, 0xA1A2A3A4U);
  EXPECT_EQ(slot.session, 201);
  EXPECT_EQ(std::string(slot.name), std::string(256, 'n'));
  EXPECT_EQ(std::string(slot.id), std::string(256, 'i'));
  EXPECT_EQ(slot.btid, 202);
  EXPECT_EQ(slot.port, INT32_MIN + 1);
}

TEST(TheAapSlotsFormat, IsWrittenAsItsBytes) { EXPECT_EQ(written(aapSlot()), aapSlotBytes()); }

TEST(TheAapTablesFormat, HasASlotAtEachMultipleOf524) {
  AapDeviceList table = {};
  std::string bytes(6288, '\0');
  for (unsigned k = 0; k < 12; ++k) {
    table.slots[k].session = static_cast<std::uint8_t>(k + 1);
    put(bytes, 524 * k + 4, number(k + 1, 1));
  }

  EXPECT_EQ(written(table), bytes);
}

TEST(TheFuncInfosFormat, HasItsFlagAt508OfThePayload) {
  for (unsigned value = 0; value <= 255; ++value) {
    std::string bytes(2104, '\0');
    put(bytes, 508, number(value, 1));

    const auto info = read<FuncInfoStruct>(bytes);

    EXPECT_EQ(info.btFunctionFlag, value);
    EXPECT_EQ(written(info), bytes);
  }
}

TEST(TheCarPlayResourcesFormat, IsReadFromItsBytes) {
  std::string bytes(13736 - 8, '\0');
  put(bytes, 1072 - 8, number(0x0102030405060708, 8));
  for (unsigned i = 0; i < 11; ++i) {
    put(bytes, 1800 + 296 * i - 8, number(0xF000000000000000 + i, 8));
    put(bytes, 1800 + 296 * i + 8 - 8, "Phone");
    put(bytes, 1800 + 296 * i + 264 - 8, number(i + 1, 1));
    put(bytes, 1800 + 296 * i + 269 - 8, number(i + 2, 1));
  }
  put(bytes, 13732 - 8, number(77, 1));

  const auto resource = read<CarPlaySharedMemStruct>(bytes);

  EXPECT_EQ(resource.currentPhone, 0x0102030405060708U);
  for (unsigned i = 0; i < 11; ++i) {
    EXPECT_EQ(resource.phones[i].identifier, 0xF000000000000000 + i);
    EXPECT_STREQ(resource.phones[i].name, "Phone");
    EXPECT_EQ(resource.phones[i].btid, i + 1);
    EXPECT_EQ(resource.phones[i].valid, i + 2);
  }
  EXPECT_EQ(resource.initialised, 77);
}

TEST(TheCarPlayResourcesFormat, IsWrittenAsItsBytes) {
  CarPlaySharedMemStruct resource = {};
  resource.currentPhone = 0x1112131415161718;
  resource.phones[0].identifier = 0x2122232425262728;
  resource.phones[10].reserved2[25] = 0x31;
  resource.initialised = 1;

  std::string bytes(13728, '\0');
  put(bytes, 1064, number(0x1112131415161718, 8));
  put(bytes, 1792, number(0x2122232425262728, 8));
  put(bytes, 1792 + 3256 - 1, number(0x31, 1));
  put(bytes, 13724, number(1, 1));
  EXPECT_EQ(written(resource), bytes);
}

}  // namespace
