// SPDX-License-Identifier: Apache-2.0
#include "BtIntegratedDeviceList.h"

#include <cstring>

#include "BtPairedDeviceListSharedMem.h"
#include "FixedText.h"
#include "SlotTable.h"

namespace {

using idl::wire::BtSlot;

void convert(const BtSlot& slot, BtPairedDevice& record) {
  record.id = slot.id;
  static_assert(sizeof(record.name) == sizeof(slot.name) && sizeof(record.address) == sizeof(slot.address));
  std::memcpy(record.name, slot.name, sizeof(record.name));
  std::memcpy(record.address, slot.address, sizeof(record.address));
  record.info = slot.info;
  record.flag1 = slot.flag1;
  record.flag2 = slot.flag2;
}

}  // namespace

BtIntegratedDeviceList::BtIntegratedDeviceList() : sharedMem(new BtPairedDeviceListSharedMem) {}

BtIntegratedDeviceList::BtIntegratedDeviceList(std::nullptr_t) : sharedMem(nullptr) {}

BtIntegratedDeviceList::~BtIntegratedDeviceList() {
  delete sharedMem;
  sharedMem = nullptr;
}

void BtIntegratedDeviceList::getFunctionDeviceList(std::vector<BtPairedDevice>& out) {
  idl::wire::BtPairedDeviceList table;
  const std::size_t count = readSlots(*sharedMem, table);
  takeOccupied(table, count, out);
}

void BtIntegratedDeviceList::takeOccupied(const idl::wire::BtPairedDeviceList& table, std::size_t count,
                                          std::vector<BtPairedDevice>& out) {
  out.clear();
  out.reserve(count);
  for (std::size_t k = 0; k < count; ++k) {
    if (table.slots[k].id != BtPairedDevice::ID_NONE) {
      convert(table.slots[k], out.emplace_back());
    }
  }
}

BtIntegratedDeviceList::IntegratedDevice BtIntegratedDeviceList::toIntegratedDevice(const BtPairedDevice& record) {
  IntegratedDevice device;
  device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
  device.name = fixedText(record.name);
  device.btid = record.id;
  device.btDevice = record;
  return device;
}
