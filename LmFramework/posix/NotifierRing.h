// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_NOTIFIERRING_H
#define LMFRAMEWORK_POSIX_NOTIFIERRING_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/SharedFile.h"

// The file "LmSharedMemNotifier": one header, then 256 slots; the message with sequence number n, counted from 0,
// stands in slot n % 256 until the 256th later one begins to be written. Little-endian, the same for 32 and 64 bits.
//
//     offset  size  header
//          0     4  magic, the characters "LmNR"
//          4     4  version of this format, 1
//          8     4  number of slots, 256
//         12     4  bytes in a slot, 96
//         16     8  generation: not 0, another one each time the ring is made or made anew
//         24     8  head: the sequence number that the next message gets; its low half is the futex word
//         32     8  head check: all bits of (head ^ generation) inverted
//         40     8  checksum of the bytes 0 to 23
//         48    16  zero
//
//     offset  size  slot
//          0     8  generation in which it was written
//          8     8  sequence number
//         16     4  id
//         20     4  bytes of data used, 0 to 64
//         24    64  data, zero behind what is used
//         88     8  checksum of the bytes 0 to 87
//
// A writer locks its generation, writes the slot, looks whether the generation is still the same, writes head and head
// check, looks once more, then wakes. A writer that is stopped in between is not waited for: the ring is made anew.
// When it goes on it may spoil one message of the new ring, or its head; it then makes the ring anew itself, and begins
// again. Readers take no lock: the checksums tell them what is torn or garbage.
//
// Locks are on single bytes far behind the end of the file, whose length does not change by that: 0x40000000 +
// generation % 0x100000 for the writers of a generation, 0x40000000 for those who found the ring not intact, and
// 0x40100000 for those who pass by somebody that stands still.

struct NotifierRingHeader {
  std::uint32_t magic;
  std::uint32_t version;
  std::uint32_t slotCount;
  std::uint32_t slotSize;
  alignas(8) std::uint64_t generation;
  alignas(8) std::uint64_t head;
  alignas(8) std::uint64_t headCheck;
  alignas(8) std::uint64_t checksum;
  std::uint8_t reserved[16];
};
static_assert(sizeof(NotifierRingHeader) == 64 && offsetof(NotifierRingHeader, generation) == 16 &&
              offsetof(NotifierRingHeader, head) == 24 && offsetof(NotifierRingHeader, headCheck) == 32 &&
              offsetof(NotifierRingHeader, checksum) == 40 && std::is_trivially_copyable_v<NotifierRingHeader>);

struct NotifierRingSlot {
  static constexpr std::uint32_t DATA_SIZE = 64;

  alignas(8) std::uint64_t generation;
  alignas(8) std::uint64_t sequence;
  std::uint32_t id;
  std::uint32_t size;
  std::uint8_t data[DATA_SIZE];
  alignas(8) std::uint64_t checksum;
};
static_assert(sizeof(NotifierRingSlot) == 96 && offsetof(NotifierRingSlot, sequence) == 8 &&
              offsetof(NotifierRingSlot, id) == 16 && offsetof(NotifierRingSlot, data) == 24 &&
              offsetof(NotifierRingSlot, checksum) == 88 && std::is_trivially_copyable_v<NotifierRingSlot>);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the format is little-endian");

/// One opening of the ring through which all notifiers of the unit send their messages. Used by one thread at a time,
/// except wake().
class NotifierRing : private LmUncopyable {
 public:
  static constexpr char NAME[] = "LmSharedMemNotifier";
  static constexpr std::uint32_t SLOT_COUNT = 256;
  static constexpr std::uint32_t FILE_SIZE = sizeof(NotifierRingHeader) + SLOT_COUNT * sizeof(NotifierRingSlot);

  /// A place in the stream of messages.
  struct Position {
    std::uint64_t generation = 0;
    std::uint64_t sequence = 0;
  };

  struct Head {
    /// False when the ring is garbage or cut short; a publisher will make it anew.
    bool valid = false;
    Position position;
    /// What wait() needs.
    std::uint32_t word = 0;
  };

  /// @throw std::bad_alloc
  NotifierRing();
  ~NotifierRing();

  /// Opens the ring, and makes it when there is none; opens it again when it was removed, replaced or given another
  /// name.
  /// @return 0 or an error number
  int open();
  void close();

  /// The ring has to be open from here on.
  Head head() const;

  /// Reads the message at `position`. False when it is not there, not yet or no more, or not intact.
  bool read(const Position& position, NotifierRingSlot& slot) const;

  /// What had to be done so that a message could be published.
  struct Repairs {
    /// The ring was not intact and was made anew; not when that was for the first time, in a file found empty.
    bool madeAnew = false;
    /// Another writer kept its lock for a second, and the ring was made anew.
    bool passedBy = false;
  };

  /// Publishes one message of at most 64 bytes and wakes the readers. Waits for other writers, for two seconds in all
  /// at most; times in which this process was itself stopped do not count.
  /// @return 0 or an error number; ETIMEDOUT when somebody has locked the ring whole, and nothing is published: writers
  ///         without a lock would overwrite each other's messages.
  int publish(std::uint32_t id, const void* data, std::uint32_t size, Repairs& repairs);

  /// Waits until woken, or the futex word is not `word`, or the time is over. False, at once, when the ring cannot be
  /// waited on: not open, or cut short.
  bool wait(std::uint32_t word, std::chrono::milliseconds timeout) const;

  /// Wakes all that wait on the ring, in all processes. Any thread, at any time; nothing happens while it is not open.
  void wake() const;

 private:
  int makeAnew();
  int append(NotifierRingHeader header, std::uint32_t id, const void* data, std::uint32_t size);
  void unmap();

  SharedFile mFile;
  bool mFoundEmpty = false;  // when it was opened; a unit makes it so at boot to give it its owner
  // The futex word in the first page. Its address is all that is used: a load would kill the process if somebody cut
  // the file short, the kernel just refuses.
  std::atomic<std::uint32_t*> mWord{nullptr};
};

#endif
