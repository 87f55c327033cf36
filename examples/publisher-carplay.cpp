// SPDX-License-Identifier: Apache-2.0
// What a CarPlay service does for the device list: it publishes its phone table in the resource that it shares with its
// other readers, and tells that it has changed.
//
//     publisher-carplay 77 "Anna's phone" 3 78 Carla 0    two phones, by identifier, name and Bluetooth id, 0: not
//                                                         paired; the first is the one that is connected
//     publisher-carplay                                   none
#include <IntegratedDeviceList/CarPlayDefaults.h>
#include <IntegratedDeviceList/WireFormat.h>
#include <LmFramework/LmSyncGuard.h>
#include <LmFramework/SharedMemory/LmSharedMemNotifier.h>
#include <LmFramework/SharedMemory/LmSharedMemory.h>
#include <LmFramework/lm_strncpy.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using Resource = idl::wire::CarPlaySharedMemStruct;

struct Phone {
  std::uint64_t identifier;  // not 0
  std::string name;
  std::uint8_t btid;  // the id that the Bluetooth service gave the same phone; 0: it is not paired
};

class CarPlayPhones {
 public:
  /// Replaces the phone table, and says which phone is connected; 0: none.
  /// @return false when it cannot be written or told, which the log says why; and when there are more phones than it
  /// takes: the first eleven are published then. Whether they are the right ones is the service's choice.
  bool publish(const std::vector<Phone>& phones, std::uint64_t connected) {
    const std::vector<cps_def::WCPAtom> table = tableOf(phones);
    {
      const LmSyncGuard guard(mSegment);  // no reader sees half an entry; each is read by itself
      if (!beginResource() || !write(offsetof(Resource, phones), table.data(), table.size() * sizeof(table[0])) ||
          !write(offsetof(Resource, currentPhone), &connected, sizeof(connected))) {
        return false;
      }
    }
    ++mChanges;  // without the lock: whoever hears of it will want to take it
    return mNotifier.Publish(idl::wire::CARPLAY_NOTIFICATION_ID, &mChanges, sizeof(mChanges)) &&
           phones.size() <= Resource::PHONE_COUNT;
  }

 private:
  using Segment = LmSharedMemory<Resource, 1>;

  // Of the payload, as all offsets below.
  static constexpr std::size_t KEPT = 5120 - Segment::DATA_OFFSET;
  static constexpr std::size_t INITIALISED = offsetof(Resource, initialised);

  static std::vector<cps_def::WCPAtom> tableOf(const std::vector<Phone>& phones) {
    std::vector<cps_def::WCPAtom> table(Resource::PHONE_COUNT);  // zeros: free
    for (std::size_t k = 0; k < phones.size() && k < Resource::PHONE_COUNT; ++k) {
      cps_def::WCPAtom& slot = table[k];
      slot.identifier = phones[k].identifier;
      lm_strncpy(slot.name, phones[k].name.c_str(), sizeof(slot.name) - 1);  // cuts, and ends the text in any case
      slot.btid = phones[k].btid;
      slot.session = static_cast<std::uint8_t>(k + 1);
      slot.valid = 1;  // without this byte the whole entry counts as free
    }
    return table;
  }

  bool write(std::size_t offset, const void* bytes, std::size_t size) const {
    return mSegment.write(Segment::DATA_OFFSET + offset, bytes, size);
  }

  // Whoever comes first, a service or a client, writes the defaults: the word at 5120 stays and is copied behind
  // itself, and the flag comes last, so that whoever dies in between leaves it to the next to begin anew.
  bool beginResource() const {
    std::uint8_t initialised = 0;
    mSegment.read(Segment::DATA_OFFSET + INITIALISED, &initialised, sizeof(initialised));
    if (initialised != 0) {
      return true;
    }
    Resource defaults = idl::wire::carPlayDefaults();
    auto* const bytes = reinterpret_cast<unsigned char*>(&defaults);
    std::uint32_t kept = 0;
    mSegment.read(Segment::DATA_OFFSET + KEPT, &kept, sizeof(kept));
    std::memcpy(bytes + KEPT, &kept, sizeof(kept));
    std::memcpy(bytes + KEPT + sizeof(kept), &kept, sizeof(kept));
    return write(0, bytes, INITIALISED) && write(INITIALISED, bytes + INITIALISED, sizeof(defaults.initialised));
  }

  // Attached, or created, here; the size word in front of the resource is written with it.
  const Segment mSegment{idl::wire::CARPLAY_SEGMENT};
  LmSharedMemNotifier mNotifier{false};
  std::uint32_t mChanges = 0;
};

/// The whole word as a number, 0x in front of a hexadecimal one, or nothing when it is none or more than `most`.
std::optional<std::uint64_t> numberUpTo(std::uint64_t most, const char* word) {
  char* end = nullptr;
  errno = 0;
  const int base = word[0] == '0' && word[1] == 'x' ? 16 : 10;
  const std::uint64_t number = std::strtoull(word, &end, base);
  const bool isOne = *word >= '0' && *word <= '9' && *end == '\0' && errno == 0;
  return isOne && number <= most ? std::optional(number) : std::nullopt;
}

}  // namespace

int main(int count, char** arguments) {
  std::vector<Phone> phones;
  for (int k = 1; k < count; k += 3) {
    const bool isWhole = k + 2 < count;
    const std::optional<std::uint64_t> identifier = numberUpTo(UINT64_MAX, arguments[k]);
    const std::optional<std::uint64_t> btid = isWhole ? numberUpTo(255, arguments[k + 2]) : std::nullopt;
    if (!identifier || *identifier == 0 || !btid) {
      std::cerr << "usage: publisher-carplay [IDENTIFIER NAME BTID]...; an IDENTIFIER is not 0, a BTID 0 to 255\n";
      return 2;
    }
    phones.push_back({*identifier, arguments[k + 1], static_cast<std::uint8_t>(*btid)});
  }
  // A service publishes when it starts, also when there is no phone, and then at each change; the resource outlives it.
  CarPlayPhones list;
  if (!list.publish(phones, phones.empty() ? 0 : phones.front().identifier)) {
    std::cerr << "publisher-carplay: not published, or not all\n";
    return 1;
  }
  return 0;
}
