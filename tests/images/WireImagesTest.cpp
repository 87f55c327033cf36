// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>

#include "IntegratedDeviceList/WireFormat.h"
#include "images/Golden.h"

namespace {

using namespace idl::wire;

template <class Record>
Record recordAt(const std::string& bytes, std::size_t offset) {
  Record record;
  std::memcpy(&record, bytes.substr(offset, sizeof(Record)).data(), sizeof(Record));
  return record;
}

/// A field's bytes in the record, against those at its place in the image.
template <class Field>
void expectField(const char* what, const Field& field, const std::string& image, std::size_t offset, std::size_t size) {
  EXPECT_EQ(sizeof(Field), size) << what;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&field), sizeof(Field)), image.substr(offset, size)) << what;
}

template <class Number>
void expectNumber(const char* what, Number found, const std::string& image, std::size_t offset) {
  EXPECT_EQ(found, static_cast<Number>(golden::number(image, offset, sizeof(Number)))) << what;
}

/// Which bytes of a record of zeros are those of one field: all that change when the field does.
template <class Record, class Field>
void expectPlace(const char* what, Field Record::*member, std::size_t offset, std::size_t size) {
  Record record;
  std::memset(&record, 0, sizeof record);

  std::memset(&(record.*member), 0xFF, sizeof(Field));

  std::string bytes(sizeof(Record), '\0');
  std::memcpy(bytes.data(), &record, sizeof record);
  EXPECT_EQ(bytes,
            std::string(offset, '\0') + std::string(size, '\xFF') + std::string(sizeof(Record) - offset - size, '\0'))
      << what;
}

TEST(TheBluetoothImage, IsReadFieldByField) {
  const std::string image = golden::pairings();

  EXPECT_EQ(golden::number(image, 0, 4), 1120U);
  const auto table = recordAt<BtPairedDeviceList>(image, 4);
  for (std::size_t k = 0; k < 10; ++k) {
    SCOPED_TRACE("slot " + std::to_string(k));
    const std::size_t slot = 4 + 112 * k;
    const BtSlot& record = table.slots[k];
    EXPECT_EQ(record.header, 0U);
    expectNumber("id", record.id, image, slot + 4);
    expectField("name", record.name, image, slot + 5, 81);
    expectField("address", record.address, image, slot + 86, 18);
    expectNumber("info", record.info, image, slot + 104);
    expectNumber("flag1", record.flag1, image, slot + 108);
    expectNumber("flag2", record.flag2, image, slot + 109);
    expectField("padding", record.padding, image, slot + 110, 2);
    EXPECT_EQ(golden::number(image, slot, 4), 0U);
    EXPECT_EQ(golden::number(image, slot + 110, 2), 0U);
  }
}

TEST(TheBluetoothImage, HoldsWhatTheUnitPublished) {
  const auto table = recordAt<BtPairedDeviceList>(golden::pairings(), 4);

  EXPECT_EQ(unsigned{table.slots[1].id}, 3U);
  EXPECT_STREQ(table.slots[1].name, "Phone");
  EXPECT_STREQ(table.slots[1].address, "A0:B1:C2:D3:E4:03");
  EXPECT_EQ(table.slots[1].info, 0x12345678U);
  EXPECT_EQ(unsigned{table.slots[2].id}, 255U);
  EXPECT_EQ(std::string(table.slots[3].name, 17), std::string("Phone\0me it had b", 17));
  EXPECT_EQ(unsigned{table.slots[4].flag2}, 254U);
  EXPECT_EQ(std::string(table.slots[8].name, 81), golden::run('A', 80) + '\0');
}

TEST(ABluetoothSlot, HasItsFieldsAtTheUnitsPlaces) {
  ASSERT_EQ(sizeof(BtSlot), 112U);
  expectPlace("header", &BtSlot::header, 0, 4);
  expectPlace("id", &BtSlot::id, 4, 1);
  expectPlace("name", &BtSlot::name, 5, 81);
  expectPlace("address", &BtSlot::address, 86, 18);
  expectPlace("info", &BtSlot::info, 104, 4);
  expectPlace("flag1", &BtSlot::flag1, 108, 1);
  expectPlace("flag2", &BtSlot::flag2, 109, 1);
  expectPlace("padding", &BtSlot::padding, 110, 2);
}

TEST(TheAndroidAutoImage, IsReadFieldByField) {
  const std::string image = golden::autoPhones();

  EXPECT_EQ(golden::number(image, 0, 4), 6288U);
  const auto table = recordAt<AapDeviceList>(image, 4);
  for (std::size_t k = 0; k < 12; ++k) {
    SCOPED_TRACE("slot " + std::to_string(k));
    const std::size_t slot = 4 + 524 * k;
    const AapSlot& record = table.slots[k];
    EXPECT_EQ(record.header, 0U);
    expectNumber("session", record.session, image, slot + 4);
    expectField("name", record.name, image, slot + 5, 257);
    expectField("id", record.id, image, slot + 262, 257);
    expectNumber("btid", record.btid, image, slot + 519);
    expectNumber("port", record.port, image, slot + 520);
    EXPECT_EQ(golden::number(image, slot, 4), 0U);
  }
}

