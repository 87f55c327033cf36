// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "LmFramework/LmSync.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

namespace {

static_assert(!std::is_copy_constructible_v<LmSyncGuard>);
static_assert(!std::is_convertible_v<LmSync&, LmSyncGuard>, "a guard must not come into being unseen");

bool isFree(LmSync& sync) {
  return std::async(std::launch::async, [&] { return sync.Lock(0) && sync.Unlock(); }).get();
}

/// A shared lock that only counts.
class CountingLock : public LmSharedSyncObject {
 public:
  explicit CountingLock(bool excludesOthers) : LmSharedSyncObject("CountingLock"), mExcludesOthers(excludesOthers) {}

  bool lock() const override {
    ++held;
    return mExcludesOthers;
  }
  bool unlock() const override {
    --held;
    return true;
  }

  mutable int held = 0;

 private:
  const bool mExcludesOthers;
};

TEST(AGuardOfAMutex, HoldsItForTheBlock) {
  LmSync sync;

  {
    const LmSyncGuard guard(sync);
    EXPECT_FALSE(isFree(sync));
  }

  EXPECT_TRUE(isFree(sync));
}

TEST(AGuardOfAMutex, GivesItBackWhenAnExceptionLeavesTheBlock) {
  LmSync sync;

  EXPECT_THROW(
      {
        const LmSyncGuard guard(sync);
        throw std::runtime_error("leaving");
      },
      std::runtime_error);

  EXPECT_TRUE(isFree(sync));
}

TEST(AGuardOfAMutex, NestsInAnother) {
  LmSync sync;
  const LmSyncGuard outer(sync);

  { const LmSyncGuard inner(sync); }

  EXPECT_FALSE(isFree(sync));
}

TEST(AGuardOfASharedLock, GoesThroughItsVirtualOperations) {
  const CountingLock lock(true);

  {
    const LmSyncGuard guard(lock);
    EXPECT_EQ(lock.held, 1);
    {
      const LmSyncGuard inner(lock);
      EXPECT_EQ(lock.held, 2);
    }
    EXPECT_EQ(lock.held, 1);
  }

  EXPECT_EQ(lock.held, 0);
}

TEST(AGuardOfASharedLock, GivesItBackAlsoWhenItExcludesNoOtherProcess) {
  const CountingLock lock(false);

  {
    const LmSyncGuard guard(lock);
    EXPECT_EQ(lock.held, 1);
  }

  EXPECT_EQ(lock.held, 0);
}

TEST(AGuardOfASharedLock, ExcludesOtherThreads) {
  const LmSharedSyncObject lock("LmSyncGuardTest");
  auto guard = std::make_unique<LmSyncGuard>(lock);
  std::promise<void> started;
  auto other = std::async(std::launch::async, [&] {
    started.set_value();
    const LmSyncGuard theirs(lock);
  });
  started.get_future().wait();

  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  guard.reset();

  EXPECT_EQ(other.wait_for(std::chrono::seconds(30)), std::future_status::ready);
}

}  // namespace
