// SPDX-License-Identifier: Apache-2.0
#include "AapIntegratedDeviceList.h"

#include <cstring>

#include "AapDeviceListSharedMem.h"
#include "FixedText.h"
#include "SlotTable.h"

namespace {

using idl::wire::AapSlot;

void convert(const AapSlot& slot, AapDevice& record) {
  record.session = slot.session;
  static_assert(sizeof(record.name) == sizeof(slot.name) && sizeof(record.id) == sizeof(slot.id));
  std::memcpy(record.name, slot.name, sizeof(record.name));
  std::memcpy(record.id, slot.id, sizeof(record.id));
  record.btid = slot.btid;
  record.port = slot.port;
}

}  // namespace

AapIntegratedDeviceList::AapIntegratedDeviceList() : sharedMem(new AapDeviceListSharedMem) {}

AapIntegratedDeviceList::AapIntegratedDeviceList(std::nullptr_t) : sharedMem(nullptr) {}

AapIntegratedDeviceList::~AapIntegratedDeviceList() {
  delete sharedMem;
  sharedMem = nullptr;
}

void AapIntegratedDeviceList::getFunctionDeviceList(std::vector<AapDevice>& out) {
  idl::wire::AapDeviceList table;
  const std::size_t count = readSlots(*sharedMem, table);
  takeOccupied(table, count, out);
}

void AapIntegratedDeviceList::takeOccupied(const idl::wire::AapDeviceList& table, std::size_t count,
                                           std::vector<AapDevice>& out) {
  out.clear();
  out.reserve(count);
  for (std::size_t k = 0; k < count; ++k) {
    if (!fixedText(table.slots[k].id).empty()) {
      convert(table.slots[k], out.emplace_back());
    }
  }
}

AapIntegratedDeviceList::IntegratedDevice AapIntegratedDeviceList::toIntegratedDevice(const AapDevice& record) {
  IntegratedDevice device;
  device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
  device.name = fixedText(record.name);
  device.btid = record.btid;
  device.port = record.port;
  device.session = record.session;
  device.aapId = fixedText(record.id);
  device.aapDevice = record;
  return device;
}
