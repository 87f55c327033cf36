// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "LmFramework/posix/NotifierRing.h"
#include "framework/SharedMemoryTesting.h"

namespace {

constexpr off_t FIRST_LOCK_BYTE = 0x40000000;
constexpr std::size_t HEADER_IN_USE = 48;
constexpr off_t HEAD_OFFSET = 24;
constexpr std::size_t HEAD_SIZE = 16;

off_t lockByteOf(std::uint64_t generation) { return FIRST_LOCK_BYTE + static_cast<off_t>(generation % 0x100000); }

// What this thread does once, before or behind its next write of a ring's head.
thread_local std::function<void()> tBeforeHead;
thread_local std::function<void()> tBehindHead;

void callOnce(std::function<void()>& function) {
  if (function) {
    const std::function<void()> once = std::move(function);
    function = nullptr;
    once();
  }
}

template <class Write>
ssize_t watchHead(const Write& write, std::size_t size, off64_t offset) {
  const bool isHead = size == HEAD_SIZE && offset == HEAD_OFFSET;
  if (isHead) {
    callOnce(tBeforeHead);
  }
  const ssize_t written = write();
  if (isHead) {
    callOnce(tBehindHead);
  }
  return written;
}

/// Locks bytes of the ring's file, as a writer does that stands still, until its end.
class StandingWriter {
 public:
  StandingWriter(off_t first, off_t count)
      : mDescriptor(::open(sharedPath(NotifierRing::NAME).c_str(), O_RDWR | O_CLOEXEC)) {
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = first;
    range.l_len = count;
    if (fcntl(mDescriptor, F_OFD_SETLK, &range) != 0) {
      throw std::system_error(errno, std::generic_category(), NotifierRing::NAME);
    }
  }
  ~StandingWriter() { ::close(mDescriptor); }
  StandingWriter(const StandingWriter&) = delete;
  StandingWriter& operator=(const StandingWriter&) = delete;

 private:
  const int mDescriptor;
};

class ARing : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove(sharedPath(NotifierRing::NAME));
    ASSERT_EQ(0, mRing.open());
  }

  bool publish(std::uint32_t id, const std::string& text) {
    NotifierRing::Repairs repairs;
    EXPECT_EQ(0, mRing.publish(id, text.data(), static_cast<std::uint32_t>(text.size()), repairs));
    EXPECT_FALSE(repairs.passedBy);
    return repairs.madeAnew;
  }

  // Published and read back; what a damaged ring has to be able to do again.
  void expectThatItWorks() {
    publish(7, "after");
    NotifierRing::Position newest = mRing.head().position;
    --newest.sequence;
    NotifierRingSlot slot = {};
    ASSERT_TRUE(mRing.head().valid);
    ASSERT_TRUE(mRing.read(newest, slot));
    EXPECT_EQ(7U, slot.id);
    EXPECT_EQ(0, std::memcmp("after", slot.data, 5));
  }

  NotifierRing mRing;
};

template <class T>
T fieldAt(const std::string& bytes, std::size_t offset) {
  T value = {};
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

}  // namespace

// The linker puts these in the place of the calls.
extern "C" {
ssize_t __real_pwrite(int descriptor, const void* bytes, size_t size, off_t offset);
ssize_t __real_pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset);
ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t size, off_t offset);
ssize_t __wrap_pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset);

ssize_t __wrap_pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
  return watchHead([&] { return __real_pwrite(descriptor, bytes, size, offset); }, size, offset);
}

ssize_t __wrap_pwrite64(int descriptor, const void* bytes, size_t size, off64_t offset) {
  return watchHead([&] { return __real_pwrite64(descriptor, bytes, size, offset); }, size, offset);
}
}

