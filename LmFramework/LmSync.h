// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSYNC_H
#define LMFRAMEWORK_LMSYNC_H

#include <pthread.h>

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

/// A mutex between the threads of one process.
///
/// Re-entrant for the thread that holds it: each successful Lock needs an Unlock of its own. Who waits
/// is not served in any order. In a forked child the forking thread still holds what it held, and
/// gives it back there; what another thread held stays locked, as with any mutex, and classes that must
/// survive that say so themselves.
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
  bool awaitUntilFree(int timeoutMs);

  // A recursive pthread mutex would do but for three things: in a forked child it refuses the forking thread's unlock,
  // and ThreadSanitizer knows neither its waits by the monotonic clock nor that an unlock may be refused.
  pthread_mutex_t mGuard;  // protects what follows, and is held for a few instructions only
  pthread_cond_t mFreed;   // waits by the monotonic clock
  pthread_t mHolder;       // valid while mDepth is not 0
  unsigned mDepth = 0;
  unsigned mWaiting = 0;
};

#endif
