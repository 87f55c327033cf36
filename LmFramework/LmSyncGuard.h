// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSYNCGUARD_H
#define LMFRAMEWORK_LMSYNCGUARD_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

class LmSharedSyncObject;
class LmSync;

/// Holds a lock for the length of a block: taken in the constructor without a time limit, given
/// back in the destructor, also when an exception leaves the block.
///
/// The lock is borrowed and must outlive the guard. Guards of one lock nest.
class LM_FRAMEWORK_API LmSyncGuard : private LmUncopyable {
 public:
  explicit LmSyncGuard(LmSync& sync);
  explicit LmSyncGuard(const LmSharedSyncObject& sharedSync);
  ~LmSyncGuard();

 private:
  LmSync* const mSync;                          // null when the guard holds a shared lock
  const LmSharedSyncObject* const mSharedSync;  // null when it holds a lock of this process
};

#endif
