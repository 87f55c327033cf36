// SPDX-License-Identifier: Apache-2.0
#include "simulator/AapPublisher.h"

#include "LmFramework/lm_strncpy.h"
#include "simulator/BenchNotification.h"

namespace idl::bench {

namespace {

constexpr std::uint8_t BTID_NONE = 255;

wire::AapSlot freeSlot() {
  wire::AapSlot slot = {};
  slot.btid = BTID_NONE;
  return slot;
}

wire::AapSlot slotOf(const AapPhone& phone) {
  wire::AapSlot slot = {};
  slot.session = phone.session;
  lm_strncpy(slot.name, phone.name.c_str(), sizeof(slot.name) - 1);
  lm_strncpy(slot.id, phone.id.c_str(), sizeof(slot.id) - 1);
  slot.btid = phone.btid;
  slot.port = phone.port;
  return slot;
}

wire::AapDeviceList emptyTable() {
  wire::AapDeviceList table = {};
  for (wire::AapSlot& slot : table.slots) {
    slot = freeSlot();
  }
  return table;
}

std::size_t offsetOf(unsigned slot) {
  if (slot >= wire::AapDeviceList::SLOT_COUNT) {
    throw std::out_of_range("the Android Auto table has slots 0 to 11");
  }
  return slot * sizeof(wire::AapSlot);
}

}  // namespace

AapPublisher::AapPublisher() : mTable(wire::AAP_SEGMENT, AAP_NOTIFICATION_ID) {}

void AapPublisher::initialise() {
  const wire::AapDeviceList table = emptyTable();
  const LmSyncGuard guard(mTable.lock());
  mTable.write(0, &table, sizeof(table));
}

std::uint32_t AapPublisher::put(unsigned slot, const AapPhone& phone) {
  const wire::AapSlot image = slotOf(phone);
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t AapPublisher::clear(unsigned slot) {
  const wire::AapSlot image = freeSlot();
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t AapPublisher::replaceAll(const std::map<unsigned, AapPhone>& phones) {
  wire::AapDeviceList table = emptyTable();
  for (const auto& [slot, phone] : phones) {
    table.slots[offsetOf(slot) / sizeof(wire::AapSlot)] = slotOf(phone);
  }
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(0, &table, sizeof(table));
  }
  return mTable.notify();
}

void AapPublisher::crashDuringPut(unsigned slot, const AapPhone& phone) {
  const wire::AapSlot image = slotOf(phone);
  const LmSyncGuard guard(mTable.lock());
  mTable.write(offsetOf(slot), &image, halfWayThrough(offsetof(wire::AapSlot, id), image.id));
  mTable.dieHere();
}

}  // namespace idl::bench
