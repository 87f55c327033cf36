// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmSyncGuard.h"

#include "LmFramework/LmSync.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

LmSyncGuard::LmSyncGuard(LmSync& sync) : mSync(&sync), mSharedSync(nullptr) { mSync->Lock(LmSync::WAIT_FOREVER); }

LmSyncGuard::LmSyncGuard(const LmSharedSyncObject& sharedSync) : mSync(nullptr), mSharedSync(&sharedSync) {
  mSharedSync->lock();  // false still excludes this process's threads, has been logged, and has to be given back too
}

LmSyncGuard::~LmSyncGuard() {
  if (mSync != nullptr) {
    mSync->Unlock();
  } else {
    mSharedSync->unlock();
  }
}
