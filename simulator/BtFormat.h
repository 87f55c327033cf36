// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_BTFORMAT_H
#define SIMULATOR_BTFORMAT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/BenchNotification.h"
#include "simulator/Text.h"

namespace idl::bench {

/// A phone as the Bluetooth service lists it. Texts are cut to what the table holds.
struct BtPhone {
  std::uint8_t id = 0;  // pairing id; 255 would mean a free slot
  std::string name;
  std::string address;
  std::uint32_t info = 0;
  std::uint8_t flag1 = 1;
  std::uint8_t flag2 = 0;
  std::uint32_t header = 0;
};

inline bool operator==(const BtPhone& a, const BtPhone& b) {
  return std::tie(a.id, a.name, a.address, a.info, a.flag1, a.flag2, a.header) ==
         std::tie(b.id, b.name, b.address, b.info, b.flag1, b.flag2, b.header);
}

/// The Bluetooth service's table, for a SlotPublisher.
struct BtFormat {
  using Table = wire::BtPairedDeviceList;
  using Slot = wire::BtSlot;
  using Phone = BtPhone;

  static constexpr const char* TITLE = "Bluetooth";
  static constexpr unsigned NOTIFICATION_ID = BT_NOTIFICATION_ID;
  static constexpr unsigned SLOT_COUNT = Table::SLOT_COUNT;
  static constexpr std::size_t SLOTS_OFFSET = offsetof(Table, slots);  // in the payload

  static constexpr const char* segmentName() { return wire::BT_SEGMENT; }

  static Slot freeSlot() {
    Slot slot = {};
    slot.id = ID_FREE;
    slot.flag1 = 1;
    return slot;
  }

  static bool isFree(const Slot& slot) { return slot.id == ID_FREE; }

  static bool isNamed(const Slot& slot, const std::string& name) { return holdsText(slot.name, name); }

  static Slot slotOf(const Phone& phone, Texts texts = Texts::CUT) {
    Slot slot = {};
    slot.id = phone.id;
    writeText(slot.name, phone.name, texts);
    writeText(slot.address, phone.address, texts);
    slot.info = phone.info;
    slot.flag1 = phone.flag1;
    slot.flag2 = phone.flag2;
    slot.header = phone.header;
    return slot;
  }

  static Phone phoneOf(const Slot& slot) {
    return {slot.id, textIn(slot.name), textIn(slot.address), slot.info, slot.flag1, slot.flag2, slot.header};
  }

  /// How many bytes of the record are written when its service is half-way: all before the second half of the name.
  static std::size_t halfOf(const Slot& slot) { return offsetof(Slot, name) + textIn(slot.name).size() / 2; }

  /// The payload as the service writes it when it starts: a slot of zeros would be a phone.
  static Table emptyTable() {
    Table table = {};
    for (Slot& slot : table.slots) {
      slot = freeSlot();
    }
    return table;
  }

 private:
  static constexpr std::uint8_t ID_FREE = 255;
};

}  // namespace idl::bench

#endif
