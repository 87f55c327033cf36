// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "LmFramework/posix/LockFile.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"

namespace {

using Attempt = LockFile::Attempt;

constexpr char NAME[] = "LmLock.File";
constexpr std::size_t WORD = 16;

// Two openings of a file exclude each other, in one process as in two.
struct AnOpenLockFile : testing::Test {
  AnOpenLockFile() {
    std::filesystem::remove(sharedPath(NAME));
    open(mine);
    open(other);
  }

  static void open(LockFile& file) {
    bool repaired = false;
    ASSERT_EQ(0, file.open(repaired));
    ASSERT_FALSE(repaired);
  }

  static Attempt attempt(LockFile& file) {
    std::uint32_t holder = 0;
    return file.attempt(false, holder);
  }

  // The holder has died, as far as anybody can see.
  static void die(LockFile& file) { file.close(); }

  static std::uint32_t word() {
    std::uint32_t value = 0;
    std::memcpy(&value, sharedContents(NAME).data() + WORD, sizeof value);
    return value;
  }

  static void setWord(std::uint32_t value) {
    std::string page = sharedContents(NAME);
    std::memcpy(&page[WORD], &value, sizeof value);
    overwriteShared(NAME, page);
  }

  LockFile mine{NAME};
  LockFile other{NAME};
};

TEST_F(AnOpenLockFile, IsOnePageWithItsHeader) {
  EXPECT_EQ(std::string("LmLk\1\0\0\0\0\x10\0\0\x92\x13\xAB\x26", 16), sharedContents(NAME).substr(0, 16));
  EXPECT_EQ(LockFile::FILE_SIZE, sharedContents(NAME).size());
  EXPECT_EQ(LockWord::FREE, word());
}

TEST_F(AnOpenLockFile, IsHeldByOneAtATime) {
  EXPECT_TRUE(mine.tryTake());
  EXPECT_FALSE(other.tryTake());
  EXPECT_EQ(Attempt::HELD, attempt(other));

  EXPECT_TRUE(mine.tryGive());

  EXPECT_TRUE(other.tryTake());
  EXPECT_TRUE(other.tryGive());
}

TEST_F(AnOpenLockFile, SaysInItsWordWhoHoldsItAndThatSomebodyWaits) {
  ASSERT_TRUE(mine.tryTake());
  EXPECT_EQ(LockWord::heldBy(1), word());
  ASSERT_EQ(Attempt::HELD, attempt(other));

  other.wait(std::chrono::milliseconds(1));

  EXPECT_EQ(LockWord::heldBy(1) | LockWord::WAITERS, word());
  EXPECT_FALSE(mine.tryGive());
  EXPECT_TRUE(mine.give());
  EXPECT_EQ(LockWord::FREE, word());
}

TEST_F(AnOpenLockFile, IsTakenAsAwaitedByWhoHasWaited) {
  std::uint32_t holder = 0;

  EXPECT_EQ(Attempt::TAKEN, mine.attempt(true, holder));

  EXPECT_EQ(LockWord::heldBy(1) | LockWord::WAITERS, word());
}

TEST_F(AnOpenLockFile, IsTakenFromADeadHolderWhoIsNamed) {
  ASSERT_TRUE(mine.tryTake());
  die(mine);
  std::uint32_t holder = 0;

  EXPECT_FALSE(other.tryTake());
  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, other.attempt(false, holder));

  EXPECT_EQ(static_cast<std::uint32_t>(getpid()), holder);
  EXPECT_EQ(LockWord::heldBy(2) | LockWord::WAITERS, word());
  EXPECT_TRUE(other.give());
}

