// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/Findings.h"

#include <cstring>
#include <map>
#include <set>
#include <tuple>

#include "FixedText.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "IntegratedDeviceList/idl.h"
#include "SuffixRecord.h"
#include "tools/text/Counted.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

namespace def = LmSIntegratedDeviceListDef;

template <std::size_t Size>
bool hasNoEnd(const char (&field)[Size]) {
  return fixedText(field).size() == Size;
}

std::string number(unsigned long long value) { return std::to_string(value); }

std::string slotText(unsigned slot) { return "slot " + number(slot); }

// Collects the findings about one thing.
class Collector {
 public:
  explicit Collector(std::string about) : mAbout(std::move(about)) {}

  void suspicious(const char* id, std::string what, std::string advice) {
    mFindings.push_back({mAbout, id, std::move(what), std::move(advice), false});
  }

  void damaged(const char* id, std::string what, std::string advice) {
    mFindings.push_back({mAbout, id, std::move(what), std::move(advice), true});
  }

  std::vector<Finding> take() { return std::move(mFindings); }

 private:
  const std::string mAbout;
  std::vector<Finding> mFindings;
};

constexpr char ASK_THE_SERVICE[] = "This is for whoever writes the service to mend.";

void checkText(Collector& collector, unsigned slot, const char* field, bool endless) {
  if (endless) {
    collector.damaged("text-without-end",
                      "The " + std::string(field) + " in " + slotText(slot) + " has no end: its last byte is not 0.",
                      std::string("Clients take the whole field for the text. ") + ASK_THE_SERVICE);
  }
}

template <class Slot>
std::vector<Slot> slotsOf(const Source& source, const TableCopy& copy, std::size_t offset, unsigned count) {
  std::vector<Slot> slots;
  for (unsigned k = 0; k < count; ++k) {
    const std::size_t at = source.dataOffset + offset + k * sizeof(Slot);
    if (copy.bytes.size() < at + sizeof(Slot)) {
      break;
    }
    slots.push_back(fieldAt<Slot>(copy, at));
  }
  return slots;
}

void checkBt(const TableCopy& copy, Collector& collector) {
  const auto slots = slotsOf<wire::BtSlot>(BT_SOURCE, copy, 0, wire::BtPairedDeviceList::SLOT_COUNT);
  const std::string payload = copy.bytes.substr(std::min(copy.bytes.size(), BT_SOURCE.dataOffset));
  if (!payload.empty() && payload.find_first_not_of('\0') == std::string::npos) {
    collector.suspicious("bt-not-written",
                         "The table is all zeros: a slot of zeros is a phone with the id 0, so the list shows " +
                             counted(slots.size(), "nameless phone") + ".",
                         "Nobody has written the table yet, or somebody made it by mistake. Start the Bluetooth "
                         "service, or remove the object.");
    return;
  }
  std::map<unsigned, unsigned> firstSlotOf;
  for (unsigned k = 0; k < slots.size(); ++k) {
    const wire::BtSlot& slot = slots[k];
    if (slot.id == def::DeviceInfo::BTID_NONE) {
      continue;
    }
    const auto [first, isNew] = firstSlotOf.emplace(slot.id, k);
    if (!isNew) {
      collector.suspicious("bt-id-twice",
                           "The Bluetooth id " + number(slot.id) + " is there twice, in " + slotText(first->second) +
                               " and " + slotText(k) + ".",
                           "Only the first of them is merged with CarPlay and Android Auto, and both are listed. Have "
                           "the Bluetooth service remove the pairing that is not the phone's.");
    }
    checkText(collector, k, "name", hasNoEnd(slot.name));
    checkText(collector, k, "address", hasNoEnd(slot.address));
  }
}

void checkCp(const TableCopy& copy, Collector& collector) {
  const auto slots = slotsOf<cps_def::WCPAtom>(CP_SOURCE, copy, offsetof(wire::CarPlaySharedMemStruct, phones),
                                               wire::CarPlaySharedMemStruct::PHONE_COUNT);
  const bool isWhole = copy.bytes.size() >= CP_SOURCE.segmentSize;
  if (isWhole &&
      fieldAt<std::uint8_t>(copy, CP_SOURCE.dataOffset + offsetof(wire::CarPlaySharedMemStruct, initialised)) == 0) {
    collector.suspicious("cp-not-initialised", "Nobody has written the defaults into the CarPlay resource yet.",
                         "The next client or service that attaches it will.");
  }
  std::map<std::uint64_t, unsigned> firstSlotOf;
  for (unsigned k = 0; k < slots.size(); ++k) {
    const cps_def::WCPAtom& slot = slots[k];
    if (slot.valid == 0 || slot.identifier == 0) {
      continue;
    }
    const auto [first, isNew] = firstSlotOf.emplace(slot.identifier, k);
    if (!isNew) {
      collector.suspicious("cp-identifier-twice",
                           "The identifier " + number(slot.identifier) + " is there twice, in " +
                               slotText(first->second) + " and " + slotText(k) + ".",
                           "An identifier has to be one phone's.");
    }
    checkText(collector, k, "name", hasNoEnd(slot.name));
  }
}