TEST(TheAndroidAutoImage, HoldsWhatTheUnitPublished) {
  const auto table = recordAt<AapDeviceList>(golden::autoPhones(), 4);

  EXPECT_EQ(std::string(table.slots[2].name, 257), golden::run('a', 256) + '\0');
  EXPECT_EQ(std::string(table.slots[2].id, 257), golden::run('B', 256) + '\0');
  EXPECT_EQ(unsigned{table.slots[2].btid}, 255U);
  EXPECT_EQ(table.slots[4].port, -5);
  EXPECT_EQ(table.slots[8].port, 2147483647);
  EXPECT_STREQ(table.slots[11].id, "last");
}

TEST(AnAndroidAutoSlot, HasItsFieldsAtTheUnitsPlaces) {
  ASSERT_EQ(sizeof(AapSlot), 524U);
  expectPlace("header", &AapSlot::header, 0, 4);
  expectPlace("session", &AapSlot::session, 4, 1);
  expectPlace("name", &AapSlot::name, 5, 257);
  expectPlace("id", &AapSlot::id, 262, 257);
  expectPlace("btid", &AapSlot::btid, 519, 1);
  expectPlace("port", &AapSlot::port, 520, 4);
}

TEST(TheCarPlayImage, IsReadFieldByField) {
  const std::string image = golden::carPlay();

  EXPECT_EQ(golden::number(image, 0, 4), 13728U);
  EXPECT_EQ(golden::number(image, 4, 4), 0U);
  const auto state = recordAt<CarPlaySharedMemStruct>(image, 8);
  expectField("before the connected phone", state.reserved1, image, 8, 1064);
  expectNumber("the connected phone", state.currentPhone, image, 1072);
  expectField("before the phones", state.reserved2, image, 1080, 720);
  expectField("behind the phones", state.reserved3, image, 5056, 8676);
  expectNumber("the flag", state.initialised, image, 13732);
  expectField("the end", state.reserved4, image, 13733, 3);
  EXPECT_EQ(golden::number(image, 13733, 3), 0U);
  for (std::size_t k = 0; k < 11; ++k) {
    SCOPED_TRACE("phone " + std::to_string(k));
    const std::size_t entry = 1800 + 296 * k;
    const cps_def::WCPAtom& atom = state.phones[k];
    expectNumber("identifier", atom.identifier, image, entry);
    expectField("name", atom.name, image, entry + 8, 256);
    expectNumber("btid", atom.btid, image, entry + 264);
    expectNumber("inSession", atom.inSession, image, entry + 265);
    expectNumber("session", atom.session, image, entry + 266);
    expectField("reserved1", atom.reserved1, image, entry + 267, 2);
    expectNumber("valid", atom.valid, image, entry + 269);
    expectField("reserved2", atom.reserved2, image, entry + 270, 26);
  }
}

TEST(TheCarPlayImage, HoldsWhatTheUnitPublished) {
  const auto state = recordAt<CarPlaySharedMemStruct>(golden::carPlay(), 8);

  EXPECT_EQ(state.currentPhone, 0x00000500DEADBEEFU);
  EXPECT_EQ(unsigned{state.initialised}, 1U);
  EXPECT_EQ(state.phones[1].identifier, 0xFFFFFFFFFFFFFFFFU);
  EXPECT_EQ(std::string(state.phones[1].name, 256), golden::run('k', 255) + '\0');
  EXPECT_EQ(unsigned{state.phones[1].reserved2[25]}, 0xA5U);
  EXPECT_EQ(unsigned{state.phones[2].valid}, 0U);
  EXPECT_EQ(state.phones[10].identifier, 0x0102030405060708U);
}

TEST(TheCarPlayState, HasItsFieldsAtTheUnitsPlaces) {
  constexpr std::size_t PAYLOAD = 8;

  ASSERT_EQ(sizeof(CarPlaySharedMemStruct), 13728U);
  expectPlace("reserved1", &CarPlaySharedMemStruct::reserved1, 0, 1064);
  expectPlace("currentPhone", &CarPlaySharedMemStruct::currentPhone, 1072 - PAYLOAD, 8);
  expectPlace("phones", &CarPlaySharedMemStruct::phones, 1800 - PAYLOAD, 3256);
  expectPlace("initialised", &CarPlaySharedMemStruct::initialised, 13732 - PAYLOAD, 1);
}

TEST(ACarPlayPhone, HasItsFieldsAtTheUnitsPlaces) {
  ASSERT_EQ(sizeof(cps_def::WCPAtom), 296U);
  expectPlace("identifier", &cps_def::WCPAtom::identifier, 0, 8);
  expectPlace("name", &cps_def::WCPAtom::name, 8, 256);
  expectPlace("btid", &cps_def::WCPAtom::btid, 264, 1);
  expectPlace("inSession", &cps_def::WCPAtom::inSession, 265, 1);
  expectPlace("session", &cps_def::WCPAtom::session, 266, 1);
  expectPlace("reserved1", &cps_def::WCPAtom::reserved1, 267, 2);
  expectPlace("valid", &cps_def::WCPAtom::valid, 269, 1);
  expectPlace("reserved2", &cps_def::WCPAtom::reserved2, 270, 26);
}

TEST(TheFunctionsImage, IsReadFieldByField) {
  const std::string image = golden::functions();

  EXPECT_EQ(golden::number(image, 0, 4), 2104U);
  const auto functions = recordAt<FuncInfoStruct>(image, 4);
  expectField("reserved1", functions.reserved1, image, 4, 508);
  expectNumber("the flag", functions.btFunctionFlag, image, 512);
  expectField("reserved2", functions.reserved2, image, 513, 1595);
  EXPECT_EQ(unsigned{functions.btFunctionFlag}, 1U);
}

}  // namespace