TEST_F(AnOpenLockFile, IsTakenFromADeadHolderByWhoGetsItsSlot) {
  ASSERT_TRUE(mine.tryTake());
  die(mine);
  LockFile next(NAME);
  open(next);

  EXPECT_EQ(Attempt::HELD, attempt(other)) << "whoever has the slot is about to find out";
  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(next));

  EXPECT_EQ(LockWord::heldBy(1) | LockWord::WAITERS, word());
  EXPECT_EQ(Attempt::HELD, attempt(other));
  EXPECT_TRUE(next.give());
}

TEST_F(AnOpenLockFile, IsTakenFromADeadHolderOnce) {
  LockFile third(NAME);
  open(third);
  ASSERT_TRUE(mine.tryTake());
  die(mine);

  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(other));

  EXPECT_EQ(Attempt::HELD, attempt(third));
  EXPECT_TRUE(other.give());
  EXPECT_EQ(Attempt::TAKEN, attempt(third));
}

TEST_F(AnOpenLockFile, GivesFreedSlotsAway) {
  die(mine);
  LockFile next(NAME);
  open(next);

  ASSERT_TRUE(next.tryTake());

  EXPECT_EQ(LockWord::heldBy(1), word());
}

TEST_F(AnOpenLockFile, HasRoomFor127) {
  std::vector<std::unique_ptr<LockFile>> files;
  for (unsigned slot = 3; slot <= LockWord::SLOTS; ++slot) {
    files.push_back(std::make_unique<LockFile>(NAME));
    open(*files.back());
  }
  LockFile oneTooMany(NAME);
  bool repaired = false;

  EXPECT_EQ(EUSERS, oneTooMany.open(repaired));
  EXPECT_EQ(EUSERS, oneTooMany.open(repaired));

  ASSERT_TRUE(files.back()->tryTake());
  EXPECT_EQ(LockWord::heldBy(LockWord::SLOTS), word());
  EXPECT_TRUE(files.back()->tryGive());
  files.pop_back();
  EXPECT_EQ(0, oneTooMany.open(repaired));
  EXPECT_TRUE(oneTooMany.tryTake());
}

TEST_F(AnOpenLockFile, WithAnImpossibleWordIsTakenFromGarbage) {
  ASSERT_TRUE(mine.tryTake());
  setWord(0x12345678);

  EXPECT_FALSE(other.tryTake());
  EXPECT_EQ(Attempt::TAKEN_FROM_GARBAGE, attempt(other));

  EXPECT_FALSE(mine.tryGive());
  EXPECT_FALSE(mine.give());
  EXPECT_EQ(LockWord::heldBy(2) | LockWord::WAITERS, word()) << "who lost it has given back somebody else's";
  EXPECT_TRUE(other.give());
}

TEST_F(AnOpenLockFile, WithAnImpossibleWordIsFreeOnceItIsGivenBack) {
  ASSERT_TRUE(mine.tryTake());
  setWord(0x12345678);

  EXPECT_FALSE(mine.tryGive());
  EXPECT_FALSE(mine.give());

  EXPECT_EQ(LockWord::FREE, word());
}

// Such a word is the one case that redundancy cannot tell: who is named is believed to hold it, until it locks itself.
TEST_F(AnOpenLockFile, ThatWronglyNamesSomebodyIsTakenByThatOne) {
  setWord(LockWord::heldBy(2));

  EXPECT_EQ(Attempt::HELD, attempt(mine));
  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(other));

  EXPECT_TRUE(other.give());
  EXPECT_EQ(Attempt::TAKEN, attempt(mine));
}

TEST_F(AnOpenLockFile, WhoseHeaderIsOverwrittenWhileItIsHeldStaysHeld) {
  ASSERT_TRUE(mine.tryTake());
  overwriteShared(NAME, "nonsense");
  bool repaired = false;

  EXPECT_FALSE(other.tryTake());
  EXPECT_EQ(0, other.open(repaired));

  EXPECT_TRUE(repaired);
  EXPECT_EQ(Attempt::HELD, attempt(other));
  EXPECT_TRUE(mine.tryGive());
  EXPECT_EQ("LmLk", sharedContents(NAME).substr(0, 4));
}

