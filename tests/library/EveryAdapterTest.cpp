// SPDX-License-Identifier: Apache-2.0
// What the adapters of all three sources promise about a table that others cut, rewrite or do not let them map.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CpIntegratedDeviceList.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/OddObjects.h"
#include "support/RawSegment.h"
#include "support/SegmentFormat.h"
#include "support/SegmentTest.h"
#include "support/SharedRounds.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr unsigned STATES = 200;  // that a writer goes through: 1 to 200, each a Bluetooth id

// Where each source keeps its phones, and how a phone of a state is written in two halves.

struct Bluetooth {
  using Adapter = BtIntegratedDeviceList;
  using Record = BtPairedDevice;
  static constexpr SegmentFormat FORMAT = formatOf<BtPairedDeviceListSharedMem>();
  static constexpr unsigned SLOTS = 10;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 112;
  static constexpr bool COPIES_WHOLE_TABLES = true;

  static std::size_t slot(unsigned k) { return FIRST_SLOT + SLOT_SIZE * k; }
  static void putFirstHalf(RawSegment& raw, unsigned k, unsigned state) { raw.put8(slot(k) + 4, state); }
  static void putSecondHalf(RawSegment& raw, unsigned k, unsigned state) { raw.put32(slot(k) + 104, state); }
  static unsigned firstHalf(const Record& record) { return record.id; }
  static unsigned secondHalf(const Record& record) { return record.info; }
};

struct AndroidAuto {
  using Adapter = AapIntegratedDeviceList;
  using Record = AapDevice;
  static constexpr SegmentFormat FORMAT = formatOf<AapDeviceListSharedMem>();
  static constexpr unsigned SLOTS = 12;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 524;
  static constexpr bool COPIES_WHOLE_TABLES = true;

  static std::size_t slot(unsigned k) { return FIRST_SLOT + SLOT_SIZE * k; }
  static void putFirstHalf(RawSegment& raw, unsigned k, unsigned state) {
    raw.put8(slot(k) + 262, 'x');
    raw.put8(slot(k) + 519, state);
  }
  static void putSecondHalf(RawSegment& raw, unsigned k, unsigned state) { raw.put32(slot(k) + 520, state); }
  static unsigned firstHalf(const Record& record) { return record.btid; }
  static unsigned secondHalf(const Record& record) { return static_cast<unsigned>(record.port); }
};

struct CarPlay {
  using Adapter = CpIntegratedDeviceList;
  using Record = cps_def::WCPAtom;
  static constexpr SegmentFormat FORMAT = formatOf<CarPlayInfoSharedMem>();
  static constexpr unsigned SLOTS = 11;
  static constexpr std::size_t FIRST_SLOT = 1800;
  static constexpr std::size_t SLOT_SIZE = 296;
  static constexpr bool COPIES_WHOLE_TABLES = false;  // but each slot under a lock of its own

  static std::size_t slot(unsigned k) { return FIRST_SLOT + SLOT_SIZE * k; }
  static void putFirstHalf(RawSegment& raw, unsigned k, unsigned state) {
    raw.put64(slot(k), state);
    raw.put8(slot(k) + 269, 1);
  }
  static void putSecondHalf(RawSegment& raw, unsigned k, unsigned state) { raw.put8(slot(k) + 264, state); }
  static unsigned firstHalf(const Record& record) { return static_cast<unsigned>(record.identifier); }
  static unsigned secondHalf(const Record& record) { return record.btid; }
};

/// Gives the other processes a chance to get in between.
void linger() {
  const timespec pause = {0, 200000};
  nanosleep(&pause, nullptr);
}

/// A table that its service has made, full of phones of the state 1.
template <class Source>
class EveryAdapter : public SegmentTest {
 protected:
  using Adapter = typename Source::Adapter;
  using Record = typename Source::Record;
  static constexpr std::size_t SIZE = Source::FORMAT.size();
  static constexpr auto WATCHDOG = std::chrono::seconds(60);

  EveryAdapter() : mRaw(Source::FORMAT.name, SIZE) {
    mRaw.put32(0, static_cast<std::uint32_t>(Source::FORMAT.data));
    if (!Source::COPIES_WHOLE_TABLES) {
      mRaw.put8(SIZE - 4, 1);  // CarPlay's is initialised
    }
    putAll(mRaw, 1);
  }

