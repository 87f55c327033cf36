// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CarPlayInfoSharedMem.h"
#include "LmFramework/LmObserver_.h"
#include "LmFramework/LmSyncGuard.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char NAME[] = "/LmSCarplayResource";
constexpr std::size_t SIZE = 13736;
constexpr std::size_t FLAG = 13732;

void put(std::string& image, std::size_t offset, std::uint32_t value, unsigned width) {
  image.replace(offset, width, RawSegment::littleEndian(value, width));
}

/// What the bytes of a resource of `fill` are after its defaults were written; `kept` stands at 5120.
std::string withDefaults(char fill, std::uint32_t kept) {
  std::string image(SIZE, '\0');
  put(image, 0, 13728, 4);
  image.replace(4, 4, std::string(4, fill));
  put(image, 452, 10, 4);
  for (const unsigned offset : {456U, 457U, 458U, 459U, 460U}) {
    put(image, offset, 1, 1);
  }
  put(image, 736, 1, 4);
  put(image, 752, 1, 4);
  for (const unsigned offset : {740U, 744U, 748U, 756U, 760U, 764U}) {
    put(image, offset, 100, 4);
  }
  for (const unsigned offset : {768U, 772U, 776U}) {
    put(image, offset, 0xFFFFFFFF, 4);
  }
  for (const unsigned offset : {1368U, 1376U, 1380U, 1384U, 1412U}) {
    put(image, offset, 255, 4);
  }
  put(image, 1496, 149, 4);
  put(image, 1760, 1, 1);
  put(image, 1761, 1, 1);
  put(image, 1769, 1, 1);
  put(image, 1764, 0xFFFFFFFF, 4);
  put(image, 1788, 2, 4);
  put(image, 5120, kept, 4);
  put(image, 5124, kept, 4);
  put(image, 5132, 0xFFFFFFFF, 4);
  put(image, 5232, 2, 4);
  put(image, 7864, 0xFFFFFFFF, 4);
  put(image, 8044, 7000, 2);
  put(image, 8046, 1, 1);
  put(image, 11220, 44100, 4);
  put(image, 13732, 1, 1);
  image.replace(13733, 3, std::string(3, fill));
  return image;
}

void expectBytes(const std::string& actual, const std::string& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t offset = 0; offset < expected.size(); ++offset) {
    EXPECT_EQ(static_cast<unsigned>(static_cast<unsigned char>(actual[offset])),
              static_cast<unsigned>(static_cast<unsigned char>(expected[offset])))
        << "at " << offset;
  }
}

struct Notification {
  unsigned id;
  void* data;
  unsigned size;

  bool operator==(const Notification& other) const {
    return id == other.id && data == other.data && size == other.size;
  }
};

/// Remembers what it was told.
class Listener : public LmObserver_ {
 public:
  unsigned Update(unsigned id, void* data, unsigned size) override {
    const std::lock_guard<std::mutex> guard(mMutex);
    mHeard.push_back({id, data, size});
    mArrived.notify_all();
    return 77;
  }

  std::vector<Notification> heard() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mHeard;
  }

  bool waitFor(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, std::chrono::seconds(30), [&] { return mHeard.size() >= count; });
  }

 private:
  mutable std::mutex mMutex;
  mutable std::condition_variable mArrived;
  std::vector<Notification> mHeard;
};

class NoResource : public SegmentTest {};

/// One that nobody has initialised: every byte is 0xFF but the flag.
class AnUninitialisedResource : public SegmentTest {
 protected:
  AnUninitialisedResource() : mRaw(NAME, SIZE, 0xFF) { mRaw.put8(FLAG, 0); }

  RawSegment mRaw;
};

class AnInitialisedResource : public SegmentTest {
 protected:
  AnInitialisedResource() : mRaw(NAME, SIZE, 0x5A) { mRaw.put8(FLAG, 1); }

  RawSegment mRaw;
};

/// A segment object with a listener attached to all ids of its subject.
class AResourceWithAListener : public SegmentTest {
 protected:
  AResourceWithAListener() { mResource.AddObserver(&mListener, nullptr, 0); }
  ~AResourceWithAListener() override { mResource.RemoveObserver(&mListener); }

  Listener mListener;
  CarPlayInfoSharedMem mResource;
};

TEST_F(NoResource, IsCreatedSizedZeroedAndGivenItsDefaults) {
  const CarPlayInfoSharedMem resource;

  expectBytes(RawSegment(NAME).all(), withDefaults('\0', 0));
}