TEST_F(ARing, HasTheBytesOfItsDrawing) {
  publish(6, "first");
  publish(9, std::string(64, 'z'));

  const std::string bytes = sharedContents(NotifierRing::NAME);

  ASSERT_EQ(64U + 256 * 96, bytes.size());
  EXPECT_EQ("LmNR", bytes.substr(0, 4));
  EXPECT_EQ(1U, fieldAt<std::uint32_t>(bytes, 4));
  EXPECT_EQ(256U, fieldAt<std::uint32_t>(bytes, 8));
  EXPECT_EQ(96U, fieldAt<std::uint32_t>(bytes, 12));
  const auto generation = fieldAt<std::uint64_t>(bytes, 16);
  EXPECT_NE(0U, generation);
  EXPECT_EQ(2U, fieldAt<std::uint64_t>(bytes, 24));
  EXPECT_EQ(~(generation ^ 2), fieldAt<std::uint64_t>(bytes, 32));
  EXPECT_EQ(std::string(16, '\0'), bytes.substr(48, 16));
  const std::size_t second = 64 + 96;
  EXPECT_EQ(generation, fieldAt<std::uint64_t>(bytes, second));
  EXPECT_EQ(1U, fieldAt<std::uint64_t>(bytes, second + 8));
  EXPECT_EQ(9U, fieldAt<std::uint32_t>(bytes, second + 16));
  EXPECT_EQ(64U, fieldAt<std::uint32_t>(bytes, second + 20));
  EXPECT_EQ(std::string(64, 'z'), bytes.substr(second + 24, 64));
  EXPECT_EQ(0660U, sharedMode(NotifierRing::NAME));
}

TEST_F(ARing, KeepsTheLast256Messages) {
  const std::uint64_t generation = mRing.head().position.generation;
  for (std::uint32_t id = 0; id < 300; ++id) {
    publish(id, "");
  }

  NotifierRingSlot slot = {};
  EXPECT_EQ(300U, mRing.head().position.sequence);
  EXPECT_FALSE(mRing.read({generation, 43}, slot));
  EXPECT_TRUE(mRing.read({generation, 44}, slot));
  EXPECT_EQ(44U, slot.id);
  EXPECT_TRUE(mRing.read({generation, 299}, slot));
  EXPECT_FALSE(mRing.read({generation, 300}, slot));
  EXPECT_FALSE(mRing.read({generation + 2, 299}, slot));
}

TEST_F(ARing, FindsEveryFlippedBitOfItsHeaderAndIsMadeAnew) {
  for (std::size_t bit = 0; bit < HEADER_IN_USE * 8; ++bit) {
    publish(6, "before");
    std::string header = sharedContents(NotifierRing::NAME).substr(0, 64);
    header[bit / 8] = static_cast<char>(header[bit / 8] ^ (1 << bit % 8));
    overwriteShared(NotifierRing::NAME, header);

    ASSERT_FALSE(mRing.head().valid) << "bit " << bit;
    EXPECT_TRUE(publish(6, "again")) << "bit " << bit;
    expectThatItWorks();
  }
}

TEST_F(ARing, FindsEveryFlippedBitOfASlot) {
  publish(6, "message");
  const NotifierRing::Position position = {mRing.head().position.generation, 0};
  const std::string whole = sharedContents(NotifierRing::NAME);

  for (std::size_t bit = 0; bit < sizeof(NotifierRingSlot) * 8; ++bit) {
    std::string damaged = whole;
    damaged[64 + bit / 8] = static_cast<char>(damaged[64 + bit / 8] ^ (1 << bit % 8));
    overwriteShared(NotifierRing::NAME, damaged);
    NotifierRingSlot slot = {};
    EXPECT_FALSE(mRing.read(position, slot)) << "bit " << bit;
  }

  overwriteShared(NotifierRing::NAME, whole);
  NotifierRingSlot slot = {};
  EXPECT_TRUE(mRing.read(position, slot));
}

TEST_F(ARing, WorksOnWhereverItIsCut) {
  for (std::size_t length = 0; length <= 64 + 96 + 1; ++length) {
    publish(6, "before");
    std::filesystem::resize_file(sharedPath(NotifierRing::NAME), length);

    EXPECT_EQ(length >= 64, mRing.head().valid) << length;
    NotifierRingSlot slot = {};
    EXPECT_FALSE(mRing.read({mRing.head().position.generation, 200}, slot));
    expectThatItWorks();
  }
}

