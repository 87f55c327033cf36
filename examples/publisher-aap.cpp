// SPDX-License-Identifier: Apache-2.0
// What an Android Auto service does for the device list: it publishes its phones, and tells that they have changed.
//
//     publisher-aap id-1 "Anna's phone" 3 1 id-2 Pixel 255 2    two phones, by identifier, name, Bluetooth id and port
//     publisher-aap                                             none
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

using idl::wire::AapDeviceList;
using idl::wire::AapSlot;

struct Phone {
  std::string id;  // not empty
  std::string name;
  std::uint8_t btid;  // the id that the Bluetooth service gave the same phone; 255: it is not paired
  std::int32_t port;  // where it is plugged in, from 1; 0: it is not
};

class AapPhones {
 public:
  /// Replaces the whole table.
  /// @return false when it cannot be written or told, which the log says why; and when there are more phones than it
  /// takes: the first twelve are published then. Whether they are the right ones is the service's choice.
  bool publish(const std::vector<Phone>& phones) {
    const AapDeviceList table = tableOf(phones);
    {
      const LmSyncGuard guard(mSegment);  // no reader sees a half of it
      if (!mSegment.write(Segment::DATA_OFFSET, &table, sizeof(table))) {
        return false;
      }
    }
    ++mChanges;  // without the lock: whoever hears of it will want to take it
    return mNotifier.Publish(NOTIFICATION_ID, &mChanges, sizeof(mChanges)) &&
           phones.size() <= AapDeviceList::SLOT_COUNT;
  }

 private:
  using Segment = LmSharedMemory<AapDeviceList, 1>;

  // How an Android Auto service tells is the unit's business: this id is the one of idlctl and client-that-follows.
  static constexpr unsigned NOTIFICATION_ID = 0x41410001;

  static AapDeviceList tableOf(const std::vector<Phone>& phones) {
    AapDeviceList table = {};  // a slot without an identifier is free
    for (unsigned k = 0; k < phones.size() && k < AapDeviceList::SLOT_COUNT; ++k) {
      AapSlot& slot = table.slots[k];
      slot.session = static_cast<std::uint8_t>(k + 1);
      lm_strncpy(slot.name, phones[k].name.c_str(), sizeof(slot.name) - 1);  // cuts, and ends the text in any case
      lm_strncpy(slot.id, phones[k].id.c_str(), sizeof(slot.id) - 1);
      slot.btid = phones[k].btid;
      slot.port = phones[k].port;
    }
    return table;
  }

  // Attached, or created, here; the size word in front of the table is written with it.
  const Segment mSegment{idl::wire::AAP_SEGMENT};
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
  for (int k = 1; k < count; k += 4) {
    const bool isWhole = k + 3 < count;
    const std::optional<std::uint64_t> btid = isWhole ? numberUpTo(255, arguments[k + 2]) : std::nullopt;
    const std::optional<std::uint64_t> port = isWhole ? numberUpTo(INT32_MAX, arguments[k + 3]) : std::nullopt;
    if (!btid || !port || *arguments[k] == '\0') {
      std::cerr << "usage: publisher-aap [IDENTIFIER NAME BTID PORT]...; a BTID is 0 to 255, a PORT from 0\n";
      return 2;
    }
    phones.push_back(
        {arguments[k], arguments[k + 1], static_cast<std::uint8_t>(*btid), static_cast<std::int32_t>(*port)});
  }
  // A service publishes when it starts, also when there is no phone, and then at each change; the table outlives it.
  AapPhones list;
  if (!list.publish(phones)) {
    std::cerr << "publisher-aap: not published, or not all\n";
    return 1;
  }
  return 0;
}
