// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/NamedLock.h"

#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/posix/ForkHandlers.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

constexpr char FILE_TEXT[] = "LmFramework/posix/NamedLock";
constexpr int TAG = 1;
constexpr std::size_t MAX_NAME_SIZE = 200;
// How often the file may be removed between opening and locking it before that counts as a failure.
constexpr int MAX_ATTEMPTS = 100;
// With this a new file is made: nobody holds it.
const std::uint32_t NOT_HELD = 0;

using Names = std::map<std::string, std::weak_ptr<NamedLock>>;

// One mutex for all names: it is held for a few instructions only, never while anybody waits or a
// file is touched, and fork() has one to take instead of many.
std::mutex gMutex;
NamedLock* gLocks = nullptr;
Names* gNames = nullptr;  // never deleted: a lock may be used while the process exits

}  // namespace

std::shared_ptr<NamedLock> NamedLock::get(const std::string& name) {
  installForkHandlers();
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
  const std::thread::id self = std::this_thread::get_id();
  {
    std::unique_lock<std::mutex> guard(gMutex);
    if (mOwner == self) {
      ++mDepth;
      return mHoldsFile;
    }
    mReleased.wait(guard, [this] { return mOwner == std::thread::id(); });
    mOwner = self;
    mDepth = 1;
  }
  mHoldsFile = lockFile();
  return mHoldsFile;
}

bool NamedLock::unlock() {
  {
    std::lock_guard<std::mutex> guard(gMutex);
    if (mOwner != std::this_thread::get_id()) {
      return false;
    }
    if (mDepth > 1) {
      --mDepth;
      return true;
    }
  }
  if (mHoldsFile) {
    unlockFile();
  }
  std::lock_guard<std::mutex> guard(gMutex);
  mOwner = std::thread::id();
  mDepth = 0;
  mReleased.notify_one();
  return true;
}

bool NamedLock::lockFile() {
  const int error = openAndLock();
  if (error == 0) {
    mFailureLogged = false;
    noteHolder();
    return true;
  }
  mFile.close();
  if (!mFailureLogged) {
    mFailureLogged = true;
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                          "%s: no lock on its file (%s), other processes are not excluded\n", mName.c_str(),
                          ErrorText(error).get());
  }
  return false;
}

int NamedLock::openAndLock() {
  if (mName.empty() || mName.size() > MAX_NAME_SIZE) {
    return mName.empty() ? EINVAL : ENAMETOOLONG;
  }
  for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
    const int error = mFile.open({&NOT_HELD, sizeof NOT_HELD, sizeof NOT_HELD});
    if (error != 0) {
      return error;
    }
    if (retryInterrupted([this] { return flock(mFile.descriptor(), LOCK_EX); }) != 0) {
      return errno;
    }
    if (mFile.isCurrent()) {
      return 0;
    }
    mFile.close();  // removed meanwhile: whoever comes next locks another file
  }
  return ESTALE;
}

void NamedLock::unlockFile() {
  // Neither can be helped when it fails: the next holder logs a death too many, or closing the file gives the
  // lock back.
  static_cast<void>(mFile.write(0, &NOT_HELD, sizeof NOT_HELD));
  static_cast<void>(retryInterrupted([this] { return flock(mFile.descriptor(), LOCK_UN); }));
}

void NamedLock::noteHolder() {
  std::uint32_t former = NOT_HELD;
  if (mFile.read(0, &former, sizeof former) && former != NOT_HELD) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                          "%s: its holder (process %u) died, what it guards may be half written\n", mName.c_str(),
                          static_cast<unsigned>(former));
  }
  const auto holder = static_cast<std::uint32_t>(getpid());
  static_cast<void>(mFile.write(0, &holder, sizeof holder));  // costs no more than the line above, should we die
}

void NamedLock::prepareFork() { gMutex.lock(); }

void NamedLock::parentAfterFork() { gMutex.unlock(); }

void NamedLock::childAfterFork() {
  for (NamedLock* lock = gLocks; lock != nullptr; lock = lock->mNext) {
    lock->mOwner = std::thread::id();
    lock->mDepth = 0;
    lock->mHoldsFile = false;
    new (&lock->mReleased) std::condition_variable;  // the old one may count threads that are not here
  }
  gMutex.unlock();
}