TEST_F(ARing, IsAnotherGenerationWhenItWasRemoved) {
  publish(6, "before");
  const std::uint64_t generation = mRing.head().position.generation;

  std::filesystem::remove(sharedPath(NotifierRing::NAME));

  EXPECT_FALSE(publish(6, "after"));
  EXPECT_NE(generation, mRing.head().position.generation);
  EXPECT_EQ(1U, mRing.head().position.sequence);
}

// Those who opened it before would talk among themselves.
TEST_F(ARing, IsAnotherGenerationWhenItWasGivenAnotherName) {
  publish(6, "before");
  const std::uint64_t generation = mRing.head().position.generation;

  std::filesystem::rename(sharedPath(NotifierRing::NAME), sharedPath("Elsewhere"));

  EXPECT_FALSE(publish(6, "after"));
  EXPECT_NE(generation, mRing.head().position.generation);
  EXPECT_EQ(1U, mRing.head().position.sequence);
  EXPECT_TRUE(std::filesystem::exists(sharedPath(NotifierRing::NAME)));
}

TEST_F(ARing, IsMadeAnewOnceWhereAWriterStandsStill) {
  const std::uint64_t generation = mRing.head().position.generation;
  const StandingWriter writer(lockByteOf(generation), 1);

  NotifierRing::Repairs first;
  ASSERT_EQ(0, mRing.publish(6, "first", 5, first));
  NotifierRing::Repairs second;
  ASSERT_EQ(0, mRing.publish(6, "second", 6, second));

  EXPECT_TRUE(first.passedBy);
  EXPECT_FALSE(first.madeAnew);
  EXPECT_FALSE(second.passedBy) << "that one's lock is of no importance any more";
  EXPECT_NE(generation, mRing.head().position.generation);
  EXPECT_EQ(2U, mRing.head().position.sequence);
  expectThatItWorks();
}

// Each of those who waited made the ring anew, and wiped out what the ones before it had published there.
TEST_F(ARing, IsMadeAnewOnceBySeveralWhoWaitForTheSameWriter) {
  constexpr unsigned COUNT = 4;
  const StandingWriter writer(lockByteOf(mRing.head().position.generation), 1);
  std::atomic<unsigned> made{0};
  std::vector<std::thread> waiting;

  for (unsigned i = 0; i < COUNT; ++i) {
    waiting.emplace_back([&] {
      NotifierRing own;
      NotifierRing::Repairs repairs;
      EXPECT_EQ(0, own.publish(6, "message", 7, repairs));
      EXPECT_FALSE(repairs.madeAnew);
      made += repairs.passedBy ? 1 : 0;
    });
  }
  for (std::thread& thread : waiting) {
    thread.join();
  }

  EXPECT_EQ(1U, made);
  EXPECT_EQ(COUNT, mRing.head().position.sequence);
}

// It wrote its head into a ring that others had made meanwhile, which was garbage then, and called that a success.
TEST_F(ARing, IsMadeAnewByAWriterThatStoodStillBeforeItsHeadAndPublishesThereThen) {
  NotifierRing other;
  NotifierRing::Repairs passing;
  std::uint64_t generation = 0;
  tBeforeHead = [&] {
    std::thread([&] {
      for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(0, other.publish(7, "other", 5, passing));
      }
      generation = other.head().position.generation;
    }).join();
  };

  NotifierRing::Repairs repairs;
  ASSERT_EQ(0, mRing.publish(6, "message", 7, repairs));

  EXPECT_TRUE(passing.passedBy);
  EXPECT_TRUE(repairs.madeAnew);
  const NotifierRing::Head head = mRing.head();
  ASSERT_TRUE(head.valid);
  EXPECT_NE(generation, head.position.generation);
  ASSERT_EQ(1U, head.position.sequence);
  NotifierRingSlot slot = {};
  ASSERT_TRUE(mRing.read({head.position.generation, 0}, slot));
  EXPECT_EQ(6U, slot.id);
}

