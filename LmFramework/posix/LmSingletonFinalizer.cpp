// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmSingletonFinalizer.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

/// One registration. Never freed, since a thread may still be looking at it; the C library keeps one exit handler for
/// each all the same.
struct Registration {
  std::atomic<LmSingletonFinalizer::DestroyFunc> function;  // null once it has run, or has been registered anew
  Registration* older;
  Registration* nextSpent;
};

// The newest registration that has not had its turn. Without a mutex, so that a child forked in the middle of a
// registration can still exit.
std::atomic<Registration*> newest{nullptr};

// Those that have had it.
std::atomic<Registration*> spent{nullptr};

void push(std::atomic<Registration*>& head, Registration* registration, Registration* Registration::*next) {
  registration->*next = head.load(std::memory_order_relaxed);
  while (!head.compare_exchange_weak(registration->*next, registration, std::memory_order_acq_rel)) {
  }
}

/// The exit handler of each registration. Handlers run in the reverse order of their registration, and so do the
/// functions.
void runNewest() {
  Registration* registration = newest.load(std::memory_order_acquire);
  while (registration != nullptr &&
         !newest.compare_exchange_weak(registration, registration->older, std::memory_order_acq_rel)) {
  }
  if (registration == nullptr) {
    return;
  }
  push(spent, registration, &Registration::nextSpent);
  const LmSingletonFinalizer::DestroyFunc function = registration->function.exchange(nullptr);
  if (function != nullptr) {
    function();
  }
}

// There is one at most: it has done the same when it was registered. Whoever makes singletons anew all the time would
// else walk over all that ever were.
void forgetOlder(const Registration* registration, LmSingletonFinalizer::DestroyFunc function) {
  for (Registration* older = registration->older; older != nullptr; older = older->older) {
    LmSingletonFinalizer::DestroyFunc expected = function;
    if (older->function.compare_exchange_strong(expected, nullptr)) {
      return;
    }
  }
}

}  // namespace

void LmSingletonFinalizer::addDestroyFunc(DestroyFunc destroyFunc) {
  auto registration = std::make_unique<Registration>();
  registration->function = destroyFunc;
  if (std::atexit(&runNewest) != 0) {
    throw std::bad_alloc();
  }
  Registration* const pushed = registration.release();
  push(newest, pushed, &Registration::older);
  forgetOlder(pushed, destroyFunc);
}
