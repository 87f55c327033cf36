// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_SHAREDROUNDS_H
#define TESTS_SUPPORT_SHAREDROUNDS_H

#include <sys/mman.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <new>
#include <system_error>

/// A count that a process shares with the children that it forks later: by it a child tells how far it has come.
class SharedRounds {
 public:
  SharedRounds() {
    void* const page = mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
      throw std::system_error(errno, std::generic_category(), "mmap");
    }
    mCount = new (page) Count(0);
  }

  ~SharedRounds() { munmap(mCount, sizeof(Count)); }

  SharedRounds(const SharedRounds&) = delete;
  SharedRounds& operator=(const SharedRounds&) = delete;

  /// One more round is done.
  void next() const { ++*mCount; }

  std::uint32_t count() const { return *mCount; }

  /// Waits until `rounds` are done. False when the watchdog's time is over first.
  bool reach(std::uint32_t rounds, std::chrono::milliseconds watchdog = std::chrono::seconds(60)) const {
    const auto deadline = std::chrono::steady_clock::now() + watchdog;
    while (count() < rounds) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
      const timespec pause = {0, 100000};
      nanosleep(&pause, nullptr);
    }
    return true;
  }

 private:
  using Count = std::atomic<std::uint32_t>;
  static_assert(Count::is_always_lock_free, "a lock would be each process's own");

  Count* mCount = nullptr;
};

#endif
