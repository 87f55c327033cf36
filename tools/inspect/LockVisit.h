// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_LOCKVISIT_H
#define TOOLS_INSPECT_LOCKVISIT_H

#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "LmFramework/posix/LockPage.h"

namespace idl::tools {

/// Holds a named lock for the moment of a copy, as a guest: the lock's file is never made, repaired, lengthened or
/// taken over from a dead holder, and has the same bytes before and after. Where that is not possible, nothing is held.
///
/// No signal ends or stops the process in between, but for those that cannot be held up: a guest that is killed while
/// it holds is like any other dead holder, and the lock's file then names its process. For one thread.
class LockVisit {
 public:
  /// Waits for the lock as long as `patience`.
  LockVisit(const std::string& name, std::chrono::milliseconds patience);
  LockVisit(const LockVisit&) = delete;
  LockVisit& operator=(const LockVisit&) = delete;
  ~LockVisit();

  bool isHeld() const { return mIsHeld; }

  /// Whether somebody has begun to wait for the lock since it is held here.
  bool isAwaited() const;

 private:
  bool open(const std::string& name);
  bool takeByte();
  bool take(std::chrono::milliseconds patience);

  void holdSignals();
  void leave();

  sigset_t mFormerSignals = {};
  std::uint32_t mFormerProcess = 0;  // what the slot said, which it says again afterwards
  int mDescriptor = -1;
  LockPage mPage;
  std::uint32_t mMine = 0;
  bool mIsHeld = false;
};

}  // namespace idl::tools

#endif
