// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_FUTEX_H
#define LMFRAMEWORK_POSIX_FUTEX_H

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>

/// The system call under the port's own locks. `SCOPE` is 0 for a word in shared memory, FUTEX_PRIVATE_FLAG for one
/// that only the threads of this process know, which is cheaper.
template <int SCOPE>
struct Futex {
  static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t) &&
                std::atomic<std::uint32_t>::is_always_lock_free);

  /// Waits until woken while the word is `value`, for `timeout` at most.
  /// @return 0, or EAGAIN (another value), ETIMEDOUT, EINTR, EFAULT (nothing is mapped there)
  static int wait(const std::atomic<std::uint32_t>& word, std::uint32_t value, std::chrono::milliseconds timeout) {
    const Time time = {static_cast<long>(timeout.count() / 1000), static_cast<long>(timeout.count() % 1000 * 1000000)};
    return call(word, FUTEX_WAIT, value, &time) == 0 ? 0 : errno;
  }

  static void wait(const std::atomic<std::uint32_t>& word, std::uint32_t value) {
    call(word, FUTEX_WAIT, value, nullptr);
  }

  /// Wakes `count` of those that wait. An error means that the word is not mapped any more; whoever waits looks again.
  static void wake(const std::atomic<std::uint32_t>& word, int count) {
    call(word, FUTEX_WAKE, static_cast<std::uint32_t>(count), nullptr);
  }

  static void wakeAll(const std::atomic<std::uint32_t>& word) { wake(word, INT_MAX); }

 private:
  // The layout that SYS_futex takes, which on 32 bits is not that of a C library with 64-bit times.
  struct Time {
    long seconds;
    long nanoseconds;
  };

  static long call(const std::atomic<std::uint32_t>& word, int operation, std::uint32_t value, const Time* time) {
    return syscall(SYS_futex, &word, operation | SCOPE, value, time, nullptr, 0);
  }
};

using SharedFutex = Futex<0>;
using PrivateFutex = Futex<FUTEX_PRIVATE_FLAG>;

#endif
