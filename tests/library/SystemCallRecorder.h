// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_LIBRARY_SYSTEMCALLRECORDER_H
#define TESTS_LIBRARY_SYSTEMCALLRECORDER_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Writes down the system calls that this thread makes from the objects linked into the program, and makes some of them
/// fail. One at a time in a thread; the framework's library is not listened to.
///
/// A call is written as its name without "64", its arguments, and its error's name when it fails:
///
///     shm_open /FuncInfo 0xc2 0664
///     mmap 2108 prot=0x3 flags=0x1 fd offset=0 -> ENOMEM
///
/// "fd" stands for the descriptor that the last shm_open returned.
class SystemCallRecorder {
 public:
  SystemCallRecorder();
  ~SystemCallRecorder();
  SystemCallRecorder(const SystemCallRecorder&) = delete;
  SystemCallRecorder& operator=(const SystemCallRecorder&) = delete;

  /// The `occurrence`-th call of `name` from now on (counted from 1) is not made and fails with `error`.
  void fail(const std::string& name, unsigned occurrence, int error);

  /// All calls of `name` do.
  void failAll(const std::string& name, int error);

  /// The `occurrence`-th pread or pwrite from now on moves `count` bytes at most.
  void shorten(const std::string& name, unsigned occurrence, std::size_t count);

  /// This process kills itself right before, or after, the `occurrence`-th call from now on, whichever it is.
  void killBefore(unsigned occurrence) { mKillBefore = mCount + occurrence; }
  void killAfter(unsigned occurrence) { mKillAfter = mCount + occurrence; }

  /// The calls since the last take().
  std::vector<std::string> take();

  /// While one lives, calls are neither written down nor made to fail: for what a test itself calls.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    SystemCallRecorder* const mPaused;
  };

  // For the wrappers.
  void begin();
  void end() const;
  int planned(const std::string& name);
  std::size_t allowed(std::size_t size) const;
  void write(const std::string& name, const std::string& arguments, int error);
  void opened(int fd) { mFd = fd; }
  std::string nameOf(int fd) const;

 private:
  struct Plan {
    int error = 0;
    std::size_t count = static_cast<std::size_t>(-1);
  };

  std::map<std::string, std::map<unsigned, Plan>> mPlans;
  std::map<std::string, int> mAlways;
  std::map<std::string, unsigned> mSeen;
  std::vector<std::string> mCalls;
  std::size_t mAllowed = static_cast<std::size_t>(-1);
  int mFd = -1;
  unsigned mCount = 0;  // of all calls
  unsigned mKillBefore = 0;
  unsigned mKillAfter = 0;
};

#endif
