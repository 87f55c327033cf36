// SPDX-License-Identifier: Apache-2.0
#include "simulator/BtPublisher.h"

#include "LmFramework/lm_strncpy.h"
#include "simulator/BenchNotification.h"

namespace idl::bench {

namespace {

constexpr std::uint8_t ID_FREE = 255;

wire::BtSlot freeSlot() {
  wire::BtSlot slot = {};
  slot.id = ID_FREE;
  slot.flag1 = 1;
  return slot;
}

wire::BtSlot slotOf(const BtPhone& phone) {
  wire::BtSlot slot = {};
  slot.id = phone.id;
  lm_strncpy(slot.name, phone.name.c_str(), sizeof(slot.name) - 1);
  lm_strncpy(slot.address, phone.address.c_str(), sizeof(slot.address) - 1);
  slot.info = phone.info;
  slot.flag1 = phone.flag1;
  slot.flag2 = phone.flag2;
  return slot;
}

wire::BtPairedDeviceList emptyTable() {
  wire::BtPairedDeviceList table = {};
  for (wire::BtSlot& slot : table.slots) {
    slot = freeSlot();
  }
  return table;
}

std::size_t offsetOf(unsigned slot) {
  if (slot >= wire::BtPairedDeviceList::SLOT_COUNT) {
    throw std::out_of_range("the Bluetooth table has slots 0 to 9");
  }
  return slot * sizeof(wire::BtSlot);
}

}  // namespace

BtPublisher::BtPublisher() : mTable(wire::BT_SEGMENT, BT_NOTIFICATION_ID) {}

void BtPublisher::initialise() {
  const wire::BtPairedDeviceList table = emptyTable();
  const LmSyncGuard guard(mTable.lock());
  mTable.write(0, &table, sizeof(table));
}

std::uint32_t BtPublisher::put(unsigned slot, const BtPhone& phone) {
  const wire::BtSlot image = slotOf(phone);
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t BtPublisher::clear(unsigned slot) {
  const wire::BtSlot image = freeSlot();
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t BtPublisher::replaceAll(const std::map<unsigned, BtPhone>& phones) {
  wire::BtPairedDeviceList table = emptyTable();
  for (const auto& [slot, phone] : phones) {
    table.slots[offsetOf(slot) / sizeof(wire::BtSlot)] = slotOf(phone);
  }
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(0, &table, sizeof(table));
  }
  return mTable.notify();
}

void BtPublisher::crashDuringPut(unsigned slot, const BtPhone& phone) {
  const wire::BtSlot image = slotOf(phone);
  const LmSyncGuard guard(mTable.lock());
  mTable.write(offsetOf(slot), &image, halfWayThrough(offsetof(wire::BtSlot, name), image.name));
  mTable.dieHere();
}

}  // namespace idl::bench
