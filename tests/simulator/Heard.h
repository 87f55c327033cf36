// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SIMULATOR_HEARD_H
#define TESTS_SIMULATOR_HEARD_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "LmFramework/LmObserver.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"

/// Collects the numbers that are told under one id while it lives.
class Heard {
 public:
  explicit Heard(unsigned id) : mId(id), mNotifier(false), mObserver(this, &Heard::take) {
    if (!mNotifier.AddObserver(&mObserver, &id, 1)) {
      throw std::runtime_error("no notifications");
    }
  }

  ~Heard() { mNotifier.RemoveObserver(&mObserver); }

  Heard(const Heard&) = delete;
  Heard& operator=(const Heard&) = delete;

  /// All that was told before this call; a number that was not told at all counts as well as one that was told twice.
  std::vector<std::uint32_t> soFar() {
    mNotifier.Publish(mId, &END, sizeof END);
    std::unique_lock<std::mutex> lock(mMutex);
    const auto isEnded = [this] { return !mNumbers.empty() && mNumbers.back() == END; };
    if (!mArrived.wait_for(lock, std::chrono::seconds(30), isEnded)) {
      throw std::runtime_error("nothing is heard");
    }
    mNumbers.pop_back();
    return mNumbers;
  }

 private:
  static constexpr std::uint32_t END = 0xFFFFFFFF;  // messages arrive in their order

  unsigned take(unsigned /*id*/, void* data, unsigned size) {
    std::uint32_t number = 0;
    std::memcpy(&number, data, std::min<std::size_t>(size, sizeof number));
    const std::lock_guard<std::mutex> guard(mMutex);
    mNumbers.push_back(number);
    mArrived.notify_one();
    return 0;
  }

  const unsigned mId;
  std::mutex mMutex;
  std::condition_variable mArrived;
  std::vector<std::uint32_t> mNumbers;
  LmSharedMemNotifier mNotifier;
  LmObserver<Heard> mObserver;
};

#endif
