// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LmFramework/posix/LockFile.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"

namespace {

using Attempt = LockFile::Attempt;

// Runs after each call that locks or unlocks bytes of a file, but not after those that it makes itself.
std::function<void(const struct flock& range, int result)> gAfterFcntl;

int callFcntl(int (*real)(int, int, ...), int descriptor, int command, void* argument) {
  const int result = real(descriptor, command, argument);
  if (command == F_OFD_SETLK && gAfterFcntl) {
    const int error = errno;
    const auto hook = std::move(gAfterFcntl);
    gAfterFcntl = nullptr;
    hook(*static_cast<const struct flock*>(argument), result);
    gAfterFcntl = hook;
    errno = error;
  }
  return result;
}

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

  static void setWord(std::uint32_t value) { setField(WORD, value); }

  static std::uint32_t processIn(unsigned slot) {
    std::uint32_t value = 0;
    std::memcpy(&value, sharedContents(NAME).data() + offsetOfProcess(slot), sizeof value);
    return value;
  }

  static void setProcessIn(unsigned slot, std::uint32_t value) { setField(offsetOfProcess(slot), value); }

  static std::size_t offsetOfProcess(unsigned slot) {
    return offsetof(LockFilePage, processes) + slot * sizeof(std::uint32_t);
  }

  static void setField(std::size_t offset, std::uint32_t value) {
    std::string page = sharedContents(NAME);
    std::memcpy(&page[offset], &value, sizeof value);
    overwriteShared(NAME, page);
  }

  // A child that waits until it is woken.
  static std::unique_ptr<ChildProcess> sleeper() {
    auto child = std::make_unique<ChildProcess>([] {
      LockFile file(NAME);
      bool repaired = false;
      if (file.open(repaired) != 0 || attempt(file) != Attempt::HELD) {
        return 1;
      }
      file.wait(std::chrono::hours(1));
      return 0;
    });
    EXPECT_TRUE(eventually([&] { return (word() & LockWord::WAITERS) != 0 && sleepsOnAFutex(child->pid()); }));
    return child;
  }

  // What it does when it has nothing to read but the word: the call, or as much of it as the kernel tells.
  static bool sleepsOnAFutex(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const std::size_t end = stat.rfind(')');
    return end != std::string::npos && stat.compare(end, 3, ") S") == 0;
  }

  ~AnOpenLockFile() override { gAfterFcntl = nullptr; }

  LockFile mine{NAME};
  LockFile other{NAME};
};

TEST_F(AnOpenLockFile, IsRepairedByANewcomerToo) {
  overwriteShared(NAME, std::string(LockFile::FILE_SIZE, 'x'));
  LockFile newcomer(NAME);
  bool repaired = false;

  ASSERT_EQ(0, newcomer.open(repaired));

  EXPECT_TRUE(repaired);
}

TEST_F(AnOpenLockFile, HasAHeaderThatIsNoDamageWhileItIsWritten) {
  constexpr unsigned ROUNDS = 20;
  constexpr unsigned HEADERS = 10000;
  std::uint32_t fields[6];
  std::memcpy(fields, sharedContents(NAME).data(), sizeof fields);
  unsigned damaged = 0;

  for (unsigned round = 0; round < ROUNDS; ++round) {
    const std::unique_ptr<LockFilePage[]> pages(new LockFilePage[HEADERS]());
    std::thread writer([&] {
      for (unsigned k = 0; k < HEADERS; ++k) {
        pages[k].magic.store(fields[0], std::memory_order_relaxed);
        pages[k].version.store(fields[1], std::memory_order_relaxed);
        pages[k].fileSize.store(fields[2], std::memory_order_relaxed);
        pages[k].checksum.store(fields[3], std::memory_order_relaxed);
        pages[k].seal.store(fields[5], std::memory_order_release);
      }
    });
    for (unsigned k = 0; k < HEADERS; ++k) {
      for (LockFile::Header seen = LockFile::Header::NEW; seen != LockFile::Header::INTACT;) {
        seen = LockFile::headerOf(pages[k]);
        damaged += seen == LockFile::Header::GARBAGE || seen == LockFile::Header::OTHER_VERSION ? 1 : 0;
      }
    }
    writer.join();
  }

  EXPECT_EQ(damaged, 0U);
}

// Several may make a new file's header at once, each store of it on its own: none of what another one may see meanwhile
// is damage.
TEST_F(AnOpenLockFile, CountsAsNewUntilItsHeaderIsWritten) {
  constexpr std::size_t SEAL = 20;
  const std::string whole = sharedContents(NAME);
  for (unsigned written = 0; written < 16; ++written) {
    std::string page = whole;
    for (std::size_t field = 0; field < 4; ++field) {
      if ((written >> field & 1U) == 0) {
        page.replace(field * 4, 4, 4, '\0');
      }
    }
    page.replace(SEAL, 4, 4, '\0');
    overwriteShared(NAME, page);
    LockFile newcomer(NAME);
    bool repaired = false;

    ASSERT_EQ(0, newcomer.open(repaired));

    EXPECT_FALSE(repaired) << written;
    EXPECT_EQ(sharedContents(NAME).substr(0, WORD), whole.substr(0, WORD));
    EXPECT_EQ(sharedContents(NAME).substr(SEAL, 4), whole.substr(SEAL, 4));
  }
}

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

