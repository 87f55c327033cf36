// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_AAPFORMAT_H
#define SIMULATOR_AAPFORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/BenchNotification.h"
#include "simulator/Text.h"

namespace idl::bench {

/// A phone as the Android Auto service lists it. Texts are cut to what the table holds.
struct AapPhone {
  std::string id;  // the phone's identifier; empty would mean a free slot
  std::string name;
  std::uint8_t session = 0;
  std::uint8_t btid = 255;  // Bluetooth pairing id; 255: not paired
  std::int32_t port = 0;    // USB port; 0: not connected by USB
  std::uint32_t header = 0;
};

inline bool operator==(const AapPhone& a, const AapPhone& b) {
  return std::tie(a.id, a.name, a.session, a.btid, a.port, a.header) ==
         std::tie(b.id, b.name, b.session, b.btid, b.port, b.header);
}

/// The Android Auto service's table, for a SlotPublisher.
struct AapFormat {
  using Table = wire::AapDeviceList;
  using Slot = wire::AapSlot;
  using Phone = AapPhone;

  static constexpr const char* TITLE = "Android Auto";
  static constexpr unsigned NOTIFICATION_ID = AAP_NOTIFICATION_ID;
  static constexpr unsigned SLOT_COUNT = Table::SLOT_COUNT;
  static constexpr std::size_t SLOTS_OFFSET = offsetof(Table, slots);  // in the payload

  static constexpr const char* segmentName() { return wire::AAP_SEGMENT; }

  static Slot freeSlot() {
    Slot slot = {};
    slot.btid = BTID_NONE;
    return slot;
  }

  static bool isFree(const Slot& slot) { return slot.id[0] == '\0'; }

  static bool isNamed(const Slot& slot, const std::string& name) { return holdsText(slot.name, name); }

  static Slot slotOf(const Phone& phone, Texts texts = Texts::CUT) {
    Slot slot = {};
    slot.session = phone.session;
    writeText(slot.name, phone.name, texts);
    writeText(slot.id, phone.id, texts);
    slot.btid = phone.btid;
    slot.port = phone.port;
    slot.header = phone.header;
    return slot;
  }

  static Phone phoneOf(const Slot& slot) {
    return {textIn(slot.id), textIn(slot.name), slot.session, slot.btid, slot.port, slot.header};
  }

  /// How many bytes of the record are written when its service is half-way: all before the second half of the
  /// identifier.
  static std::size_t halfOf(const Slot& slot) { return offsetof(Slot, id) + textIn(slot.id).size() / 2; }

  /// The payload as the service writes it when it starts.
  static Table emptyTable() {
    Table table = {};
    for (Slot& slot : table.slots) {
      slot = freeSlot();
    }
    return table;
  }

 private:
  static constexpr std::uint8_t BTID_NONE = 255;
};

}  // namespace idl::bench

#endif
