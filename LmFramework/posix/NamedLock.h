// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_NAMEDLOCK_H
#define LMFRAMEWORK_POSIX_NAMEDLOCK_H

#include <memory>
#include <string>

#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/LockFile.h"
#include "LmFramework/posix/ThreadGate.h"

/// The one lock of a name in this process; what LmSharedSyncObject promises is kept here, and said in the log.
///
/// Threads exclude each other by the gate, processes by the file "LmLock.NAME", which whoever is inside the gate takes.
/// Locking and giving back cost two atomic instructions each while nobody else wants the lock; a waiting process sleeps
/// on the word in the file, and looks every 50 ms whether the holder still lives.
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

  // For the fork handlers: no lock is made or destroyed between the first call and one of the others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  bool lockFile();
  int nameError() const;
  void failed(int error);
  void giveBack();

  static void makeThreadKey();
  static void watchThread();
  static void threadEnds(void* key);

  const std::string mName;
  ThreadGate mGate;

  // Guarded by the mutex of all named locks.
  NamedLock* mNext = nullptr;
  NamedLock* mPrevious = nullptr;

  // Of the thread inside the gate alone.
  unsigned mDepth = 0;
  LockFile mFile;
  bool mHoldsFile = false;
  bool mFailureLogged = false;
};

#endif
