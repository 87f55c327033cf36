// SPDX-License-Identifier: Apache-2.0
#include "bench/Phones.h"

#include <algorithm>
#include <map>

namespace idl::cost {

namespace {

// Bit 41 says that the phones are attached by USB; no phone has this identifier.
constexpr std::uint64_t NO_PHONE_BUT_ATTACHED = std::uint64_t{1} << 41U;
constexpr std::uint64_t FIRST_CARPLAY_IDENTIFIER = 0x1000;

std::string phoneName(Names names, unsigned index) {
  return names == Names::ALIKE ? "Phone" : "Phone-" + std::to_string(100 + index);
}

}  // namespace

const char* nameOf(DeviceType source) {
  switch (source) {
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_BT:
      return "bluetooth";
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY:
      return "carplay";
    default:
      return "aap";
  }
}

const char* nameOf(Names names) { return names == Names::ALIKE ? "alike" : "different"; }

Phones::Phones() {
  mBluetooth.initialise();
  mCarPlay.initialise();
  mAndroidAuto.initialise();
  mCarPlay.setCurrentPhone(NO_PHONE_BUT_ATTACHED);
}

void Phones::fill(Names names, unsigned count) {
  unsigned index = 0;
  const auto most = [&](unsigned slots) { return std::min(slots, count - index); };

  std::map<unsigned, bench::BtPhone> paired;
  for (unsigned slot = 0, end = most(bench::BtPublisher::SLOT_COUNT); slot < end; ++slot, ++index) {
    bench::BtPhone& phone = paired[slot];
    phone.id = static_cast<std::uint8_t>(slot + 1);
    phone.name = phoneName(names, index);
    phone.address = "00:00:5E:00:53:" + std::to_string(10 + slot);
  }
  mBluetooth.replaceAll(paired);

  std::map<unsigned, bench::AapPhone> projected;
  for (unsigned slot = 0, end = most(bench::AapPublisher::SLOT_COUNT); slot < end; ++slot, ++index) {
    bench::AapPhone& phone = projected[slot];
    phone.id = "serial-" + std::to_string(100 + index);
    phone.name = phoneName(names, index);
    phone.port = static_cast<std::int32_t>(slot + 2);
  }
  mAndroidAuto.replaceAll(projected);

  std::map<unsigned, bench::CpPhone> attached;
  for (unsigned slot = 0, end = most(bench::CpPublisher::SLOT_COUNT); slot < end; ++slot, ++index) {
    bench::CpPhone& phone = attached[slot];
    phone.identifier = FIRST_CARPLAY_IDENTIFIER + slot;
    phone.name = phoneName(names, index);
    phone.inSession = true;
  }
  mCarPlay.replaceAll(attached);
}

void Phones::rename() {
  bench::BtPhone phone = mBluetooth.get(0).value();
  phone.name = "Other-" + std::to_string(100 + ++mRenamed % 100);
  mBluetooth.put(0, phone);
}

void Phones::rewrite(unsigned slot) {
  if (const auto phone = mBluetooth.get(slot % bench::BtPublisher::SLOT_COUNT)) {
    mBluetooth.put(slot % bench::BtPublisher::SLOT_COUNT, *phone);
  }
}

}  // namespace idl::cost
