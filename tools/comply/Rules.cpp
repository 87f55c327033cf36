// SPDX-License-Identifier: Apache-2.0
#include "tools/comply/Rules.h"

#include <cstring>
#include <map>
#include <string_view>
#include <vector>

#include "FixedText.h"
#include "IntegratedDeviceList/CarPlayDefaults.h"
#include "IntegratedDeviceList/WireFormat.h"

namespace idl::tools::comply {

namespace {

struct RuleText {
  const char* id;
  const char* title;
};

constexpr std::array<RuleText, RULES.size()> TEXTS = {{
    {"ends-texts", "ends its texts"},
    {"keeps-free-slots-free", "keeps free slots free"},
    {"keeps-size-word", "keeps the size word"},
    {"uses-ids-in-range", "uses ids in range"},
    {"notifies", "tells of its changes"},
    {"writes-under-lock", "writes under the lock"},
}};

constexpr std::size_t CARPLAY_KEPT_WORD = 5120;  // in the segment

/// A text field of a slot.
struct Text {
  const char* name;
  std::size_t at;  // in the slot
  std::size_t size;
};

/// A slot as the rules see it, whichever table it is of.
struct Slot {
  unsigned number = 0;
  std::size_t at = 0;  // in the segment
  std::size_t size = 0;
  bool isOccupied = false;
  const char* hollow = nullptr;  // why it is neither a phone nor free; null where it is one of them
  std::vector<Text> texts;
  std::string key;          // what must not be there twice; empty: nothing
  std::size_t keyAt = 0;    // in the slot
  std::size_t keySize = 0;  // bytes of it to show
  const char* idTrouble = nullptr;
  std::size_t idAt = 0;
  std::size_t idSize = 0;
};

Slot slotOf(const wire::BtSlot& bt) {
  Slot slot;
  slot.isOccupied = bt.id != 255;
  if (slot.isOccupied && bt.name[0] == '\0' && bt.address[0] == '\0') {
    slot.hollow = "is not marked as free, and holds nothing else: it is listed as a phone without a name.";
  }
  slot.texts = {{"name", offsetof(wire::BtSlot, name), sizeof(bt.name)},
                {"address", offsetof(wire::BtSlot, address), sizeof(bt.address)}};
  slot.key = std::to_string(bt.id);
  slot.keyAt = offsetof(wire::BtSlot, id);
  slot.keySize = sizeof(bt.id);
  return slot;
}

Slot slotOf(const cps_def::WCPAtom& cp) {
  Slot slot;
  slot.isOccupied = cp.valid != 0 && cp.identifier != 0;
  if (cp.valid != 0 && cp.identifier == 0) {
    slot.hollow = "is marked as valid, and has no identifier: no list shows it.";
  }
  slot.texts = {{"name", offsetof(cps_def::WCPAtom, name), sizeof(cp.name)}};
  slot.key = std::to_string(cp.identifier);
  slot.keyAt = offsetof(cps_def::WCPAtom, identifier);
  slot.keySize = sizeof(cp.identifier);
  if (cp.btid == 255) {
    slot.idTrouble = "a Bluetooth id of 255, which is none; CarPlay's word for none is 0";
    slot.idAt = offsetof(cps_def::WCPAtom, btid);
    slot.idSize = sizeof(cp.btid);
  }
  return slot;
}

Slot slotOf(const wire::AapSlot& aap) {
  Slot slot;
  slot.isOccupied = aap.id[0] != '\0';
  const bool hasBtid = aap.btid != 0 && aap.btid != 255;  // free slots have 255, those of a table of zeros 0
  if (!slot.isOccupied && (aap.session != 0 || aap.name[0] != '\0' || hasBtid || aap.port != 0)) {
    slot.hollow = "has no identifier, which is the mark of a free one, and holds other things: no list shows it.";
  }
  slot.texts = {{"name", offsetof(wire::AapSlot, name), sizeof(aap.name)},
                {"identifier", offsetof(wire::AapSlot, id), sizeof(aap.id)}};
  slot.key = std::string(fixedText(aap.id));
  slot.keyAt = offsetof(wire::AapSlot, id);
  slot.keySize = slot.key.size();
  if (aap.port < 0) {
    slot.idTrouble = "a port below 0, with which no list shows the phone unless it is paired";
    slot.idAt = offsetof(wire::AapSlot, port);
    slot.idSize = sizeof(aap.port);
  }
  return slot;
}

template <class Image>
std::vector<Slot> slotsOf(const TableCopy& copy, std::size_t offset, unsigned count) {
  std::vector<Slot> slots;
  for (unsigned k = 0; k < count && copy.bytes.size() >= offset + (k + 1) * sizeof(Image); ++k) {
    const std::size_t at = offset + k * sizeof(Image);
    Slot slot = slotOf(fieldAt<Image>(copy, at));
    slot.number = k;
    slot.at = at;
    slot.size = sizeof(Image);
    slots.push_back(slot);
  }
  return slots;
}

std::vector<Slot> slotsOf(const Source& source, const TableCopy& copy) {
  if (&source == &BT_SOURCE) {
    return slotsOf<wire::BtSlot>(copy, source.dataOffset, wire::BtPairedDeviceList::SLOT_COUNT);
  }
  if (&source == &CP_SOURCE) {
    return slotsOf<cps_def::WCPAtom>(copy, source.dataOffset + offsetof(wire::CarPlaySharedMemStruct, phones),
                                     wire::CarPlaySharedMemStruct::PHONE_COUNT);
  }
  return slotsOf<wire::AapSlot>(copy, source.dataOffset, wire::AapDeviceList::SLOT_COUNT);
}

Judgement broken(const TableCopy& copy, std::size_t at, std::size_t size, const std::string& what) {
  return {Verdict::BROKEN, Offence{what, at, copy.bytes.substr(at, size)}};
}

std::string inSlot(const Slot& slot) { return " in slot " + std::to_string(slot.number); }

Judgement judgeTexts(const std::vector<Slot>& slots, const TableCopy& copy) {
  Judgement judgement;
  for (const Slot& slot : slots) {
    for (const Text& text : slot.texts) {
      const std::string_view field = std::string_view(copy.bytes).substr(slot.at + text.at, text.size);
      if (slot.isOccupied && field.find('\0') == std::string_view::npos) {
        return broken(copy, slot.at + text.at, text.size,
                      std::string("The ") + text.name + inSlot(slot) + " has no end.");
      }
    }
    if (slot.isOccupied) {
      judgement.verdict = Verdict::PASSED;
    }
  }
  return judgement;
}

Judgement judgeFreeSlots(const std::vector<Slot>& slots, const TableCopy& copy) {
  Judgement judgement;
  for (const Slot& slot : slots) {
    if (slot.hollow != nullptr) {
      return broken(copy, slot.at, slot.size, "Slot " + std::to_string(slot.number) + ' ' + slot.hollow);
    }
    if (!slot.isOccupied) {
      judgement.verdict = Verdict::PASSED;
    }
  }
  return judgement;
}

Judgement judgeSizeWord(const Source& source, const TableCopy& copy) {
  if (copy.objectSize < source.segmentSize) {
    return broken(copy, 0, sizeof(std::uint32_t),
                  "The object has " + std::to_string(copy.objectSize) + " bytes instead of " +
                      std::to_string(source.segmentSize) + ".");
  }
  const auto word = fieldAt<std::uint32_t>(copy, 0);
  const std::size_t size = source.segmentSize - source.dataOffset;
  if (word != size) {
    return broken(copy, 0, sizeof(word),
                  "The size word says " + std::to_string(word) + " instead of " + std::to_string(size) + ".");
  }
  return {Verdict::PASSED, {}};
}

Judgement judgeIds(const std::vector<Slot>& slots, const TableCopy& copy) {
  Judgement judgement;
  std::map<std::string, unsigned> firstOf;
  for (const Slot& slot : slots) {
    if (!slot.isOccupied) {
      continue;
    }
    if (slot.idTrouble != nullptr) {
      return broken(copy, slot.at + slot.idAt, slot.idSize,
                    "There is " + std::string(slot.idTrouble) + "," + inSlot(slot) + ".");
    }
    const auto [first, isNew] = firstOf.emplace(slot.key, slot.number);
    if (!isNew) {
      return broken(copy, slot.at + slot.keyAt, slot.keySize,
                    "The identifier" + inSlot(slot) + " is that of slot " + std::to_string(first->second) + ", too.");
    }
    judgement.verdict = Verdict::PASSED;
  }
  return judgement;
}

bool hasCarPlayDefaults(const TableCopy& copy) {
  wire::CarPlaySharedMemStruct defaults = wire::carPlayDefaults();
  auto* const image = reinterpret_cast<char*>(&defaults);
  // One word, which may be there before them, is kept and written twice.
  const auto word = fieldAt<std::uint32_t>(copy, CARPLAY_KEPT_WORD);
  for (const std::size_t at : {CARPLAY_KEPT_WORD, CARPLAY_KEPT_WORD + sizeof(word)}) {
    std::memcpy(image + (at - CP_SOURCE.dataOffset), &word, sizeof(word));
  }
  return copy.bytes.compare(CP_SOURCE.dataOffset, std::string::npos, image, sizeof(defaults)) == 0;
}

}  // namespace

const char* idOf(Rule rule) { return TEXTS.at(static_cast<std::size_t>(rule)).id; }

const char* titleOf(Rule rule) { return TEXTS.at(static_cast<std::size_t>(rule)).title; }

bool isUnwritten(const Source& source, const TableCopy& copy) {
  if (copy.bytes.size() <= source.dataOffset) {
    return false;
  }
  return copy.bytes.find_first_not_of('\0', source.dataOffset) == std::string::npos ||
         (&source == &CP_SOURCE && hasCarPlayDefaults(copy));
}

Judgement judge(Rule rule, const Source& source, const TableCopy& copy) {
  if (!copy.isRead()) {
    return {};
  }
  switch (rule) {
    case Rule::ENDS_TEXTS:
      return judgeTexts(slotsOf(source, copy), copy);
    case Rule::KEEPS_FREE_SLOTS_FREE:
      return judgeFreeSlots(slotsOf(source, copy), copy);
    case Rule::KEEPS_SIZE_WORD:
      return judgeSizeWord(source, copy);
    case Rule::USES_IDS_IN_RANGE:
      return judgeIds(slotsOf(source, copy), copy);
    case Rule::NOTIFIES:
    case Rule::WRITES_UNDER_LOCK:
      break;
  }
  return {};
}

}  // namespace idl::tools::comply