TEST_F(NoResource, HasItsFlagSetAfterCreation) {
  const CarPlayInfoSharedMem resource;

  EXPECT_EQ(RawSegment(NAME).get8(FLAG), 1U);
  EXPECT_EQ(resource.data()->initialised, 1);
}

TEST_F(AnUninitialisedResource, IsGivenTheDefaultsByteByByte) {
  mRaw.put32(5120, 0x8A7B6C5D);

  const CarPlayInfoSharedMem resource;

  expectBytes(mRaw.all(), withDefaults('\xFF', 0x8A7B6C5D));
}

TEST_F(AnUninitialisedResource, KeepsTheWordAt5120AndCopiesItTo5124) {
  for (const std::uint32_t word : {0U, 1U, 0x80000000U, 0xFFFFFFFFU, 0x01020304U}) {
    mRaw.put8(FLAG, 0);
    mRaw.put32(5120, word);
    mRaw.put32(5124, ~word);

    const CarPlayInfoSharedMem resource;

    EXPECT_EQ(mRaw.bytes(5120, 4), RawSegment::littleEndian(word, 4));
    EXPECT_EQ(mRaw.bytes(5124, 4), RawSegment::littleEndian(word, 4));
  }
}

TEST_F(AnUninitialisedResource, KeepsTheBytesBehindTheSizeWordAndBehindTheFlag) {
  const CarPlayInfoSharedMem resource;

  EXPECT_EQ(mRaw.bytes(4, 4), "\xFF\xFF\xFF\xFF");
  EXPECT_EQ(mRaw.bytes(13733, 3), "\xFF\xFF\xFF");
}

TEST_F(AnUninitialisedResource, HasItsPhoneTableZeroed) {
  const CarPlayInfoSharedMem resource;

  constexpr std::size_t TABLE_SIZE = 3256;  // eleven entries of 296 bytes
  EXPECT_EQ(mRaw.bytes(1800, TABLE_SIZE), std::string(TABLE_SIZE, '\0'));
}

TEST_F(AnUninitialisedResource, IsInitialisedOnceOnly) {
  const CarPlayInfoSharedMem first;
  mRaw.put8(1000, 42);

  const CarPlayInfoSharedMem second;

  EXPECT_EQ(mRaw.get8(1000), 42U);
}

TEST_F(AnUninitialisedResource, IsLeftAloneWhenItIsTooShortForItsFlag) {
  for (const std::size_t length : std::vector<std::size_t>{13732, 13731, 5128, 5124, 5120, 1800, 9, 8, 4}) {
    RawSegment raw(NAME, length, 0xFF);
    const CapturedStdErr log;

    const CarPlayInfoSharedMem resource;

    EXPECT_EQ(raw.all(), RawSegment::littleEndian(13728, 4) + std::string(length - 4, '\xFF')) << length;
    EXPECT_THAT(log.lines(), SizeIs(1)) << length;
  }
}

TEST_F(AnUninitialisedResource, IsInitialisedWhenItEndsRightBehindItsFlag) {
  mRaw.resize(13733);
  mRaw.put32(5120, 7);

  const CarPlayInfoSharedMem resource;

  expectBytes(mRaw.all(), withDefaults('\xFF', 7).substr(0, 13733));
}

TEST_F(AnInitialisedResource, IsNotWrittenToButForItsSizeWord) {
  std::string expected = mRaw.all();
  put(expected, 0, 13728, 4);

  const CarPlayInfoSharedMem resource;

  expectBytes(mRaw.all(), expected);
}

TEST_F(AnInitialisedResource, CountsAsSuchForEveryFlagButZero) {
  for (unsigned flag = 1; flag <= 255; ++flag) {
    mRaw.put8(FLAG, flag);
    const std::string before = mRaw.all();

    const CarPlayInfoSharedMem resource;

    EXPECT_EQ(mRaw.bytes(4, SIZE - 4), before.substr(4)) << flag;
  }
}

TEST_F(NoResource, CannotBeMappedAndIsHarmless) {
  ASSERT_EQ(mkdir("/dev/shm/LmSCarplayResource", 0755), 0);
  const CapturedStdErr log;

  {
    CarPlayInfoSharedMem resource;
    std::uint32_t value = 5;

    EXPECT_EQ(resource.data(), nullptr);
    EXPECT_EQ(resource.update(6, &value, 4), 0U);
    EXPECT_EQ(resource.readField(FLAG, std::uint8_t{9}), 9);
  }

  ASSERT_THAT(log.lines(), SizeIs(1));
  EXPECT_THAT(log.lines()[0], ::testing::EndsWith("mmap error"));
}

