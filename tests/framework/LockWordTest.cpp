// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <set>

#include "LmFramework/posix/LockWord.h"

namespace {

// Every word there is while somebody holds the lock.
std::set<std::uint32_t> heldWords() {
  std::set<std::uint32_t> words;
  for (unsigned slot = 1; slot <= LockWord::SLOTS; ++slot) {
    words.insert(LockWord::heldBy(slot));
    words.insert(LockWord::heldBy(slot) | LockWord::WAITERS);
  }
  return words;
}

}  // namespace

TEST(AWordOfASlot, NamesItWithAndWithoutWaiters) {
  for (unsigned slot = 1; slot <= LockWord::SLOTS; ++slot) {
    for (const std::uint32_t waiters : {std::uint32_t{0}, LockWord::WAITERS}) {
      const std::uint32_t word = LockWord::heldBy(slot) | waiters;

      ASSERT_TRUE(LockWord::isHeld(word));
      ASSERT_EQ(slot, LockWord::slotOf(word));
    }
  }
}

TEST(AFreeWord, IsNobodys) {
  EXPECT_FALSE(LockWord::isHeld(LockWord::FREE));
  EXPECT_FALSE(LockWord::isHeld(LockWord::WAITERS));
}

TEST(AWordWithOneByteChanged, NamesNobodyElse) {
  std::set<std::uint32_t> words = heldWords();
  words.insert(LockWord::FREE);
  for (const std::uint32_t word : words) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      for (std::uint32_t change = 1; change <= 0xFF; ++change) {
        const std::uint32_t changed = word ^ change << shift;

        ASSERT_NE(LockWord::FREE, changed) << word;
        ASSERT_TRUE(!LockWord::isHeld(changed) || changed == (word ^ LockWord::WAITERS)) << word << " " << changed;
      }
    }
  }
}

TEST(AWordWithThreeBytesChanged, NamesNobodyElse) {
  const std::set<std::uint32_t> words = heldWords();
  for (const std::uint32_t one : words) {
    for (const std::uint32_t other : words) {
      const std::uint32_t different = (one ^ other) & ~LockWord::WAITERS;
      for (unsigned shift = 0; different != 0 && shift < 32; shift += 8) {
        ASSERT_NE(0U, different >> shift & 0xFF) << one << " " << other;
      }
    }
  }
}

TEST(ARandomWord, PassesForAHeldOneOnceIn2To24) {
  constexpr std::uint32_t CHECKS = std::uint32_t{1} << 24;
  for (const unsigned slot : {1U, 64U, 93U, 127U}) {
    std::uint32_t held = 0;
    for (std::uint32_t check = 0; check < CHECKS; ++check) {
      held += LockWord::isHeld(slot << 24 | check) ? 1U : 0U;
    }

    EXPECT_EQ(1U, held) << slot;  // so there are 254 of 2^32
  }
  EXPECT_EQ(2 * LockWord::SLOTS, heldWords().size());
}

TEST(AWordOfOneByteFourTimes, IsNobodys) {
  for (std::uint32_t byte = 0; byte <= 0xFF; ++byte) {
    EXPECT_FALSE(LockWord::isHeld(byte * 0x01010101)) << byte;
  }
}
