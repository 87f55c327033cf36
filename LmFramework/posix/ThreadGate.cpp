// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/ThreadGate.h"

#include "LmFramework/posix/Futex.h"

// Whoever has waited gets in with AWAITED: there may be others, which nobody else remembers.
void ThreadGate::enterAfterWaiting() {
  while (mState.exchange(AWAITED, std::memory_order_acquire) != OPEN) {
    PrivateFutex::wait(mState, AWAITED);
  }
}

void ThreadGate::wakeOne() { PrivateFutex::wake(mState, 1); }
