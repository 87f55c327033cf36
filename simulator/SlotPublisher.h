// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_SLOTPUBLISHER_H
#define SIMULATOR_SLOTPUBLISHER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "simulator/BenchSegment.h"
#include "simulator/Text.h"

namespace idl::bench {

/// Where a stand-in dies while it puts a phone.
enum class CrashPoint {
  LOCKED,        ///< it holds the lock, and has written nothing yet
  HALF_WRITTEN,  ///< it holds the lock, and has written the first half of the record
  BEFORE_NOTIFY  ///< it has written the record and given the lock back, but told nobody
};

/// Stands in for a service that publishes its phones in the slots of a table: BtPublisher, AapPublisher, CpPublisher.
///
///     BtPublisher bluetooth;
///     bluetooth.initialise();
///     bluetooth.put(0, {3, "Phone", "00:00:5E:00:53:03"});
///     bluetooth.change("Phone", [](BtPhone& phone) { phone.id = 4; });
///     bluetooth.remove("Phone");
///
/// What changes the table does so under its lock, and then tells it once under the format's notification id; where a
/// function returns a number and says nothing else of it, that is the notification's: the count of this publisher's
/// changes. A name means the first phone, in the order of the slots, that has it, be it cut to what the table holds.
/// For one thread.
///
/// Format has the records and their places; see BtFormat.
/// @throw std::out_of_range from any function that takes a slot or a name, and nothing happens, when there is no such
///        slot or phone; std::runtime_error from any function, when the table cannot be read or written, as one that
///        has been cut short, or the change not be told.
template <class Format>
class SlotPublisher {
 public:
  using Phone = typename Format::Phone;

  static const char* const SEGMENT;  // its bare name, and that of its lock
  static constexpr unsigned SLOT_COUNT = Format::SLOT_COUNT;
  static constexpr std::size_t SLOT_SIZE = sizeof(typename Format::Slot);

  /// Opens or creates the segment; a table that is there already stays as it is.
  SlotPublisher();

  /// Writes the whole payload as the service does when it starts: no phone, and what else it begins with. Tells nobody.
  void initialise();

  std::uint32_t put(unsigned slot, const Phone& phone, Texts texts = Texts::CUT);
  std::uint32_t clear(unsigned slot);

  /// Writes all slots at once, those that `phones` does not name being free: nobody sees a part of it.
  std::uint32_t replaceAll(const std::map<unsigned, Phone>& phones);

  /// Puts the phone into the first free slot. @return the slot.
  /// @throw std::runtime_error, and nothing happens, when the table is full; std::invalid_argument for a phone that
  ///        would leave the slot free.
  unsigned add(const Phone& phone);

  std::uint32_t remove(const std::string& name);

  /// Writes the phone's record anew as `edit`, which is called with the lock held, leaves it. What `edit` throws leaves
  /// the table as it is.
  std::uint32_t change(const std::string& name, const std::function<void(Phone&)>& edit);

  /// Nothing for a free slot.
  std::optional<Phone> get(unsigned slot) const;

  /// All phones by their slots.
  std::map<unsigned, Phone> phones() const;

  /// The slot of the phone of that name.
  std::optional<unsigned> find(const std::string& name) const;

  std::optional<unsigned> firstFree() const;

  /// Where a slot begins, from the start of the segment.
  static std::size_t offsetOf(unsigned slot);

  /// Puts the phone, and on the way dies by SIGKILL.
  [[noreturn]] void crash(CrashPoint point, unsigned slot, const Phone& phone);

  /// Faults of a service: the phone is written without a word to anybody, or without the lock.
  void putUntold(unsigned slot, const Phone& phone);
  std::uint32_t putUnlocked(unsigned slot, const Phone& phone);

  /// Fills the payload with bytes by chance, the same ones for the same seed.
  std::uint32_t writeGarbage(std::uint32_t seed);

  /// Writes bytes at `offset` from the start of the segment, the size word included.
  /// @throw std::runtime_error, and nothing happens, when they go beyond its end.
  std::uint32_t writeRaw(std::size_t offset, const std::string& bytes);

  /// Makes the object `size` bytes long and its first ones, from the size word on, those of `image`, all at once.
  /// @throw std::runtime_error when `image` is longer than that, or there is no object.
  std::uint32_t replaceImage(const std::string& image, std::size_t size);

  /// Removes the object, as when the service is taken out of the unit. Tells nobody. Who is attached, this publisher
  /// too, goes on with the object that has no name any more.
  void vanish();

  /// Makes the object again after vanish(), with a table as of initialise(), and attaches it; one that somebody else
  /// has made meanwhile is taken over.
  std::uint32_t comeBack();

  /// Cuts or lengthens the object to that many bytes, with zeros behind.
  /// @throw std::runtime_error, and nothing happens, when there is none.
  std::uint32_t resize(std::size_t bytes);

 protected:
  using Segment = BenchSegment<typename Format::Table>;

  const Segment& segment() const { return mSegment; }

  /// Tells every client that the table has changed; call without the lock, so that nobody who reads at once has to
  /// wait.
  std::uint32_t tell();

 private:
  using Slot = typename Format::Slot;

  static unsigned checked(unsigned slot);
  void write(unsigned slot, const Slot& image) const;
  std::vector<Slot> slots() const;
  unsigned slotNamed(const std::string& name) const;

  Segment mSegment;
  LmSharedMemNotifier mNotifier;
  std::uint32_t mChanges = 0;
};

}  // namespace idl::bench

#endif
