// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/LmSync.h"
#include "support/ChildProcess.h"

namespace {

static_assert(!std::is_copy_constructible_v<LmSync> && !std::is_copy_assignable_v<LmSync>);

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

template <class Function>
auto onAnotherThread(Function function) {
  return std::async(std::launch::async, function).get();
}

TEST(AFreeMutex, IsTakenAndGivenBack) {
  LmSync sync;

  EXPECT_TRUE(sync.Lock());
  EXPECT_TRUE(sync.Unlock());

  EXPECT_TRUE(onAnotherThread([&] { return sync.Lock(0) && sync.Unlock(); }));
}

TEST(AFreeMutex, IsTakenWithAnyTimeout) {
  LmSync sync;

  for (const int timeoutMs : {0, 1, 1000, 2147483647, -1, -2, -2147483647}) {
    EXPECT_TRUE(sync.Lock(timeoutMs)) << timeoutMs;
    EXPECT_TRUE(sync.Unlock()) << timeoutMs;
  }
}

TEST(AFreeMutex, CannotBeGivenBack) {
  LmSync sync;

  EXPECT_FALSE(sync.Unlock());
  EXPECT_TRUE(onAnotherThread([&] { return sync.Lock(0) && sync.Unlock(); }));
}

TEST(AHeldMutex, IsTakenAgainByItsHolder) {
  LmSync sync;
  ASSERT_TRUE(sync.Lock());

  EXPECT_TRUE(sync.Lock());
  EXPECT_TRUE(sync.Lock(0));
  EXPECT_TRUE(sync.Lock(10));
}

TEST(AHeldMutex, NeedsOneUnlockForEachLock) {
  LmSync sync;
  const auto isFree = [&] { return sync.Lock(0) && sync.Unlock(); };
  ASSERT_TRUE(sync.Lock());
  ASSERT_TRUE(sync.Lock());

  ASSERT_TRUE(sync.Unlock());
  EXPECT_FALSE(onAnotherThread(isFree));
  ASSERT_TRUE(sync.Unlock());
  EXPECT_TRUE(onAnotherThread(isFree));
  EXPECT_FALSE(sync.Unlock());
}

TEST(AHeldMutex, RefusesOthersAtOnceWithoutAWait) {
  LmSync sync;
  ASSERT_TRUE(sync.Lock());

  EXPECT_FALSE(onAnotherThread([&] { return sync.Lock(0); }));
}

TEST(AHeldMutex, RefusesOthersWhenTheirTimeIsOver) {
  LmSync sync;
  ASSERT_TRUE(sync.Lock());

  const auto waited = onAnotherThread([&] {
    const auto start = Clock::now();
    EXPECT_FALSE(sync.Lock(50));
    return Clock::now() - start;
  });

  EXPECT_GE(waited, milliseconds(50));
  EXPECT_LT(waited, milliseconds(20000));
}

TEST(AHeldMutex, IsNotGivenBackByAnotherThread) {
  LmSync sync;
  ASSERT_TRUE(sync.Lock());

  EXPECT_FALSE(onAnotherThread([&] { return sync.Unlock(); }));
  EXPECT_FALSE(onAnotherThread([&] { return sync.Lock(0); }));
  EXPECT_TRUE(sync.Unlock());
}

TEST(AHeldMutex, GoesToWhoeverWaitsWithAndWithoutALimit) {
  for (const int timeoutMs : {LmSync::WAIT_FOREVER, 60000}) {
    LmSync sync;
    ASSERT_TRUE(sync.Lock());
    std::promise<void> started;
    auto waiter = std::async(std::launch::async, [&] {
      started.set_value();
      return sync.Lock(timeoutMs) && sync.Unlock();
    });
    started.get_future().wait();

    EXPECT_EQ(waiter.wait_for(milliseconds(20)), std::future_status::timeout);
    ASSERT_TRUE(sync.Unlock());

    EXPECT_TRUE(waiter.get());
  }
}

TEST(AContendedMutex, LetsOneThreadInAtATime) {
  LmSync sync;
  constexpr int THREADS = 8;
  constexpr int ROUNDS = 2000;
  int count = 0;  // unguarded but for the mutex
  std::vector<std::thread> threads;

  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([&, timeoutMs = i % 2 == 0 ? LmSync::WAIT_FOREVER : 100000] {
      for (int round = 0; round < ROUNDS; ++round) {
        if (sync.Lock(timeoutMs)) {
          ++count;
          sync.Unlock();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(count, THREADS * ROUNDS);
}

TEST(AForkedChild, GivesBackWhatTheForkingThreadHeld) {
  LmSync sync;
  ASSERT_TRUE(sync.Lock());

  ChildProcess child([&] { return sync.Lock(0) && sync.Unlock() && sync.Unlock() && !sync.Unlock() ? 0 : 1; });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_TRUE(sync.Unlock());
}

}  // namespace