void checkAap(const TableCopy& copy, Collector& collector) {
  const auto slots = slotsOf<wire::AapSlot>(AAP_SOURCE, copy, 0, wire::AapDeviceList::SLOT_COUNT);
  std::map<std::string, unsigned> firstSlotOf;
  for (unsigned k = 0; k < slots.size(); ++k) {
    const wire::AapSlot& slot = slots[k];
    const std::string id(fixedText(slot.id));
    if (id.empty()) {
      continue;
    }
    const auto [first, isNew] = firstSlotOf.emplace(id, k);
    if (!isNew) {
      collector.suspicious("aap-id-twice",
                           "The identifier " + quotedText(id) + " is there twice, in " + slotText(first->second) +
                               " and " + slotText(k) + ".",
                           "An identifier has to be one phone's.");
    }
    checkText(collector, k, "name", hasNoEnd(slot.name));
    checkText(collector, k, "identifier", hasNoEnd(slot.id));
  }
}

}  // namespace

std::vector<Finding> checkObject(const Source& source, const TableCopy& copy) {
  Collector collector(source.word);
  switch (copy.state) {
    case TableCopy::State::ABSENT:
      collector.suspicious("absent", "There is no object " + std::string(source.segment) + ".",
                           source.isTable ? std::string("Start the ") + source.person +
                                                " service; the first who uses the table makes it."
                                          : "Without it, clients do not wait for Bluetooth when they start.");
      return collector.take();
    case TableCopy::State::UNREADABLE:
      collector.suspicious("not-to-be-read",
                           std::string(source.segment) + " cannot be read: " + std::strerror(copy.error) + ".",
                           "Look at its owner and its mode, or be root.");
      return collector.take();
    case TableCopy::State::NOT_A_TABLE:
      collector.damaged("not-a-table", std::string(source.segment) + " is no shared memory but something else.",
                        "Clients take it for an empty source. Remove it, and start the service again.");
      return collector.take();
    case TableCopy::State::READ:
      break;
  }
  if (copy.objectSize < source.segmentSize) {
    collector.damaged(
        copy.objectSize == 0 ? "empty" : "too-short",
        std::string(source.segment) + " has " + number(copy.objectSize) + " bytes instead of " +
            number(source.segmentSize) + ".",
        copy.objectSize == 0
            ? "Its creator died early, or the unit makes it at boot; the next who attaches it makes it whole."
            : "Slots that are cut off do not count. It is never lengthened: remove it, and start the "
              "service again.");
  } else if (copy.objectSize > source.segmentSize) {
    collector.suspicious("too-long",
                         std::string(source.segment) + " has " + number(copy.objectSize) + " bytes instead of " +
                             number(source.segmentSize) + ".",
                         "The rest is never read. It may be another version's.");
  }
  const auto sizeWord = fieldAt<std::uint32_t>(copy, 0);
  const std::size_t dataSize = source.segmentSize - source.dataOffset;
  if (copy.bytes.size() >= sizeof(sizeWord) && sizeWord != dataSize) {
    collector.suspicious("size-word",
                         "The size word of " + std::string(source.segment) + " says " + number(sizeWord) +
                             " instead of " + number(dataSize) + ".",
                         "Nobody reads it, and whoever attaches the segment next writes it again.");
  }
  if (!copy.isSettled) {
    collector.suspicious("unsettled", "The table changed all the time while it was read without its lock.",
                         "Look again, as a user who may take the lock.");
  }
  return collector.take();
}

std::vector<Finding> checkRecords(const Source& source, const TableCopy& copy) {
  Collector collector(source.word);
  if (copy.isRead()) {
    if (&source == &BT_SOURCE) {
      checkBt(copy, collector);
    } else if (&source == &CP_SOURCE) {
      checkCp(copy, collector);
    } else if (&source == &AAP_SOURCE) {
      checkAap(copy, collector);
    }
  }
  return collector.take();
}

