// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CPFORMAT_H
#define SIMULATOR_CPFORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>

#include "IntegratedDeviceList/CarPlayDefaults.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/Text.h"

namespace idl::bench {

/// A phone as the CarPlay service lists it. The name is cut to what the table holds.
struct CpPhone {
  std::uint64_t identifier = 0;  // 0 would mean a free slot
  std::string name;
  std::uint8_t btid = 0;  // Bluetooth pairing id; 0: none
  bool inSession = false;
  std::uint8_t session = 0;  // session number; counts where `inSession` is false
};

inline bool operator==(const CpPhone& a, const CpPhone& b) {
  return std::tie(a.identifier, a.name, a.btid, a.inSession, a.session) ==
         std::tie(b.identifier, b.name, b.btid, b.inSession, b.session);
}

/// The phone table in the CarPlay service's resource, for a SlotPublisher.
struct CpFormat {
  using Table = wire::CarPlaySharedMemStruct;
  using Slot = cps_def::WCPAtom;
  using Phone = CpPhone;

  static constexpr const char* TITLE = "CarPlay";
  static constexpr unsigned NOTIFICATION_ID = wire::CARPLAY_NOTIFICATION_ID;
  static constexpr unsigned SLOT_COUNT = Table::PHONE_COUNT;
  static constexpr std::size_t SLOTS_OFFSET = offsetof(Table, phones);  // in the payload

  static constexpr const char* segmentName() { return wire::CARPLAY_SEGMENT; }

  static Slot freeSlot() { return {}; }

  static bool isFree(const Slot& slot) { return slot.valid == 0 || slot.identifier == 0; }

  static bool isNamed(const Slot& slot, const std::string& name) { return holdsText(slot.name, name); }

  static Slot slotOf(const Phone& phone, Texts texts = Texts::CUT) {
    Slot slot = {};
    slot.identifier = phone.identifier;
    writeText(slot.name, phone.name, texts);
    slot.btid = phone.btid;
    slot.inSession = phone.inSession ? 1 : 0;
    slot.session = phone.session;
    slot.valid = 1;
    return slot;
  }

  static Phone phoneOf(const Slot& slot) {
    return {slot.identifier, textIn(slot.name), slot.btid, slot.inSession != 0, slot.session};
  }

  /// How many bytes of the record are written when its service is half-way: all before the second half of the name.
  static std::size_t halfOf(const Slot& slot) { return offsetof(Slot, name) + textIn(slot.name).size() / 2; }

  /// The payload as the service writes it when it starts.
  static Table emptyTable() { return wire::carPlayDefaults(); }
};

}  // namespace idl::bench

#endif
