// SPDX-License-Identifier: Apache-2.0
// Garbage in the page of a lock, wherever it may come to lie: the page is found and repaired, the log says so once, and
// the next hold excludes again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "LmFramework/posix/LockFile.h"
#include "LmFramework/posix/NamedLock.h"
#include "framework/SharedMemoryTesting.h"
#include "support/LogCapture.h"

namespace {

constexpr char FILE_NAME[] = "LmLock.Page";
constexpr std::size_t HEADER_END = 24;  // with the word
constexpr std::size_t WORD_LAST = 19;
constexpr std::size_t PROCESSES_END = sizeof(LockFilePage);
constexpr std::uint8_t WAITERS = 0x80;  // in the word's last byte

class APageOfALock : public testing::Test {
 protected:
  APageOfALock() {
    lock->lock();
    lock->unlock();
    const int descriptor = shm_open((std::string("/") + FILE_NAME).c_str(), O_RDWR | O_CLOEXEC, 0);
    void* memory = mmap(nullptr, LockFile::FILE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    close(descriptor);
    page = memory != MAP_FAILED ? static_cast<volatile std::uint8_t*>(memory) : nullptr;
    intact = sharedContents(FILE_NAME);
  }
  ~APageOfALock() override { munmap(const_cast<std::uint8_t*>(page), LockFile::FILE_SIZE); }

  void write(const std::string& bytes) const {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      page[i] = static_cast<std::uint8_t>(bytes[i]);
    }
  }

  // The header, and a word that says free; whatever else there is, nobody relies on.
  bool isIntact() const {
    for (std::size_t i = 0; i < HEADER_END; ++i) {
      if (page[i] != static_cast<std::uint8_t>(intact[i])) {
        return false;
      }
    }
    return true;
  }

  // One hold from beginning to end, seen from outside.
  bool holdExcludes() {
    bool repaired = false;
    std::uint32_t holder = 0;
    if (!lock->lock() || other.open(repaired) != 0 || repaired ||
        other.attempt(false, holder) != LockFile::Attempt::HELD) {
      return false;
    }
    other.close();
    return lock->unlock();
  }

  // Every change of one byte; the processes' ids and what is behind them are looked at by nobody.
  template <class Change>
  static void forEveryChange(const Change& change) {
    for (std::size_t offset = 0; offset < LockFile::FILE_SIZE; ++offset) {
      const unsigned step = offset < PROCESSES_END ? 1 : 64;
      for (unsigned flipped = 1; flipped <= 0xFF; flipped += step) {
        change(offset, static_cast<std::uint8_t>(flipped));
        if (testing::Test::HasFailure()) {
          FAIL() << "byte " << offset << " flipped by " << flipped;
        }
      }
    }
  }

  const std::shared_ptr<NamedLock> lock = NamedLock::get("Page");
  LockFile other{FILE_NAME};
  volatile std::uint8_t* page = nullptr;
  std::string intact;
};

TEST_F(APageOfALock, IsRepairedAfterAnyChangeOfOneByteWhileTheLockIsFree) {
  ASSERT_NE(page, nullptr);
  LogCapture log;

  forEveryChange([&](std::size_t offset, std::uint8_t flipped) {
    page[offset] = page[offset] ^ flipped;

    EXPECT_TRUE(lock->lock());
    EXPECT_TRUE(lock->unlock());

    EXPECT_TRUE(isIntact());
    EXPECT_TRUE(offset >= HEADER_END || holdExcludes());
    EXPECT_EQ(offset < HEADER_END ? 1U : 0U, log.lines().size());
    log.clear();
  });
}

TEST_F(APageOfALock, IsRepairedAfterAnyChangeOfOneByteWhileTheLockIsHeld) {
  ASSERT_NE(page, nullptr);
  LogCapture log;

  forEveryChange([&](std::size_t offset, std::uint8_t flipped) {
    EXPECT_TRUE(lock->lock());
    page[offset] = page[offset] ^ flipped;

    EXPECT_TRUE(lock->unlock());
    EXPECT_TRUE(lock->lock());
    EXPECT_TRUE(lock->unlock());

    EXPECT_TRUE(isIntact());
    EXPECT_TRUE(offset >= HEADER_END || holdExcludes());
    const bool saysThatSomebodyWaits = offset == WORD_LAST && flipped == WAITERS;
    EXPECT_EQ(offset < HEADER_END && !saysThatSomebodyWaits ? 1U : 0U, log.lines().size());
    log.clear();
  });
}

TEST_F(APageOfALock, IsRepairedAfterRandomBytesWhetherTheLockIsHeldOrFree) {
  ASSERT_NE(page, nullptr);
  LogCapture log;
  std::mt19937 random(1);

  for (int round = 0; round < 2000; ++round) {
    std::string garbage(LockFile::FILE_SIZE, '\0');
    for (char& byte : garbage) {
      byte = static_cast<char>(random());
    }
    const bool held = round % 2 == 0;
    EXPECT_TRUE(!held || lock->lock());
    write(garbage);
    EXPECT_TRUE(!held || lock->unlock());

    EXPECT_TRUE(lock->lock());
    EXPECT_TRUE(lock->unlock());

    EXPECT_TRUE(isIntact());
    EXPECT_TRUE(holdExcludes());
    EXPECT_EQ(1U, log.lines().size());
    log.clear();
    ASSERT_FALSE(HasFailure()) << "round " << round;
  }
}

TEST_F(APageOfALock, NamesItsHolderAgainAfterGarbage) {
  ASSERT_NE(page, nullptr);
  write(std::string(LockFile::FILE_SIZE, '\x77'));
  const LogCapture log;

  lock->lock();

  std::uint32_t process = 0;
  std::memcpy(&process, sharedContents(FILE_NAME).data() + offsetof(LockFilePage, processes) + 4, sizeof process);
  EXPECT_EQ(static_cast<std::uint32_t>(getpid()), process);
  lock->unlock();
}

}  // namespace