  static void putAll(RawSegment& raw, unsigned state) {
    for (unsigned k = 0; k < Source::SLOTS; ++k) {
      Source::putFirstHalf(raw, k, state);
      Source::putSecondHalf(raw, k, state);
    }
  }

  static std::vector<Record> records(Adapter& adapter) {
    std::vector<Record> found(3);  // what is there before must not matter
    adapter.getFunctionDeviceList(found);
    return found;
  }

  static std::size_t phones(const Adapter& adapter) {
    std::vector<IntegratedDevice> paired;
    std::vector<IntegratedDevice> attached;
    adapter.getBtDeviceList(paired);
    adapter.getUsbDeviceList(attached);
    return paired.size() + attached.size();
  }

  static std::size_t slotsWithin(std::size_t length) {
    return length < Source::FIRST_SLOT
               ? 0
               : std::min<std::size_t>((length - Source::FIRST_SLOT) / Source::SLOT_SIZE, Source::SLOTS);
  }

  /// Cuts the table to every length in turn, and lengthens it again. Never ends.
  static int cutAndLengthen(const SharedRounds& rounds, std::size_t shortest) {
    RawSegment raw(Source::FORMAT.name);
    for (unsigned round = 0;; ++round) {
      raw.resize(shortest + std::size_t{round} * 37 % (SIZE + 1 - shortest));
      raw.resize(SIZE);
      Source::putFirstHalf(raw, round % Source::SLOTS, 3);
      rounds.next();
    }
  }

  /// Writes one state after the other under the table's lock, and takes its time between the halves. Never ends.
  static int writeStates(const SharedRounds& rounds) {
    const LmSharedSyncObject lock(Source::FORMAT.name + 1);
    RawSegment raw(Source::FORMAT.name);
    for (unsigned round = 0;; ++round) {
      const unsigned state = round % STATES + 1;
      {
        const LmSyncGuard guard(lock);
        for (unsigned k = 0; k < Source::SLOTS; ++k) {
          Source::putFirstHalf(raw, k, state);
        }
        linger();
        for (unsigned k = 0; k < Source::SLOTS; ++k) {
          Source::putSecondHalf(raw, k, state);
        }
      }
      rounds.next();
      linger();
    }
  }

  RawSegment mRaw;
  SharedRounds mRounds;
};

using Sources = ::testing::Types<Bluetooth, AndroidAuto, CarPlay>;
struct SourceNames {
  template <class Source>
  static std::string GetName(int /*position*/) {
    return Source::FORMAT.name + 1;
  }
};
TYPED_TEST_SUITE(EveryAdapter, Sources, SourceNames);

TYPED_TEST(EveryAdapter, ReadsItsTableAtEveryLengthThatItsOwnerCutsItToLater) {
  const CapturedStdErr log;
  typename TypeParam::Adapter adapter;

  for (std::size_t cut = 0; cut <= this->SIZE; ++cut) {
    const std::size_t length = this->SIZE - cut;
    this->mRaw.resize(length);

    ASSERT_THAT(this->records(adapter), SizeIs(this->slotsWithin(length))) << length;
    ASSERT_EQ(this->mRaw.size(), length);
  }
  EXPECT_THAT(log.lines(), SizeIs(1));
}

TYPED_TEST(EveryAdapter, IsNeverKilledWhileItsTableIsCutAndLengthened) {
  const CapturedStdErr log;
  typename TypeParam::Adapter adapter;
  ChildProcess owner([this] { return this->cutAndLengthen(this->mRounds, 0); });
  ASSERT_TRUE(this->mRounds.reach(1, this->WATCHDOG));
  const auto deadline = std::chrono::steady_clock::now() + this->WATCHDOG;

  const std::uint32_t first = this->mRounds.count();
  for (unsigned round = 0; round < 500 || this->mRounds.count() < first + 500; ++round) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << this->mRounds.count() - first << " rounds of its owner";
    adapter.updateDeviceList();

    ASSERT_LE(this->phones(adapter), std::size_t{TypeParam::SLOTS});
  }

  EXPECT_LE(log.lines().size(), 1U);
}

