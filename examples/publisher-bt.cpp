// SPDX-License-Identifier: Apache-2.0
// What a Bluetooth service does for the device list: it publishes its pairing list, and tells that it has changed.
//
//     publisher-bt 3 "Anna's phone" 4 "Ben's phone"    these two are paired, by id and name
//     publisher-bt                                     nobody is
#include <IntegratedDeviceList/WireFormat.h>
#include <LmFramework/LmSyncGuard.h>
#include <LmFramework/SharedMemory/LmSharedMemNotifier.h>
#include <LmFramework/SharedMemory/LmSharedMemory.h>
#include <LmFramework/lm_strncpy.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using idl::wire::BtPairedDeviceList;
using idl::wire::BtSlot;

struct Phone {
  std::uint8_t id;  // 0 to 254
  std::string name;
  std::string address;
};

class PairingList {
 public:
  /// Replaces the whole table.
  /// @return false when it cannot be written or told, which the log says why; and when there are more phones than it
  /// takes: the first ten are published then. Whether they are the right ones is the service's choice.
  bool publish(const std::vector<Phone>& phones) {
    const BtPairedDeviceList table = tableOf(phones);
    {
      const LmSyncGuard guard(mSegment);  // no reader sees a half of it
      if (!mSegment.write(Segment::DATA_OFFSET, &table, sizeof(table))) {
        return false;
      }
    }
    ++mChanges;  // without the lock: whoever hears of it will want to take it
    return mNotifier.Publish(NOTIFICATION_ID, &mChanges, sizeof(mChanges)) &&
           phones.size() <= BtPairedDeviceList::SLOT_COUNT;
  }

 private:
  using Segment = LmSharedMemory<BtPairedDeviceList, 1>;

  static constexpr std::uint8_t FREE = 255;

  // How a Bluetooth service tells is the unit's business: this id is the one of idlctl and client-that-follows.
  static constexpr unsigned NOTIFICATION_ID = 0x42540001;

  static BtPairedDeviceList tableOf(const std::vector<Phone>& phones) {
    BtPairedDeviceList table = {};
    for (BtSlot& slot : table.slots) {
      slot.id = FREE;  // a slot of zeros is a phone with the id 0, not a free one
    }
    for (unsigned k = 0; k < phones.size() && k < BtPairedDeviceList::SLOT_COUNT; ++k) {
      BtSlot& slot = table.slots[k];
      slot.id = phones[k].id;
      lm_strncpy(slot.name, phones[k].name.c_str(), sizeof(slot.name) - 1);  // cuts, and ends the text in any case
      lm_strncpy(slot.address, phones[k].address.c_str(), sizeof(slot.address) - 1);
      slot.flag1 = 1;  // handed on to clients, as info and flag2 are; 1 is what a record has that nobody has filled
    }
    return table;
  }

  // Attached, or created, here; the size word in front of the table is written with it.
  const Segment mSegment{idl::wire::BT_SEGMENT};
  LmSharedMemNotifier mNotifier{false};
  std::uint32_t mChanges = 0;
};

/// The whole word as a number, or nothing when it is none or more than `most`.
std::optional<std::uint64_t> numberUpTo(std::uint64_t most, const char* word) {
  char* end = nullptr;
  errno = 0;
  const std::uint64_t number = std::strtoull(word, &end, 10);
  const bool isOne = *word >= '0' && *word <= '9' && *end == '\0' && errno == 0;
  return isOne && number <= most ? std::optional(number) : std::nullopt;
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<Phone> phones;
  for (int k = 1; k < count; k += 2) {
    const std::optional<std::uint64_t> id = numberUpTo(254, arguments[k]);
    if (k + 1 == count || !id) {
      std::cerr << "usage: publisher-bt [ID NAME]...; an ID is 0 to 254\n";
      return 2;
    }
    phones.push_back({static_cast<std::uint8_t>(*id), arguments[k + 1], "00:00:5E:00:53:01"});
  }
  // A service publishes when it starts, also when nobody is paired, and then at each change; the table outlives it.
  PairingList list;
  if (!list.publish(phones)) {
    std::cerr << "publisher-bt: not published, or not all\n";
    return 1;
  }
  return 0;
}