TEST_F(ARing, HoldsAMessageOnceWhoseWriterStoodStillBehindItsHead) {
  NotifierRing other;
  NotifierRing::Repairs passing;
  tBehindHead = [&] { std::thread([&] { EXPECT_EQ(0, other.publish(7, "other", 5, passing)); }).join(); };

  NotifierRing::Repairs repairs;
  ASSERT_EQ(0, mRing.publish(6, "message", 7, repairs));

  EXPECT_TRUE(passing.passedBy);
  EXPECT_FALSE(repairs.madeAnew);
  EXPECT_EQ(1U, mRing.head().position.sequence) << "it could be heard before, so it is not there again";
}

// Two who both write without a lock would overwrite each other's messages.
TEST_F(ARing, RefusesMessagesWhileSomebodyHasLockedItWhole) {
  const std::uint64_t generation = mRing.head().position.generation;
  {
    const StandingWriter everywhere(0, 0);

    NotifierRing::Repairs repairs;
    EXPECT_EQ(ETIMEDOUT, mRing.publish(6, "message", 7, repairs));

    EXPECT_FALSE(repairs.passedBy);
    EXPECT_EQ(generation, mRing.head().position.generation);
    EXPECT_EQ(0U, mRing.head().position.sequence);
  }
  publish(6, "message");
  EXPECT_EQ(generation, mRing.head().position.generation);
  EXPECT_EQ(1U, mRing.head().position.sequence);
}

// The waiting one's message went to the removed ring, where nobody looks any more. Whether it waits already when that
// happens makes no difference to what is promised.
TEST_F(ARing, TakesTheMessageOfAPublisherThatWaitedWhenItWasRemoved) {
  publish(6, "before");
  std::atomic<bool> begun{false};
  std::thread waiting;
  {
    const StandingWriter writer(lockByteOf(mRing.head().position.generation), 1);
    waiting = std::thread([&] {
      NotifierRing own;
      EXPECT_EQ(0, own.open());
      begun = true;
      NotifierRing::Repairs repairs;
      EXPECT_EQ(0, own.publish(7, "message", 7, repairs));
      EXPECT_FALSE(repairs.passedBy);
    });
    eventually([&] { return begun.load(); });
    pauseFor(std::chrono::milliseconds(50));
    std::filesystem::remove(sharedPath(NotifierRing::NAME));
  }
  waiting.join();

  ASSERT_EQ(0, mRing.open());
  const NotifierRing::Position position = mRing.head().position;
  ASSERT_EQ(1U, position.sequence);
  NotifierRingSlot slot = {};
  ASSERT_TRUE(mRing.read({position.generation, 0}, slot));
  EXPECT_EQ(7U, slot.id);
}

TEST_F(ARing, IsMadeAnewWhereAWriterStandsStillThatFoundItDamaged) {
  overwriteShared(NotifierRing::NAME, "garbage");
  const StandingWriter writer(FIRST_LOCK_BYTE, 1);

  NotifierRing::Repairs repairs;
  ASSERT_EQ(0, mRing.publish(6, "message", 7, repairs));

  EXPECT_TRUE(repairs.passedBy);
  EXPECT_TRUE(mRing.head().valid);
  expectThatItWorks();
}

TEST_F(ARing, IsNotWaitedForWhenItsWordHasChanged) {
  publish(6, "");
  const std::uint32_t word = mRing.head().word;

  EXPECT_TRUE(mRing.wait(word + 1, std::chrono::hours(1)));
  EXPECT_TRUE(mRing.wait(word, std::chrono::milliseconds(20)));
}

TEST_F(ARing, CannotBeWaitedForWhenItIsCutOrClosed) {
  std::filesystem::resize_file(sharedPath(NotifierRing::NAME), 0);
  EXPECT_FALSE(mRing.wait(0, std::chrono::hours(1)));

  mRing.close();

  EXPECT_FALSE(mRing.wait(0, std::chrono::hours(1)));
  mRing.wake();
}
