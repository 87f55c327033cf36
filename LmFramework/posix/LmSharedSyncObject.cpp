// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

#include "LmFramework/posix/NamedLock.h"

LmSharedSyncObject::LmSharedSyncObject(const char* name) : mLock(NamedLock::get(name != nullptr ? name : "")) {}

LmSharedSyncObject::~LmSharedSyncObject() = default;

bool LmSharedSyncObject::lock() const { return mLock->lock(); }

bool LmSharedSyncObject::unlock() const { return mLock->unlock(); }
