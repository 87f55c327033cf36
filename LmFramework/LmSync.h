// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSYNC_H
#define LMFRAMEWORK_LMSYNC_H

#include <pthread.h>

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

/// A mutex between the threads of one process.
///
/// Re-entrant for the thread that holds it: each successful Lock needs an Unlock of its own. A
/// forked child finds a mutex that another thread held still locked, as with any mutex; classes
/// that must survive a fork say so themselves.
class LM_FRAMEWORK_API LmSync : private LmUncopyable {
 public:
  /// Waits without a limit.
  static constexpr int WAIT_FOREVER = -1;

  LmSync();

  /// No thread may hold the mutex or wait for it.
  ~LmSync();

  /// Waits for the mutex at most `timeoutMs` milliseconds by the monotonic clock: 0 only tries,
  /// any negative value waits without a limit.
  /// @return true when the caller now holds it.
  bool Lock(int timeoutMs = WAIT_FOREVER);

  /// Gives back one Lock.
  /// @return false, and nothing happens, when the calling thread does not hold the mutex.
  bool Unlock();

 private:
  pthread_mutex_t mMutex;
};

#endif
