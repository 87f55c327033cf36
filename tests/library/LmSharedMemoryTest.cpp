// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/OddObjects.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"
#include "support/SharedRounds.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr char NAME[] = "/LmTest";
constexpr char PATH[] = "/dev/shm/LmTest";
constexpr char MMAP_ERROR[] = "LmFramework/SharedMemory/LmSharedMemory:151 LmSharedMemory mmap error";

struct Words {
  std::uint32_t values[25];
};

struct Bytes {
  unsigned char values[7];
};

struct Wide {
  alignas(8) std::uint64_t values[3];
  std::uint8_t last;
};

using Segment = LmSharedMemory<Words, 1>;
constexpr std::size_t SIZE = 104;

static_assert(Segment::DATA_SIZE == 100 && Segment::DATA_OFFSET == 4 && Segment::SEGMENT_SIZE == 104);
static_assert(LmSharedMemory<Words, 3>::DATA_SIZE == 300 && LmSharedMemory<Words, 3>::SEGMENT_SIZE == 304);
static_assert(LmSharedMemory<Bytes, 2>::DATA_SIZE == 14 && LmSharedMemory<Bytes, 2>::DATA_OFFSET == 4);
static_assert(LmSharedMemory<Bytes, 2>::SEGMENT_SIZE == 20, "rounded up to the size word's own alignment");
static_assert(LmSharedMemory<Wide, 1>::DATA_SIZE == 32 && LmSharedMemory<Wide, 1>::DATA_OFFSET == 8);
static_assert(LmSharedMemory<Wide, 2>::SEGMENT_SIZE == 72);
static_assert(std::is_base_of_v<LmSharedSyncObject, Segment> && std::has_virtual_destructor_v<Segment>);
static_assert(!std::is_copy_constructible_v<Segment> && !std::is_copy_assignable_v<Segment>);

std::string fresh() { return RawSegment::littleEndian(100, 4) + std::string(100, '\0'); }

/// A pipe through which a process tells another that it has come so far.
class Signal {
 public:
  Signal() {
    if (pipe(mEnds) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
  }
  ~Signal() {
    close(mEnds[0]);
    close(mEnds[1]);
  }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  void give() const {
    const char byte = 1;
    if (write(mEnds[1], &byte, 1) != 1) {
      std::abort();
    }
  }

  bool comesWithin(int milliseconds) const {
    pollfd waiting = {mEnds[0], POLLIN, 0};
    char byte = 0;
    return poll(&waiting, 1, milliseconds) == 1 && read(mEnds[0], &byte, 1) == 1;
  }

 private:
  int mEnds[2] = {-1, -1};
};

// A sanitizer's own handler turns a signal that kills into an exit code of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#elif defined(__has_feature)
constexpr bool SANITIZED = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool SANITIZED = false;
#endif

constexpr int WATCHDOG_MS = 60000;
constexpr int WRONGLY_FREE_MS = 200;  // a lock that does not hold is taken within this

class NoObject : public SegmentTest {};

/// An object of the right size that somebody else has made, every byte 0x5A.
class AnObject : public SegmentTest {
 protected:
  AnObject() : mRaw(NAME, SIZE, 0x5A) {}

  RawSegment mRaw;
};

TEST_F(NoObject, IsCreatedSizedAndZeroed) {
  const Segment segment("LmTest");

  EXPECT_EQ(RawSegment(NAME).all(), fresh());
  EXPECT_NE(segment.data(), nullptr);
}

TEST_F(NoObject, IsCreatedWithoutALogLine) {
  const CapturedStdErr log;

  const Segment segment("LmTest");

  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(NoObject, IsCreatedWithZeroPaddingBehindTheSizeWord) {
  const LmSharedMemory<Wide, 2> segment("LmTest");

  EXPECT_EQ(RawSegment(NAME).all(), RawSegment::littleEndian(64, 4) + std::string(68, '\0'));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segment.data()) % 8, 0U);
}

TEST_F(NoObject, IsCreatedWithItsModeWhateverTheUmask) {
  ChildProcess child([] {
    umask(077);
    const Segment segment("LmTest");
    return umask(077) == 077 ? 0 : 1;  // which is the process's own and stays
  });

  EXPECT_EQ(child.wait(), 0);

  EXPECT_EQ(RawSegment(NAME).mode(), 0664U);
}

