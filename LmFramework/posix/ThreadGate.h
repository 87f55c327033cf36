// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_THREADGATE_H
#define LMFRAMEWORK_POSIX_THREADGATE_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "LmFramework/LmUncopyable.h"

/// Lets one thread of this process through at a time, and knows which: a mutex that can be asked for its owner, costs
/// an atomic instruction each way while nobody waits, and can be made anew in a forked child.
class ThreadGate : private LmUncopyable {
 public:
  /// Whether the calling thread is the one inside.
  bool isMine() const { return mOwner.load(std::memory_order_relaxed) == pthread_self(); }

  /// Waits until the calling thread, which must not be inside, has got in.
  void enter() {
    std::uint32_t state = OPEN;
    if (!mState.compare_exchange_strong(state, CLOSED, std::memory_order_acquire, std::memory_order_relaxed)) {
      enterAfterWaiting();
    }
    mOwner.store(pthread_self(), std::memory_order_relaxed);
  }

  /// By the thread that is inside.
  void leave() {
    mOwner.store(NOBODY, std::memory_order_relaxed);
    if (mState.exchange(OPEN, std::memory_order_release) == AWAITED) {
      wakeOne();
    }
  }

  /// In a forked child, where neither the thread inside nor those that wait are left.
  void reset() {
    mOwner.store(NOBODY, std::memory_order_relaxed);
    mState.store(OPEN, std::memory_order_relaxed);
  }

 private:
  static constexpr std::uint32_t OPEN = 0;
  static constexpr std::uint32_t CLOSED = 1;
  static constexpr std::uint32_t AWAITED = 2;  // closed, and somebody may be waiting
  static constexpr pthread_t NOBODY = 0;       // no thread has it: it is the address of a thread's control block

  void enterAfterWaiting();
  void wakeOne();

  std::atomic<std::uint32_t> mState{OPEN};
  std::atomic<pthread_t> mOwner{NOBODY};
};

#endif
