// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_LOCKWORD_H
#define LMFRAMEWORK_POSIX_LOCKWORD_H

#include <cstdint>

/// The 32 bits that say who holds a named lock.
///
///      31  30      24  23      16  15       8  7        0
///     +---+----------+-----------+-----------+-----------+
///     | W |   slot   |        check, made of the slot    |      or all zeros: free
///     +---+----------+-----------+-----------+-----------+
///
/// W says that somebody may be waiting; slot, 1 to 127, who holds it (LockFile.h). The check is 24 bits of nothing but
/// redundancy: of all words 1 in 2^24 passes for a held one, and two that name different slots differ in every byte, so
/// that no change that leaves a byte alone makes another holder of one.
class LockWord {
 public:
  static constexpr std::uint32_t FREE = 0;
  static constexpr std::uint32_t WAITERS = 0x80000000;
  static constexpr unsigned SLOTS = 127;

  /// The word while the process in `slot` holds the lock and nobody waits.
  static constexpr std::uint32_t heldBy(unsigned slot) {
    return slot << SLOT_SHIFT | byte(slot, 0x4D) << 16 | byte(slot, 0xB5) << 8 | byte(slot, 0xC7);
  }

  static constexpr unsigned slotOf(std::uint32_t word) { return (word & ~WAITERS) >> SLOT_SHIFT; }

  /// False for a free word and for garbage.
  static constexpr bool isHeld(std::uint32_t word) {
    return slotOf(word) != 0 && (word & ~WAITERS) == heldBy(slotOf(word));
  }

 private:
  static constexpr unsigned SLOT_SHIFT = 24;

  // With an odd factor no two slots have the same byte, and none has that of a free word.
  static constexpr std::uint32_t byte(unsigned slot, unsigned factor) { return slot * factor & 0xFF; }
};

#endif
