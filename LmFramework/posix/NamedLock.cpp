// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/NamedLock.h"

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/posix/ForkHandlers.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char FILE_TEXT[] = "LmFramework/posix/NamedLock";
constexpr int TAG = 1;
constexpr std::size_t MAX_NAME_SIZE = 200;
// So often what is repaired may be found damaged again, without a pause, before that counts as a failure.
constexpr int MAX_REPAIRS = 100;
// How long a holder may be dead before anybody looks; half of the time within which the next one has the lock.
constexpr std::chrono::milliseconds LOOK_INTERVAL{50};
// When somebody who waits says so, first and again: long after any hold that goes well.
constexpr std::chrono::seconds FIRST_COMPLAINT{1};
constexpr std::chrono::seconds COMPLAINT_INTERVAL{10};

using Names = std::map<std::string, std::weak_ptr<NamedLock>>;

// One mutex for all names: it is held while a lock is made, destroyed, or given up by a thread that ends.
std::mutex gMutex;
NamedLock* gLocks = nullptr;
Names* gNames = nullptr;  // never deleted: a lock may be used while the process exits

// A thread that has ever locked anything has a value here, so that its end is noticed.
constexpr pthread_key_t NO_KEY = static_cast<pthread_key_t>(-1);
pthread_key_t gThreadKey = NO_KEY;

/// Says from time to time whom a lock() has been waiting for.
class Patience {
 public:
  explicit Patience(const std::string& name) : mName(name) {}

  bool hasWaited() const { return mStarted != Clock::time_point(); }

  void waitsFor(std::uint32_t process) {
    const Clock::time_point now = Clock::now();
    if (!hasWaited()) {
      mStarted = now;
      mNextComplaint = now + FIRST_COMPLAINT;
    }
    if (now < mNextComplaint) {
      return;
    }
    mNextComplaint = now + COMPLAINT_INTERVAL;
    LmDbgOutput::DbgPrint(
        FILE_TEXT, "lockFile", __LINE__, TAG, "%s: waited for %u s so far, process %u holds it\n", mName.c_str(),
        static_cast<unsigned>(std::chrono::duration_cast<std::chrono::seconds>(now - mStarted).count()),
        static_cast<unsigned>(process));
  }

 private:
  const std::string& mName;
  Clock::time_point mStarted;
  Clock::time_point mNextComplaint;
};

}  // namespace

std::shared_ptr<NamedLock> NamedLock::get(const std::string& name) {
  installForkHandlers();
  static pthread_once_t once = PTHREAD_ONCE_INIT;
  pthread_once(&once, &NamedLock::makeThreadKey);
  std::lock_guard<std::mutex> guard(gMutex);
  if (gNames == nullptr) {
    gNames = new Names;
  }
  std::weak_ptr<NamedLock>& known = (*gNames)[name];
  std::shared_ptr<NamedLock> found = known.lock();
  if (found == nullptr) {
    found = std::make_shared<NamedLock>(name);
    known = found;
  }
  return found;
}

NamedLock::NamedLock(const std::string& name) : mName(name), mNext(gLocks), mFile("LmLock." + name) {
  if (mNext != nullptr) {
    mNext->mPrevious = this;
  }
  gLocks = this;
}

NamedLock::~NamedLock() {
  std::lock_guard<std::mutex> guard(gMutex);
  (mPrevious != nullptr ? mPrevious->mNext : gLocks) = mNext;
  if (mNext != nullptr) {
    mNext->mPrevious = mPrevious;
  }
  const auto known = gNames->find(mName);
  if (known != gNames->end() && known->second.expired()) {
    gNames->erase(known);
  }
}

bool NamedLock::lock() {
  if (mGate.isMine()) {
    ++mDepth;
    return mHoldsFile;
  }
  mGate.enter();
  mDepth = 1;
  watchThread();
  mHoldsFile = mFile.tryTake() || lockFile();
  return mHoldsFile;
}

bool NamedLock::unlock() {
  if (!mGate.isMine()) {
    return false;
  }
  if (--mDepth == 0) {
    giveBack();
  }
  return true;
}

void NamedLock::giveBack() {
  if (mHoldsFile && !mFile.tryGive() && !mFile.give()) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                          "%s: its file was overwritten while it was held, another process may have held it too\n",
                          mName.c_str());
  }
  mHoldsFile = false;
  mGate.leave();
}

bool NamedLock::lockFile() {
  Patience patience(mName);
  for (int repairs = 0;;) {
    bool repaired = false;
    int error = nameError();
    if (error == 0) {
      error = repairs < MAX_REPAIRS ? mFile.open(repaired) : EIO;
    }
    if (error != 0) {
      failed(error);
      return false;
    }
    mFailureLogged = false;
    std::uint32_t holder = 0;
    const LockFile::Attempt attempt = mFile.attempt(patience.hasWaited(), holder);
    // A repaired header alone has cost nobody the lock; but what has hit it may have hit the word, and been zeros
    // there.
    if (repaired || attempt == LockFile::Attempt::TAKEN_FROM_GARBAGE) {
      LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                            "%s: its file was overwritten or cut short and is repaired, two may hold it once\n",
                            mName.c_str());
    }
    switch (attempt) {
      case LockFile::Attempt::TAKEN_FROM_THE_DEAD:
        LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                              "%s: its holder (process %u) died, what it guards may be half written\n", mName.c_str(),
                              static_cast<unsigned>(holder));
        return true;
      case LockFile::Attempt::TAKEN:
      case LockFile::Attempt::TAKEN_FROM_GARBAGE:
        return true;
      case LockFile::Attempt::HELD:
        repairs = 0;
        patience.waitsFor(holder);
        mFile.wait(LOOK_INTERVAL);
        break;
      case LockFile::Attempt::CHANGED:
        repairs += repaired ? 1 : 0;
        break;
    }
  }
}

int NamedLock::nameError() const {
  if (mName.empty()) {
    return EINVAL;
  }
  return mName.size() > MAX_NAME_SIZE ? ENAMETOOLONG : 0;
}

void NamedLock::failed(int error) {
  mFile.close();
  if (mFailureLogged) {
    return;
  }
  mFailureLogged = true;
  LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                        "%s: no lock on its file (%s), other processes are not excluded\n", mName.c_str(),
                        ErrorText(error).get());
}

// Without a key, a lock whose thread ends stays held until the process does.
void NamedLock::makeThreadKey() {
  if (pthread_key_create(&gThreadKey, &NamedLock::threadEnds) != 0) {
    gThreadKey = NO_KEY;
  }
}

void NamedLock::watchThread() {
  if (pthread_getspecific(gThreadKey) == nullptr) {
    static_cast<void>(pthread_setspecific(gThreadKey, &gThreadKey));
  }
}

void NamedLock::threadEnds(void* /*key*/) {
  const std::lock_guard<std::mutex> guard(gMutex);
  for (NamedLock* lock = gLocks; lock != nullptr; lock = lock->mNext) {
    if (lock->mGate.isMine()) {
      LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                            "%s: a thread that held it has ended, what it guards may be half written\n",
                            lock->mName.c_str());
      lock->mDepth = 0;
      lock->giveBack();
    }
  }
}

void NamedLock::prepareFork() { gMutex.lock(); }

void NamedLock::parentAfterFork() { gMutex.unlock(); }

// Its file and its page are closed and unmapped by their own handlers.
void NamedLock::childAfterFork() {
  for (NamedLock* lock = gLocks; lock != nullptr; lock = lock->mNext) {
    lock->mDepth = 0;
    lock->mHoldsFile = false;
    lock->mGate.reset();
  }
  gMutex.unlock();
}
