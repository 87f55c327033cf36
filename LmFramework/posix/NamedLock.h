// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_NAMEDLOCK_H
#define LMFRAMEWORK_POSIX_NAMEDLOCK_H

#include <condition_variable>
#include <memory>
#include <string>
#include <thread>

#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/SharedFile.h"

/// The one lock of a name in this process; what LmSharedSyncObject promises is kept here.
///
/// Threads exclude each other by owner and depth, processes by flock on the file "LmLock.NAME". The file's
/// first four bytes are the dirty word: not 0 from just after the lock is taken to just before it is given back, so
/// that the next holder can tell that the former one died. It holds the id of the holder's process, for people only:
/// ids are used again and differ between containers.
///
///     0       4
///     +-------+
///     | dirty |   0 or the holder's process id, 32 bits, in the machine's byte order
///     +-------+
///
/// The file is read and written by calls alone, so one that is cut short or overwritten costs a
/// log line at most. One that is removed loses its exclusion for the hold in progress, not for the next.
class NamedLock : private LmUncopyable {
 public:
  /// The lock of that name, made when no object has one.
  /// @throw std::bad_alloc
  static std::shared_ptr<NamedLock> get(const std::string& name);

  /// Use get().
  explicit NamedLock(const std::string& name);
  ~NamedLock();

  bool lock();
  bool unlock();

  // For the fork handlers: no lock changes hands between the first call and one of the others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  bool lockFile();
  int openAndLock();
  void unlockFile();
  void noteHolder();

  const std::string mName;
  std::condition_variable mReleased;

  // Guarded by the mutex of all named locks.
  std::thread::id mOwner;
  unsigned mDepth = 0;
  NamedLock* mNext = nullptr;
  NamedLock* mPrevious = nullptr;

  // The owner's alone.
  SharedFile mFile;
  bool mHoldsFile = false;
  bool mFailureLogged = false;
};

#endif