TEST_F(AnOpenLockFile, KeepsTheSlotOfTheDeadFromBeingUsedUntilItIsTaken) {
  LockFile newcomer(NAME);
  ASSERT_TRUE(mine.tryTake());
  die(mine);
  bool probed = false;
  gAfterFcntl = [&](const struct flock& range, int result) {
    if (range.l_type == F_WRLCK && result == 0) {
      probed = true;
      open(newcomer);
    }
  };

  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(other));

  EXPECT_TRUE(probed);
  EXPECT_EQ(Attempt::HELD, attempt(newcomer));
  EXPECT_TRUE(other.give());
  ASSERT_TRUE(newcomer.tryTake());
  EXPECT_EQ(LockWord::heldBy(3), word());
}

TEST_F(AnOpenLockFile, IsTakenFromTheDeadBeforeTheSlotCanBeUsedAgain) {
  LockFile newcomer(NAME);
  ASSERT_TRUE(mine.tryTake());
  die(mine);
  Attempt byNewcomer = Attempt::CHANGED;
  gAfterFcntl = [&](const struct flock& range, int) {
    if (range.l_type == F_UNLCK) {
      open(newcomer);
      byNewcomer = attempt(newcomer);
    }
  };

  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(other));

  EXPECT_EQ(Attempt::HELD, byNewcomer);
  EXPECT_TRUE(other.give());
  ASSERT_TRUE(newcomer.tryTake());
  EXPECT_EQ(LockWord::heldBy(1), word());
}

TEST_F(AnOpenLockFile, NamesWhoHasASlotAsSoonAsHeHasIt) {
  setProcessIn(3, 4711);
  LockFile third(NAME);

  open(third);

  EXPECT_EQ(static_cast<std::uint32_t>(getpid()), processIn(3));
}

TEST_F(AnOpenLockFile, NamesTheDeadHolderToWhoGetsItsSlot) {
  setProcessIn(3, 4711);
  setWord(LockWord::heldBy(3));
  LockFile third(NAME);
  open(third);
  std::uint32_t holder = 0;

  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, third.attempt(false, holder));

  EXPECT_EQ(4711U, holder);
}

TEST_F(AnOpenLockFile, WakesWhoWaitsWhenItIsGivenBack) {
  ASSERT_TRUE(mine.tryTake());
  const auto waiter = sleeper();

  EXPECT_TRUE(mine.give());

  EXPECT_EQ(0, waiter->wait());
}

TEST_F(AnOpenLockFile, WakesAllWhoWaitWhenGarbageIsGivenBack) {
  ASSERT_TRUE(mine.tryTake());
  const auto waiter = sleeper();
  const auto another = sleeper();
  setWord(0x12345678);

  EXPECT_FALSE(mine.give());

  EXPECT_EQ(0, waiter->wait());
  EXPECT_EQ(0, another->wait());
}

// Where it has lost its slot with the file, the word that it used to write is somebody else's.
TEST_F(AnOpenLockFile, LostTogetherWithItsFileIsNotTakenWithoutASlot) {
  ASSERT_TRUE(mine.tryTake());
  setWord(0x12345678);
  std::filesystem::remove(sharedPath(NAME));
  EXPECT_FALSE(mine.tryGive());
  EXPECT_FALSE(mine.give());

  EXPECT_FALSE(mine.tryTake());

  open(mine);
  EXPECT_TRUE(mine.tryTake());
  LockFile newcomer(NAME);
  open(newcomer);
  EXPECT_EQ(Attempt::HELD, attempt(newcomer));
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

// Who asks whether a holder has died has its byte for a moment.
TEST_F(AnOpenLockFile, HasRoomForWhoComesWhileTheLastSlotIsProbed) {
  std::vector<std::unique_ptr<LockFile>> files;
  for (unsigned slot = 3; slot <= LockWord::SLOTS; ++slot) {
    files.push_back(std::make_unique<LockFile>(NAME));
    open(*files.back());
  }
  ASSERT_TRUE(mine.tryTake());
  die(mine);
  LockFile prober(NAME);
  LockFile newcomer(NAME);
  open(prober);  // of all that it does, only that it has the byte counts here
  bool released = false;
  gAfterFcntl = [&](const struct flock& range, int) {
    if (!released && range.l_type == F_WRLCK && range.l_start == LockWord::SLOTS) {
      released = true;
      prober.close();
    }
  };

  bool repaired = false;
  EXPECT_EQ(0, newcomer.open(repaired));

  EXPECT_TRUE(released);
  EXPECT_EQ(Attempt::TAKEN_FROM_THE_DEAD, attempt(newcomer));
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

TEST_F(AnOpenLockFile, KnowsNothingInAForkedChildOfACutThatWasRepaired) {
  std::filesystem::resize_file(sharedPath(NAME), 0);
  ASSERT_FALSE(mine.tryTake());
  bool repaired = false;
  ASSERT_EQ(0, other.open(repaired));
  ASSERT_TRUE(repaired);

  ChildProcess child([this] {
    bool repairedAgain = false;
    return mine.open(repairedAgain) == 0 && !repairedAgain && mine.tryTake() && mine.tryGive() ? 0 : 1;
  });

  EXPECT_EQ(0, child.wait());
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

extern "C" {
int __real_fcntl(int descriptor, int command, ...);
int __real_fcntl64(int descriptor, int command, ...);

#define WRAP(name)                                                   \
  int __wrap_##name(int descriptor, int command, ...) {              \
    va_list arguments;                                               \
    va_start(arguments, command);                                    \
    void* argument = va_arg(arguments, void*);                       \
    va_end(arguments);                                               \
    return callFcntl(&__real_##name, descriptor, command, argument); \
  }
WRAP(fcntl)
WRAP(fcntl64)
#undef WRAP
}
