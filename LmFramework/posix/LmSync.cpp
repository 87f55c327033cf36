// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmSync.h"

#include <time.h>

#include <cerrno>
#include <climits>

namespace {

timespec deadlineAfter(int timeoutMs) {
  constexpr long NANOSECONDS_PER_SECOND = 1000000000;
  timespec deadline = {};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += timeoutMs / 1000;
  deadline.tv_nsec += (timeoutMs % 1000) * 1000000L;
  if (deadline.tv_nsec >= NANOSECONDS_PER_SECOND) {
    deadline.tv_nsec -= NANOSECONDS_PER_SECOND;
    ++deadline.tv_sec;
  }
  return deadline;
}

}  // namespace

LmSync::LmSync() : mGuard(PTHREAD_MUTEX_INITIALIZER), mHolder() {
  pthread_condattr_t monotonic;
  pthread_condattr_init(&monotonic);
  pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
  pthread_cond_init(&mFreed, &monotonic);
  pthread_condattr_destroy(&monotonic);
}

LmSync::~LmSync() {
  pthread_cond_destroy(&mFreed);
  pthread_mutex_destroy(&mGuard);
}

bool LmSync::Lock(int timeoutMs) {
  const pthread_t self = pthread_self();
  pthread_mutex_lock(&mGuard);
  const bool nested = mDepth != 0 && pthread_equal(mHolder, self) != 0;
  const bool locked = nested ? mDepth != UINT_MAX : awaitUntilFree(timeoutMs);
  if (locked) {
    mHolder = self;
    ++mDepth;
  }
  pthread_mutex_unlock(&mGuard);
  return locked;
}

bool LmSync::Unlock() {
  pthread_mutex_lock(&mGuard);
  const bool held = mDepth != 0 && pthread_equal(mHolder, pthread_self()) != 0;
  if (held && --mDepth == 0 && mWaiting != 0) {
    pthread_cond_signal(&mFreed);
  }
  pthread_mutex_unlock(&mGuard);
  return held;
}

/// Called with mGuard held, and returns with it.
bool LmSync::awaitUntilFree(int timeoutMs) {
  if (mDepth == 0 || timeoutMs == 0) {
    return mDepth == 0;
  }
  const timespec deadline = timeoutMs > 0 ? deadlineAfter(timeoutMs) : timespec{};
  int error = 0;
  ++mWaiting;
  while (mDepth != 0 && error != ETIMEDOUT) {
    error = timeoutMs > 0 ? pthread_cond_timedwait(&mFreed, &mGuard, &deadline) : pthread_cond_wait(&mFreed, &mGuard);
  }
  --mWaiting;
  return mDepth == 0;
}