std::vector<Finding> checkLock(const Source& source, const LockView& lock) {
  Collector collector(source.word);
  switch (lock.state) {
    case LockView::State::HELD_BY_DEAD:
      collector.suspicious("holder-dead", "The process " + number(lock.holder) + " died while it held the lock.",
                           "The next who locks takes it over, with a log line; a record may be half written.");
      break;
    case LockView::State::GARBAGE:
      collector.damaged("lock-garbage", "Somebody has written over the lock's file.",
                        "The next who locks repairs it, with a log line.");
      break;
    case LockView::State::OTHER_VERSION:
      collector.damaged("lock-version", "The lock's file is of another version.",
                        "Processes of different versions of the library run together, and do not exclude each other.");
      break;
    case LockView::State::NOT_A_LOCK:
      collector.damaged("not-a-lock", "Something else is in the place of the lock's file.",
                        "Nobody can lock, so nobody excludes another. Remove " + lockObjectOf(source.segment) + ".");
      break;
    case LockView::State::ABSENT:
    case LockView::State::UNREADABLE:
    case LockView::State::NEW:
    case LockView::State::FREE:
    case LockView::State::HELD:
      break;
  }
  return collector.take();
}

std::vector<Finding> checkSaved(const SavedTableCopy& saved) {
  Collector collector("saved");
  if (saved.state == SavedTableCopy::State::ABSENT) {
    return {};
  }
  if (!saved.isRead()) {
    const bool isOdd = saved.state == SavedTableCopy::State::NOT_A_FILE;
    collector.suspicious(
        isOdd ? "saved-not-a-file" : "saved-not-to-be-read",
        quotedText(saved.path) +
            (isOdd ? " is no file." : std::string(" cannot be read: ") + std::strerror(saved.error) + "."),
        "Look at its owner and its mode. Clients that cannot read it start without numbers.");
    return collector.take();
  }
  if (saved.size != sizeof(SuffixFileImage)) {
    collector.damaged(
        "saved-size",
        "The file has " + number(saved.size) + " bytes instead of " + number(sizeof(SuffixFileImage)) + ".",
        "What is missing counts as zeros. It is written whole at the next change.");
  }
  SuffixFileImage image = {};
  std::memcpy(image.data(), saved.bytes.data(), std::min(sizeof(image), saved.bytes.size()));
  for (unsigned k = 0; k < image.size() && image[k].inUse != 0; ++k) {
    const std::string record = "Record " + number(k);
    if (image[k].inUse != 1) {
      collector.damaged("saved-in-use", record + " says " + number(image[k].inUse) + " where 1 says that it is in use.",
                        "It counts as in use.");
    }
    if (hasNoEnd(image[k].name)) {
      collector.damaged("saved-name-without-end", record + " has a name without an end.",
                        "The whole field counts as the name.");
    }
    if (image[k].btid == def::DeviceInfo::BTID_NONE) {
      collector.damaged("saved-not-paired", record + " has no Bluetooth id.", "No phone can have its number.");
    }
    if (image[k].suffix == 0) {
      collector.suspicious("saved-no-number", record + " has no number.",
                           "The phone is given one at the next refresh.");
    }
  }
  const auto entries = savedEntries(saved);
  if (wouldBeForgotten(entries)) {
    collector.damaged("saved-alike", "Two entries would be displayed alike, so that a client which starts forgets all.",
                      "Numbers are then given anew, in the order of the list. suffixes check names the entries.");
  }
  return collector.take();
}

std::vector<Finding> checkList(const Unit& unit, const ListNow& list) {
  Collector collector("list");
  if (awaitsBluetooth(unit.funcInfo) && !list.isStarted) {
    collector.suspicious("not-started",
                         "FuncInfo says that the unit has Bluetooth, so that no list is started before Bluetooth was "
                         "refreshed, and there is no Bluetooth table.",
                         "Start the Bluetooth service.");
  }
  for (const Explanation::UnknownPairing& unknown : list.why.unknownPairings()) {
    collector.suspicious(
        "pairing-unknown",
        std::string(sourceOf(unknown.device.type).person) + " lists " + quotedText(unknown.device.name) +
            " with the Bluetooth id " + number(unknown.device.btid) + ", which Bluetooth does not know.",
        std::string(unknown.isListed ? "It is listed as connected by USB alone. " : "It is not listed. ") +
            "Pair the phone again, or have the service forget the id.");
  }
  std::set<std::tuple<std::string, std::int32_t>> seen;
  std::set<std::tuple<std::string, std::int32_t>> told;
  for (const def::IntegratedDevice& phone : list.phones) {
    if (idl::isBtPaired(phone)) {
      continue;
    }
    const std::string own(phone.type == def::DEVICE_TYPE_AAP ? fixedText(phone.aapDevice.name)
                                                             : fixedText(phone.cpDevice.name));
    const auto key = std::make_tuple(own, phone.port);
    if (!seen.insert(key).second && told.insert(key).second) {
      collector.suspicious(
          "same-name-same-port",
          "Several phones that are not paired have the name " + quotedText(own) + " and the port " +
              std::to_string(phone.port) + ".",
          "Their numbers cannot be kept apart from refresh to refresh: give the phones names of their own, or "
          "have the service say at which port each is.");
    }
  }
  return collector.take();
}

}  // namespace idl::tools
