// SPDX-License-Identifier: Apache-2.0
#include "simulator/CpPublisher.h"

#include <vector>

#include "IntegratedDeviceList/CarPlayDefaults.h"
#include "LmFramework/lm_strncpy.h"

namespace idl::bench {

namespace {

cps_def::WCPAtom slotOf(const CpPhone& phone) {
  cps_def::WCPAtom slot = {};
  slot.identifier = phone.identifier;
  lm_strncpy(slot.name, phone.name.c_str(), sizeof(slot.name) - 1);
  slot.btid = phone.btid;
  slot.inSession = phone.inSession ? 1 : 0;
  slot.session = phone.session;
  slot.valid = 1;
  return slot;
}

std::size_t offsetOf(unsigned slot) {
  if (slot >= wire::CarPlaySharedMemStruct::PHONE_COUNT) {
    throw std::out_of_range("the CarPlay table has slots 0 to 10");
  }
  return offsetof(wire::CarPlaySharedMemStruct, phones) + slot * sizeof(cps_def::WCPAtom);
}

}  // namespace

CpPublisher::CpPublisher() : mTable(wire::CARPLAY_SEGMENT, wire::CARPLAY_NOTIFICATION_ID) {}

void CpPublisher::initialise() {
  const wire::CarPlaySharedMemStruct table = wire::carPlayDefaults();
  const LmSyncGuard guard(mTable.lock());
  mTable.write(0, &table, sizeof(table));
}

std::uint32_t CpPublisher::put(unsigned slot, const CpPhone& phone) {
  const cps_def::WCPAtom image = slotOf(phone);
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t CpPublisher::clear(unsigned slot) {
  const cps_def::WCPAtom image = {};
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(slot), &image, sizeof(image));
  }
  return mTable.notify();
}

std::uint32_t CpPublisher::replaceAll(const std::map<unsigned, CpPhone>& phones) {
  std::vector<cps_def::WCPAtom> table(wire::CarPlaySharedMemStruct::PHONE_COUNT);
  for (const auto& [slot, phone] : phones) {
    table[(offsetOf(slot) - offsetOf(0)) / sizeof(cps_def::WCPAtom)] = slotOf(phone);
  }
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetOf(0), table.data(), table.size() * sizeof(cps_def::WCPAtom));
  }
  return mTable.notify();
}

std::uint32_t CpPublisher::setCurrentPhone(std::uint64_t identifier) {
  {
    const LmSyncGuard guard(mTable.lock());
    mTable.write(offsetof(wire::CarPlaySharedMemStruct, currentPhone), &identifier, sizeof(identifier));
  }
  return mTable.notify();
}

void CpPublisher::crashDuringPut(unsigned slot, const CpPhone& phone) {
  const cps_def::WCPAtom image = slotOf(phone);
  const LmSyncGuard guard(mTable.lock());
  mTable.write(offsetOf(slot), &image, halfWayThrough(offsetof(cps_def::WCPAtom, name), image.name));
  mTable.dieHere();
}

}  // namespace idl::bench