// Lengthening a file makes zeros of what was written behind its end: had the word been taken there, it would be lost.
TEST_F(AnOpenLockFile, CutOffBeforeOrInItsWordIsNotTakenBeforeItIsLengthened) {
  for (const unsigned size : {16U, 17U, 18U, 19U, 20U, 23U}) {
    std::filesystem::resize_file(sharedPath(NAME), size);

    ASSERT_FALSE(mine.tryTake()) << size;

    bool repaired = false;
    ASSERT_EQ(0, mine.open(repaired));
    ASSERT_TRUE(repaired) << size;
    ASSERT_EQ(LockFile::FILE_SIZE, sharedContents(NAME).size());
    ASSERT_TRUE(mine.tryTake() && mine.tryGive()) << size;
  }
}

TEST_F(AnOpenLockFile, CutToNothingJustBeforeItIsTakenIsNotTaken) {
  std::filesystem::resize_file(sharedPath(NAME), 0);

  EXPECT_FALSE(mine.tryTake());

  bool repaired = false;
  EXPECT_EQ(0, mine.open(repaired));
  EXPECT_TRUE(repaired);
  EXPECT_TRUE(mine.tryTake());
  EXPECT_EQ(Attempt::HELD, attempt(other)) << "each has a page of its own";
}

TEST_F(AnOpenLockFile, CutToNothingIsNoLongerHeld) {
  ASSERT_TRUE(mine.tryTake());
  std::filesystem::resize_file(sharedPath(NAME), 0);

  EXPECT_FALSE(mine.tryGive());
  EXPECT_FALSE(mine.give());

  EXPECT_EQ(LockFile::FILE_SIZE, sharedContents(NAME).size());
  EXPECT_TRUE(other.tryTake());
}

TEST_F(AnOpenLockFile, CutToNothingJustBeforeItIsAskedForIsNotTaken) {
  std::filesystem::resize_file(sharedPath(NAME), 0);

  EXPECT_EQ(Attempt::CHANGED, attempt(mine));
}

TEST_F(AnOpenLockFile, CutToNothingIsNotWaitedFor) {
  ASSERT_TRUE(mine.tryTake());
  ASSERT_EQ(Attempt::HELD, attempt(other));
  std::filesystem::resize_file(sharedPath(NAME), 0);

  other.wait(std::chrono::hours(1));

  bool repaired = false;
  EXPECT_EQ(0, other.open(repaired));
  EXPECT_TRUE(repaired);
  EXPECT_EQ(Attempt::TAKEN, attempt(other));
}

// After a fork the slot is the parent's alone: a child that knows the opening has to make one of its own.
TEST_F(AnOpenLockFile, IsNotOpenInAForkedChild) {
  ChildProcess child([this] {
    if (mine.tryTake() || mine.tryGive()) {
      return 1;
    }
    bool repaired = false;
    if (mine.open(repaired) != 0 || repaired || !mine.tryTake()) {
      return 2;
    }
    return word() == LockWord::heldBy(3) && mine.tryGive() ? 0 : 3;
  });

  EXPECT_EQ(0, child.wait());
  EXPECT_TRUE(mine.tryTake());
}

TEST_F(AnOpenLockFile, KnowsAHolderThatWasKilledButNotReaped) {
  const SharedValue<std::atomic<bool>> held;
  ChildProcess holder([&] {
    LockFile file(NAME);
    bool repaired = false;
    held->store(file.open(repaired) == 0 && file.tryTake());
    pause();
    return 0;
  });
  ASSERT_TRUE(eventually([&] { return held->load(); }));
  ASSERT_EQ(Attempt::HELD, attempt(mine));

  holder.signal(SIGKILL);

  EXPECT_TRUE(eventually([this] { return attempt(mine) == Attempt::TAKEN_FROM_THE_DEAD; }));
}

}  // namespace