TEST_F(NoResource, IsInitialisedOnceByManyProcessesThatStartTogether) {
  constexpr unsigned PROCESSES = 8;
  constexpr unsigned ROUNDS = 5;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    RawSegment::remove(NAME);
    int start[2] = {-1, -1};
    ASSERT_EQ(pipe(start), 0);
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (unsigned i = 0; i < PROCESSES; ++i) {
      children.push_back(std::make_unique<ChildProcess>([&] {
        close(start[1]);
        char byte = 0;
        if (read(start[0], &byte, 1) != 0) {
          return 2;
        }
        const CarPlayInfoSharedMem resource;
        // Each leaves a mark in a field that the defaults would clear.
        const LmSyncGuard guard(resource);
        RawSegment raw(NAME);
        if (raw.get8(FLAG) != 1) {
          return 3;
        }
        raw.put8(1000, raw.get8(1000) + 1);
        return 0;
      }));
    }
    close(start[0]);

    close(start[1]);  // all read its end at once

    for (const auto& child : children) {
      EXPECT_EQ(child->wait(), 0);
    }
    std::string expected = withDefaults('\0', 0);
    put(expected, 1000, PROCESSES, 1);
    expectBytes(RawSegment(NAME).all(), expected);
  }
}

TEST_F(AResourceWithAListener, ForwardsTheNumberOfItsNotificationAsAnId) {
  std::uint32_t value = 0x12345678;

  EXPECT_EQ(mResource.update(6, &value, 4), 0U);

  EXPECT_THAT(mListener.heard(), ElementsAre(Notification{0x12345678, nullptr, 0}));
}

TEST_F(AResourceWithAListener, ForwardsEveryNumber) {
  for (const std::uint32_t number : {0U, 6U, 0x80000000U, 0xFFFFFFFFU}) {
    std::uint32_t value = number;

    EXPECT_EQ(mResource.update(6, &value, 4), 0U);

    ASSERT_THAT(mListener.heard(), ::testing::Not(IsEmpty()));
    EXPECT_EQ(mListener.heard().back().id, number);
  }
}

TEST_F(AResourceWithAListener, ForwardsANumberThatLiesAtAnyAddress) {
  char bytes[8] = {0, 0x78, 0x56, 0x34, 0x12, 0, 0, 0};

  EXPECT_EQ(mResource.update(6, bytes + 1, 4), 0U);

  EXPECT_THAT(mListener.heard(), ElementsAre(Notification{0x12345678, nullptr, 0}));
}

TEST_F(AResourceWithAListener, IgnoresANotificationOfAnotherSize) {
  std::uint32_t values[16] = {};

  for (const unsigned size : {8U, 0U, 1U, 3U, 5U, 64U}) {
    EXPECT_EQ(mResource.update(6, values, size), 0U);
  }
  EXPECT_EQ(mResource.update(6, nullptr, 0), 0U);

  EXPECT_THAT(mListener.heard(), IsEmpty());
}

TEST_F(AResourceWithAListener, IgnoresANotificationWithAnotherId) {
  std::uint32_t value = 1;

  for (const unsigned id : {5U, 0U, 7U, 0xFFFFFFFFU}) {
    EXPECT_EQ(mResource.update(id, &value, 4), 0U);
  }

  EXPECT_THAT(mListener.heard(), IsEmpty());
}

TEST_F(AResourceWithAListener, HearsWhatAnotherProcessPublishes) {
  ChildProcess publisher([] {
    LmSharedMemNotifier notifier(false);
    const std::uint32_t ignored = 1;
    const std::uint32_t value = 0x12345678;
    return notifier.Publish(5, &ignored, 4) && notifier.Publish(6, &value, 4) ? 0 : 1;
  });

  EXPECT_EQ(publisher.wait(), 0);
  EXPECT_TRUE(mListener.waitFor(1));

  EXPECT_THAT(mListener.heard(), ElementsAre(Notification{0x12345678, nullptr, 0}));
}

TEST_F(NoResource, HearsNothingMoreOnceItIsDestroyed) {
  Listener listener;
  Listener other;
  {
    CarPlayInfoSharedMem gone;  // its listener stays attached: nobody is left to call it
    gone.AddObserver(&listener, nullptr, 0);
  }
  CarPlayInfoSharedMem alive;
  alive.AddObserver(&other, nullptr, 0);
  LmSharedMemNotifier notifier(false);
  const std::uint32_t value = 3;

  ASSERT_TRUE(notifier.Publish(6, &value, 4));
  EXPECT_TRUE(other.waitFor(1));

  alive.RemoveObserver(&other);
  EXPECT_THAT(listener.heard(), IsEmpty());
  EXPECT_THAT(other.heard(), SizeIs(1));
}

}  // namespace
