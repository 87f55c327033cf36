// SPDX-License-Identifier: Apache-2.0
// LmSync, LmSyncGuard and LmSharedSyncObject of the recording framework.
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "LmFramework/LmSync.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "recording/RecorderState.h"

namespace {

std::string nameOf(const LmSync* sync) { return RecorderState::get().nameOf(sync, "LmSync"); }

std::shared_ptr<RecorderState::Mutex> mutexOf(const LmSync* sync) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  return state.mutexes.at(sync);
}

}  // namespace

LmSync::LmSync() {
  RecorderState& state = RecorderState::get();
  {
    const std::lock_guard<std::mutex> lock(state.guard);
    state.mutexes[this] = std::make_shared<RecorderState::Mutex>();
    if (state.loading) {
      state.mutexesAtLoad.push_back(this);
      return;  // it gets its name later
    }
  }
  state.record(Recorder::SYNC, "construct LmSync " + nameOf(this));
}

LmSync::~LmSync() {
  RecorderState& state = RecorderState::get();
  state.record(Recorder::SYNC, "destroy LmSync " + nameOf(this));
  const std::lock_guard<std::mutex> lock(state.guard);
  state.mutexes.erase(this);
  state.names.erase(this);
}

bool LmSync::Lock(int timeoutMs) {
  RecorderState& state = RecorderState::get();
  const auto mutex = mutexOf(this);
  if (timeoutMs < 0) {
    mutex->mutex.lock();
  } else if (!mutex->mutex.try_lock_for(std::chrono::milliseconds(timeoutMs))) {
    return false;
  }
  {
    const std::lock_guard<std::mutex> lock(state.guard);
    ++mutex->depth;
  }
  state.record(Recorder::SYNC, "Lock " + nameOf(this) + " " + std::to_string(timeoutMs));
  return true;
}

bool LmSync::Unlock() {
  RecorderState& state = RecorderState::get();
  state.record(Recorder::SYNC, "Unlock " + nameOf(this));
  const auto mutex = mutexOf(this);
  {
    const std::lock_guard<std::mutex> lock(state.guard);
    --mutex->depth;
  }
  mutex->mutex.unlock();
  return true;
}

/// One name is one lock.
class NamedLock {
 public:
  explicit NamedLock(const std::string& name) : mName(name) {}

  static std::shared_ptr<NamedLock> of(const std::string& name) {
    static std::mutex guard;
    static auto* const locks = new std::map<std::string, std::weak_ptr<NamedLock>>;
    const std::lock_guard<std::mutex> lock(guard);
    std::shared_ptr<NamedLock> found = (*locks)[name].lock();
    if (found == nullptr) {
      found = std::make_shared<NamedLock>(name);
      (*locks)[name] = found;
    }
    return found;
  }

  const std::string& name() const { return mName; }

  void lock() {
    mMutex.lock();
    ++mDepth;
    RecorderState& state = RecorderState::get();
    count(1);
    state.record(Recorder::SHARED_SYNC, "lock " + mName + " " + std::to_string(mDepth));
  }

  void unlock() {
    --mDepth;
    RecorderState& state = RecorderState::get();
    state.record(Recorder::SHARED_SYNC, "unlock " + mName + " " + std::to_string(mDepth));
    count(-1);
    mMutex.unlock();
  }

 private:
  static void count(int change) {
    RecorderState& state = RecorderState::get();
    const std::lock_guard<std::mutex> lock(state.guard);
    state.namedLockDepth += change;
  }

  const std::string mName;
  std::recursive_mutex mMutex;
  int mDepth = 0;  // guarded by mMutex
};

LmSharedSyncObject::LmSharedSyncObject(const char* name) : mLock(NamedLock::of(name)) {
  RecorderState::get().record(Recorder::SHARED_SYNC, "construct " + mLock->name());
}

LmSharedSyncObject::~LmSharedSyncObject() {
  RecorderState::get().record(Recorder::SHARED_SYNC, "destroy " + mLock->name());
}

bool LmSharedSyncObject::lock() const {
  mLock->lock();
  return true;
}

bool LmSharedSyncObject::unlock() const {
  mLock->unlock();
  return true;
}

LmSyncGuard::LmSyncGuard(LmSync& sync) : mSync(&sync), mSharedSync(nullptr) {
  RecorderState::get().record(Recorder::GUARD, "guard " + nameOf(mSync));
  mSync->Lock(LmSync::WAIT_FOREVER);
}

LmSyncGuard::LmSyncGuard(const LmSharedSyncObject& sharedSync) : mSync(nullptr), mSharedSync(&sharedSync) {
  RecorderState::get().record(Recorder::GUARD, "guard named lock");
  mSharedSync->lock();
}

LmSyncGuard::~LmSyncGuard() {
  if (mSync != nullptr) {
    mSync->Unlock();
    RecorderState::get().record(Recorder::GUARD, "unguard " + nameOf(mSync));
  } else {
    mSharedSync->unlock();
    RecorderState::get().record(Recorder::GUARD, "unguard named lock");
  }
}
