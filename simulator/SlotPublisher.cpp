// SPDX-License-Identifier: Apache-2.0
#include "simulator/SlotPublisher.h"

#include <stdexcept>

#include "LmFramework/LmSyncGuard.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"

namespace idl::bench {

// In one file, because the constant that it is made of lies at another address in each.
template <class Format>
const char* const SlotPublisher<Format>::SEGMENT = Format::segmentName();

template <class Format>
SlotPublisher<Format>::SlotPublisher() : mSegment(SEGMENT), mNotifier(false) {}

template <class Format>
void SlotPublisher<Format>::initialise() {
  const auto table = Format::emptyTable();
  const LmSyncGuard guard(mSegment.lock());
  mSegment.write(Segment::DATA_OFFSET, &table, sizeof(table));
}

template <class Format>
std::uint32_t SlotPublisher<Format>::put(unsigned slot, const Phone& phone, Texts texts) {
  write(slot, Format::slotOf(phone, texts));
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::clear(unsigned slot) {
  write(slot, Format::freeSlot());
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::replaceAll(const std::map<unsigned, Phone>& phones) {
  std::vector<Slot> images(SLOT_COUNT, Format::freeSlot());
  for (const auto& [slot, phone] : phones) {
    images[checked(slot)] = Format::slotOf(phone);
  }
  {
    const LmSyncGuard guard(mSegment.lock());
    mSegment.write(offsetOf(0), images.data(), SLOT_COUNT * SLOT_SIZE);
  }
  return tell();
}

template <class Format>
unsigned SlotPublisher<Format>::add(const Phone& phone) {
  const Slot image = Format::slotOf(phone);
  if (Format::isFree(image)) {
    throw std::invalid_argument(std::string(SEGMENT) + ": a phone of that identifier would leave its slot free");
  }
  std::optional<unsigned> slot;
  {
    const LmSyncGuard guard(mSegment.lock());
    slot = firstFree();
    if (!slot) {
      throw std::runtime_error(std::string(SEGMENT) + ": the table is full");
    }
    write(*slot, image);
  }
  tell();
  return *slot;
}

template <class Format>
std::uint32_t SlotPublisher<Format>::remove(const std::string& name) {
  {
    const LmSyncGuard guard(mSegment.lock());
    write(slotNamed(name), Format::freeSlot());
  }
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::change(const std::string& name, const std::function<void(Phone&)>& edit) {
  {
    const LmSyncGuard guard(mSegment.lock());
    const unsigned slot = slotNamed(name);
    Phone phone = Format::phoneOf(slots()[slot]);
    edit(phone);
    write(slot, Format::slotOf(phone));
  }
  return tell();
}

template <class Format>
std::optional<typename Format::Phone> SlotPublisher<Format>::get(unsigned slot) const {
  const std::size_t offset = offsetOf(slot);
  Slot image = {};
  {
    const LmSyncGuard guard(mSegment.lock());
    mSegment.read(offset, &image, SLOT_SIZE);
  }
  return Format::isFree(image) ? std::nullopt : std::optional<Phone>(Format::phoneOf(image));
}

template <class Format>
std::map<unsigned, typename Format::Phone> SlotPublisher<Format>::phones() const {
  std::map<unsigned, Phone> found;
  const std::vector<Slot> images = slots();
  for (unsigned slot = 0; slot < SLOT_COUNT; ++slot) {
    if (!Format::isFree(images[slot])) {
      found.emplace(slot, Format::phoneOf(images[slot]));
    }
  }
  return found;
}

template <class Format>
std::optional<unsigned> SlotPublisher<Format>::find(const std::string& name) const {
  const std::vector<Slot> images = slots();
  for (unsigned slot = 0; slot < SLOT_COUNT; ++slot) {
    if (!Format::isFree(images[slot]) && Format::isNamed(images[slot], name)) {
      return slot;
    }
  }
  return std::nullopt;
}

template <class Format>
std::optional<unsigned> SlotPublisher<Format>::firstFree() const {
  const std::vector<Slot> images = slots();
  for (unsigned slot = 0; slot < SLOT_COUNT; ++slot) {
    if (Format::isFree(images[slot])) {
      return slot;
    }
  }
  return std::nullopt;
}

template <class Format>
std::size_t SlotPublisher<Format>::offsetOf(unsigned slot) {
  return Segment::DATA_OFFSET + Format::SLOTS_OFFSET + checked(slot) * SLOT_SIZE;
}

template <class Format>
void SlotPublisher<Format>::crash(CrashPoint point, unsigned slot, const Phone& phone) {
  const Slot image = Format::slotOf(phone);
  const std::size_t offset = offsetOf(slot);
  {
    const LmSyncGuard guard(mSegment.lock());
    if (point == CrashPoint::LOCKED) {
      dieHere();
    }
    if (point == CrashPoint::HALF_WRITTEN) {
      mSegment.write(offset, &image, Format::halfOf(image));
      dieHere();
    }
    mSegment.write(offset, &image, SLOT_SIZE);
  }
  dieHere();
}

template <class Format>
void SlotPublisher<Format>::putUntold(unsigned slot, const Phone& phone) {
  write(slot, Format::slotOf(phone));
}

template <class Format>
std::uint32_t SlotPublisher<Format>::putUnlocked(unsigned slot, const Phone& phone) {
  const Slot image = Format::slotOf(phone);
  mSegment.write(offsetOf(slot), &image, SLOT_SIZE);
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::writeGarbage(std::uint32_t seed) {
  mSegment.writeGarbage(seed);
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::writeRaw(std::size_t offset, const std::string& bytes) {
  {
    const LmSyncGuard guard(mSegment.lock());
    mSegment.write(offset, bytes.data(), bytes.size());
  }
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::replaceImage(const std::string& image, std::size_t size) {
  mSegment.replaceImage(image, size);
  return tell();
}

template <class Format>
void SlotPublisher<Format>::vanish() {
  mSegment.vanish();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::comeBack() {
  mSegment.comeBack(Format::emptyTable());
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::resize(std::size_t bytes) {
  mSegment.resize(bytes);
  return tell();
}

template <class Format>
std::uint32_t SlotPublisher<Format>::tell() {
  ++mChanges;
  if (!mNotifier.Publish(Format::NOTIFICATION_ID, &mChanges, sizeof(mChanges))) {
    throw std::runtime_error(std::string(SEGMENT) + ": the change cannot be told");
  }
  return mChanges;
}

template <class Format>
unsigned SlotPublisher<Format>::checked(unsigned slot) {
  if (slot >= SLOT_COUNT) {
    throw std::out_of_range(std::string("the ") + Format::TITLE + " table has slots 0 to " +
                            std::to_string(SLOT_COUNT - 1));
  }
  return slot;
}

template <class Format>
void SlotPublisher<Format>::write(unsigned slot, const Slot& image) const {
  const std::size_t offset = offsetOf(slot);
  const LmSyncGuard guard(mSegment.lock());
  mSegment.write(offset, &image, SLOT_SIZE);
}

template <class Format>
std::vector<typename Format::Slot> SlotPublisher<Format>::slots() const {
  std::vector<Slot> images(SLOT_COUNT);
  const LmSyncGuard guard(mSegment.lock());
  mSegment.read(offsetOf(0), images.data(), SLOT_COUNT * SLOT_SIZE);
  return images;
}

template <class Format>
unsigned SlotPublisher<Format>::slotNamed(const std::string& name) const {
  const std::optional<unsigned> slot = find(name);
  if (!slot) {
    throw std::out_of_range(std::string("the ") + Format::TITLE + " table has no phone of the name \"" + name + "\"");
  }
  return *slot;
}

template class SlotPublisher<BtFormat>;
template class SlotPublisher<AapFormat>;
template class SlotPublisher<CpFormat>;

}  // namespace idl::bench