TEST_F(NoObject, IsMappedOnceAndShared) {
  const Segment segment("LmTest");
  EXPECT_EQ(mappings(NAME), 1U);
  EXPECT_EQ(descriptors(NAME), 1U);
  RawSegment raw(NAME);

  segment.data()->values[24] = 0x01020304;
  raw.put32(4, 0xA0B0C0D0);

  EXPECT_EQ(raw.bytes(100, 4), RawSegment::littleEndian(0x01020304, 4));
  EXPECT_EQ(segment.data()->values[0], 0xA0B0C0D0U);
}

TEST_F(NoObject, IsNeitherResizedNorZeroedByTheSecondWhoAttachesIt) {
  const Segment first("LmTest");
  first.data()->values[7] = 77;

  const Segment second("LmTest");

  EXPECT_EQ(second.data()->values[7], 77U);
  EXPECT_EQ(RawSegment(NAME).size(), SIZE);
}

TEST_F(NoObject, IsSeenByASecondProcess) {
  const Segment mine("LmTest");
  mine.data()->values[3] = 33;

  ChildProcess child([] {
    const Segment segment("LmTest");
    segment.data()->values[4] = 44;
    return segment.data()->values[3] == 33 ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(mine.data()->values[4], 44U);
}

TEST_F(AnObject, IsAttachedWithNothingWrittenButTheSizeWord) {
  const Segment segment("LmTest");

  EXPECT_EQ(mRaw.all(), RawSegment::littleEndian(100, 4) + std::string(100, 0x5A));
}

TEST_F(AnObject, HasItsSizeWordWrittenAgainByEachWhoAttachesIt) {
  const Segment first("LmTest");
  mRaw.put32(0, 12345);

  const Segment second("LmTest");

  EXPECT_EQ(mRaw.bytes(0, 4), RawSegment::littleEndian(100, 4));
}

TEST_F(AnObject, KeepsItsModeWhenItIsAttached) {
  ASSERT_EQ(chmod(PATH, 0600), 0);

  const Segment segment("LmTest");

  EXPECT_EQ(mRaw.mode(), 0600U);
}

TEST_F(AnObject, StaysWithItsContentsWhenTheSegmentIsDestroyed) {
  {
    const Segment segment("LmTest");
    segment.data()->values[0] = 99;
  }

  EXPECT_TRUE(RawSegment::exists(NAME));
  EXPECT_EQ(mRaw.all(), RawSegment::littleEndian(100, 4) + RawSegment::littleEndian(99, 4) + std::string(96, 0x5A));
  EXPECT_EQ(mappings(NAME), 0U);
  EXPECT_EQ(descriptors(NAME), 1U) << "the test's own";
}

TEST_F(AnObject, IsMadeWholeWhenItHasNoLength) {
  mRaw.resize(0);
  ASSERT_EQ(chmod(PATH, 0600), 0);
  const CapturedStdErr log;

  const Segment segment("LmTest");

  EXPECT_EQ(mRaw.all(), fresh());
  EXPECT_EQ(mRaw.mode(), 0664U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(NoObject, IsMadeWholeWhenItsCreatorDiedBeforeSizingIt) {
  ChildProcess creator([] {
    const LmSharedSyncObject lock("LmTest");
    lock.lock();
    const RawSegment raw(NAME, 0);
    ::kill(getpid(), SIGKILL);
    return 0;
  });
  ASSERT_EQ(creator.wait(), -SIGKILL);
  ASSERT_EQ(RawSegment(NAME).size(), 0U);

  const Segment segment("LmTest");

  EXPECT_EQ(RawSegment(NAME).all(), fresh());
}

TEST_F(AnObject, IsNeverLengthenedWhateverItsLength) {
  for (std::size_t length = 1; length < SIZE; ++length) {
    RawSegment raw(NAME, length, 0x5A);
    const CapturedStdErr log;

    {
      const Segment segment("LmTest");
      std::string copy(100, 'x');
      const std::size_t expected = length > 4 ? length - 4 : 0;
      ASSERT_EQ(segment.read(4, copy.data(), 100), expected);
      ASSERT_EQ(copy, std::string(expected, 0x5A) + std::string(100 - expected, 'x'));
      ASSERT_NE(segment.data(), nullptr);
    }

    ASSERT_EQ(raw.size(), length);
    ASSERT_EQ(raw.all(), length < 4 ? std::string(length, 0x5A)
                                    : RawSegment::littleEndian(100, 4) + std::string(length - 4, 0x5A));
    ASSERT_THAT(log.lines(), SizeIs(1)) << length;
    ASSERT_THAT(log.lines()[0], StartsWith("LmFramework/SharedMemory/LmSharedMemory:"));
    ASSERT_THAT(log.lines()[0], EndsWith(" LmSharedMemory segment too small"));
  }
}

TEST_F(AnObject, IsWrittenOnlyWhereAllOfTheWriteLiesInside) {
  mRaw.resize(50);
  const CapturedStdErr log;
  const Segment segment("LmTest");
  const std::string text = "0123456789";

  EXPECT_TRUE(segment.write(40, text.data(), 10));
  EXPECT_FALSE(segment.write(41, text.data(), 10));
  EXPECT_FALSE(segment.write(50, text.data(), 1));
  EXPECT_FALSE(segment.write(100, text.data(), 4));

  EXPECT_EQ(mRaw.size(), 50U);
  EXPECT_EQ(mRaw.bytes(40, 10), text);
  EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(AnObject, LogsOneLineForEachSegmentObject) {
  mRaw.resize(50);
  const CapturedStdErr log;
  const Segment first("LmTest");
  const Segment second("LmTest");
  char copy[100];

  for (unsigned i = 0; i < 5; ++i) {
    first.read(4, copy, 100);
    second.read(4, copy, 100);
  }

  EXPECT_THAT(log.lines(), SizeIs(2));
}

TEST_F(AnObject, KillsWhoTouchesTheMappingBeyondItsEnd) {
  ASSERT_LT(sysconf(_SC_PAGESIZE), 80000 - static_cast<long>(SIZE)) << "the last word must lie on a page of its own";
  struct Long {
    std::uint32_t values[20000];
  };
  ChildProcess reader([] {
    const CapturedStdErr log;
    const LmSharedMemory<Long, 1> segment("LmTest");
    static_cast<void>(static_cast<volatile const Long*>(segment.data())->values[19999]);
    return 0;
  });

  const int end = reader.wait();

  if (SANITIZED) {
    EXPECT_THAT(end, ::testing::AnyOf(-SIGBUS, -SIGSEGV, ::testing::Gt(0)));
  } else {
    EXPECT_THAT(end, ::testing::AnyOf(-SIGBUS, -SIGSEGV));
  }
}

TEST_F(AnObject, IsReadWholeWhenItIsLongerThanItShouldBe) {
  mRaw.resize(1000);
  mRaw.put(SIZE, std::string(1000 - SIZE, 'y'));
  const CapturedStdErr log;
  const Segment segment("LmTest");
  std::string copy(100, 'x');

  EXPECT_EQ(segment.read(4, copy.data(), 100), 100U);

  EXPECT_EQ(copy, std::string(100, 0x5A));
  EXPECT_EQ(mRaw.size(), 1000U);
  EXPECT_EQ(mRaw.bytes(SIZE, 1000 - SIZE), std::string(1000 - SIZE, 'y'));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnObject, CanBeReplacedWhileItIsAttached) {
  const Segment before("LmTest");
  RawSegment::remove(NAME);

  const Segment after("LmTest");
  after.data()->values[0] = 5;

  EXPECT_EQ(before.data()->values[0], 0x5A5A5A5AU);
  EXPECT_EQ(RawSegment(NAME).bytes(4, 4), RawSegment::littleEndian(5, 4));
}

/// Something in the object's place that is no table.
class AnObstacle : public SegmentTest, public ::testing::WithParamInterface<OddObject> {
 protected:
  void SetUp() override {
    // A device takes root, and in a container more than that; on the booted guest all of them are made.
    if (!GetParam().make(PATH)) {
      GTEST_SKIP() << GetParam().name << " cannot be made by this user here";
    }
  }
};

TEST_P(AnObstacle, IsReportedOnceAndNeitherFollowedNorChanged) {
  const auto before = std::filesystem::symlink_status(PATH);
  const CapturedStdErr log;
  {
    const Segment segment("LmTest");
    char copy[4] = {1, 2, 3, 4};

    EXPECT_EQ(segment.data(), nullptr);
    EXPECT_EQ(segment.read(4, copy, 4), 0U);
    EXPECT_FALSE(segment.write(4, copy, 4));
    EXPECT_THAT(copy, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(descriptors(NAME), 0U) << "it is not kept open";
    const LmSyncGuard guard(segment);  // it is still a lock
  }

  EXPECT_THAT(log.lines(), ElementsAre(MMAP_ERROR));
  EXPECT_EQ(mappings(NAME), 0U);
  EXPECT_TRUE(noLinkWasFollowed());
  EXPECT_EQ(std::filesystem::symlink_status(PATH).type(), before.type());
  EXPECT_EQ(std::filesystem::symlink_status(PATH).permissions(), before.permissions());
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, AnObstacle, ::testing::ValuesIn(ODD_OBJECTS),
                         [](const auto& obstacle) { return std::string(obstacle.param.name); });

TEST_F(AnObject, ThatMayNotBeOpenedIsReportedOnce) {
  constexpr uid_t SOMEBODY = 65534;
  constexpr int CANNOT = 77;
  for (const mode_t mode : {0000U, 0400U, 0444U, 0200U, 0222U}) {
    ASSERT_EQ(chmod(PATH, mode), 0);
    ChildProcess child([] {
      if (setresgid(SOMEBODY, SOMEBODY, SOMEBODY) != 0 || setresuid(SOMEBODY, SOMEBODY, SOMEBODY) != 0) {
        return CANNOT;
      }
      const LogCapture ofTheLock;  // whose file may belong to another user as well
      const CapturedStdErr log;
      const Segment segment("LmTest");
      char copy[4];
      const bool isUnmapped = segment.data() == nullptr && segment.read(4, copy, 4) == 0;
      return isUnmapped && log.lines() == std::vector<std::string>{MMAP_ERROR} ? 0 : 1;
    });

    const int end = child.wait();

    // Only root can become the user who may not open it; whoever owns the object could.
    if (end == CANNOT) {
      GTEST_SKIP() << "only root can become another user";
    }
    EXPECT_EQ(end, 0) << mode;
    EXPECT_EQ(mRaw.all(), std::string(SIZE, 0x5A));
    EXPECT_EQ(mRaw.mode(), mode);
  }
}

TEST_F(NoObject, ThatCouldBeMappedIsNotTriedAgainByTheSameSegmentObject) {
  ASSERT_EQ(mkdir(PATH, 0755), 0);
  const CapturedStdErr log;
  const Segment segment("LmTest");
  ASSERT_EQ(rmdir(PATH), 0);
  const RawSegment raw(NAME, SIZE, 1);
  char copy[4];

  EXPECT_EQ(segment.data(), nullptr);
  EXPECT_EQ(segment.read(4, copy, 4), 0U);
}

TEST_F(NoObject, IsItsOwnNamedLock) {
  const Segment segment("LmTest");
  const LmSharedSyncObject sameName("LmTest");

  EXPECT_TRUE(segment.lock());
  EXPECT_TRUE(sameName.unlock());
  EXPECT_FALSE(segment.unlock());
}

TEST_F(NoObject, ExcludesOtherProcessesUntilItsLastNestedUnlock) {
  const Segment segment("LmTest");
  const Signal trying;
  const Signal taken;
  ASSERT_TRUE(segment.lock());
  ASSERT_TRUE(segment.lock());
  ChildProcess child([&] {
    const Segment mine("LmTest");  // needs the lock as well
    return 0;
  });
  ChildProcess locker([&] {
    const LmSharedSyncObject lock("LmTest");
    trying.give();
    lock.lock();
    const unsigned seen = RawSegment(NAME).get8(4);
    lock.unlock();
    taken.give();
    return static_cast<int>(seen);
  });
  ASSERT_TRUE(trying.comesWithin(WATCHDOG_MS));

  ASSERT_TRUE(segment.unlock());
  EXPECT_FALSE(taken.comesWithin(WRONGLY_FREE_MS));
  segment.data()->values[0] = 7;
  ASSERT_TRUE(segment.unlock());

  EXPECT_EQ(locker.wait(), 7);
  EXPECT_EQ(child.wait(), 0);
}

TEST_F(NoObject, IsNotTouchedWhileSomebodyElseHoldsItsLock) {
  const LmSharedSyncObject lock("LmTest");
  const Signal trying;
  const Signal done;
  ASSERT_TRUE(lock.lock());
  ChildProcess child([&] {
    trying.give();
    const Segment segment("LmTest");
    done.give();
    return 0;
  });
  ASSERT_TRUE(trying.comesWithin(WATCHDOG_MS));

  EXPECT_FALSE(done.comesWithin(WRONGLY_FREE_MS));
  EXPECT_FALSE(RawSegment::exists(NAME));
  const RawSegment raw(NAME, SIZE, 0x33);  // whoever has the lock may create it in peace
  ASSERT_TRUE(lock.unlock());

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(raw.all(), RawSegment::littleEndian(100, 4) + std::string(100, 0x33));
}

TEST_F(NoObject, IsLeftUnlockedByConstruction) {
  const Segment segment("LmTest");

  EXPECT_FALSE(segment.unlock());
  ChildProcess other([] {
    const LmSharedSyncObject lock("LmTest");
    return lock.lock() && lock.unlock() ? 0 : 1;
  });
  EXPECT_EQ(other.wait(), 0);
}

TEST_F(NoObject, IsCreatedOnceByManyProcessesThatRace) {
  constexpr unsigned PROCESSES = 12;
  for (unsigned round = 0; round < 10; ++round) {
    RawSegment::remove(NAME);
    int start[2] = {-1, -1};
    ASSERT_EQ(pipe(start), 0);
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (unsigned i = 0; i < PROCESSES; ++i) {
      children.push_back(std::make_unique<ChildProcess>([&, i] {
        close(start[1]);
        char byte = 0;
        if (read(start[0], &byte, 1) != 0) {
          return 2;
        }
        const Segment segment("LmTest");
        const LmSyncGuard guard(segment);
        const Words& words = *segment.data();
        // Nobody but those who came before has written: their marks are all that is not zero.
        std::uint32_t marks = 0;
        for (unsigned k = 1; k < 25; ++k) {
          if (words.values[k] > 1 || (words.values[k] == 1 && k > PROCESSES)) {
            return 3;
          }
          marks += words.values[k];
        }
        if (marks != words.values[0] || words.values[i + 1] != 0) {
          return 4;
        }
        segment.data()->values[0] = marks + 1;
        segment.data()->values[i + 1] = 1;
        return 0;
      }));
    }
    close(start[0]);

    close(start[1]);  // all read its end at once

    for (const auto& child : children) {
      EXPECT_EQ(child->wait(), 0);
    }
    const RawSegment raw(NAME);
    EXPECT_EQ(raw.size(), SIZE);
    EXPECT_EQ(raw.get8(4), PROCESSES) << "whoever zeroed it twice has lost a mark";
  }
}

TEST_F(NoObject, IsMadeWholeAfterAnyOfItsCreatorsIsKilled) {
  for (unsigned round = 0; round < 50; ++round) {
    RawSegment::remove(NAME);
    const SharedRounds created;
    {
      ChildProcess creator([&] {
        const CapturedStdErr log;
        for (;;) {
          const Segment segment("LmTest");
          RawSegment::remove(NAME);
          created.next();
        }
        return 0;
      });
      ASSERT_TRUE(created.reach(1 + round % 5)) << "nothing to be killed at";
      creator.signal(SIGKILL);
      ASSERT_EQ(creator.wait(), -SIGKILL);
    }
    const CapturedStdErr log;  // the lock may tell of its killed holder

    const Segment segment("LmTest");

    ASSERT_EQ(RawSegment(NAME).size(), SIZE);
    ASSERT_EQ(RawSegment(NAME).bytes(4, 100), std::string(100, '\0'));
  }
}

}  // namespace