TYPED_TEST(EveryAdapter, IsNeverKilledWhileItAttachesATableThatIsCutAndLengthened) {
  // Never to nothing: what has no length would be sized anew.
  ChildProcess owner([this] { return this->cutAndLengthen(this->mRounds, 1); });
  const CapturedStdErr log;
  ASSERT_TRUE(this->mRounds.reach(1, this->WATCHDOG));
  const auto deadline = std::chrono::steady_clock::now() + this->WATCHDOG;

  const std::uint32_t first = this->mRounds.count();
  for (unsigned round = 0; round < 200 || this->mRounds.count() < first + 200; ++round) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << this->mRounds.count() - first << " rounds of its owner";
    typename TypeParam::Adapter adapter;
    adapter.updateDeviceList();

    ASSERT_LE(this->phones(adapter), std::size_t{TypeParam::SLOTS});
  }
}

TYPED_TEST(EveryAdapter, NeverReadsWhatIsHalfWrittenByAWriterWithTheLock) {
  typename TypeParam::Adapter adapter;
  ChildProcess writer([this] { return this->writeStates(this->mRounds); });
  ASSERT_TRUE(this->mRounds.reach(1, this->WATCHDOG)) << "nothing was published";
  const auto deadline = std::chrono::steady_clock::now() + this->WATCHDOG;

  std::set<unsigned> seen;
  for (unsigned round = 0; round < 100 || seen.size() < 5; ++round) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "states seen: " << seen.size();

    const auto found = this->records(adapter);

    ASSERT_THAT(found, SizeIs(TypeParam::SLOTS));
    for (const auto& record : found) {
      ASSERT_EQ(TypeParam::firstHalf(record), TypeParam::secondHalf(record)) << round;
      ASSERT_TRUE(!TypeParam::COPIES_WHOLE_TABLES || TypeParam::firstHalf(record) == TypeParam::firstHalf(found[0]));
    }
    seen.insert(TypeParam::firstHalf(found[0]));
  }
  const LmSharedSyncObject lock(TypeParam::FORMAT.name + 1);
  const LmSyncGuard guard(lock);  // so that the writer does not die with it
  writer.signal(SIGKILL);
  EXPECT_EQ(writer.wait(), -SIGKILL);
}

TYPED_TEST(EveryAdapter, IsAnEmptySourceWhereSomethingElseHasItsTablesName) {
  const std::string path = std::string("/dev/shm") + TypeParam::FORMAT.name;
  for (const OddObject& object : ODD_OBJECTS) {
    removeOddObject(path);
    if (!object.make(path)) {
      continue;
    }
    const CapturedStdErr log;
    typename TypeParam::Adapter adapter;

    adapter.updateDeviceList();

    EXPECT_THAT(this->records(adapter), IsEmpty()) << object.name;
    EXPECT_EQ(this->phones(adapter), 0U) << object.name;
    EXPECT_THAT(log.lines(), SizeIs(1)) << object.name;
  }
  EXPECT_TRUE(noLinkWasFollowed());
}

TYPED_TEST(EveryAdapter, KeepsReadingTheTableThatItAttachedWhateverTakesItsName) {
  const std::string path = std::string("/dev/shm") + TypeParam::FORMAT.name;
  const CapturedStdErr log;
  typename TypeParam::Adapter adapter;
  for (const OddObject& object : ODD_OBJECTS) {
    removeOddObject(path);
    object.make(path);

    EXPECT_THAT(this->records(adapter), SizeIs(TypeParam::SLOTS)) << object.name;
  }

  this->putAll(this->mRaw, 9);
  const auto found = this->records(adapter);

  EXPECT_EQ(TypeParam::firstHalf(found.at(0)), 9U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TYPED_TEST(EveryAdapter, DetachesItsTableAndKeepsItWhenItIsDestroyedThroughItsBase) {
  RawSegment::remove(TypeParam::FORMAT.name);
  std::unique_ptr<IntegratedDeviceListBase<typename TypeParam::Record>> adapter =
      std::make_unique<typename TypeParam::Adapter>();
  ASSERT_EQ(this->mappings(TypeParam::FORMAT.name), 1U);

  adapter.reset();

  EXPECT_EQ(this->mappings(TypeParam::FORMAT.name), 0U);
  EXPECT_EQ(this->descriptors(TypeParam::FORMAT.name), 0U);
  EXPECT_EQ(RawSegment(TypeParam::FORMAT.name).size(), std::size_t{this->SIZE});
}

}  // namespace
