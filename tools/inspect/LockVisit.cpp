// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/LockVisit.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "LmFramework/posix/Futex.h"
#include "LmFramework/posix/LockFile.h"
#include "tools/inspect/LockView.h"

namespace idl::tools {

namespace {

constexpr std::chrono::microseconds PAUSE{200};

}  // namespace

LockVisit::LockVisit(const std::string& name, std::chrono::milliseconds patience) {
  holdSignals();
  mIsHeld = open(name) && takeByte() && take(patience);
  if (!mIsHeld) {
    leave();
  }
}

LockVisit::~LockVisit() {
  if (mIsHeld) {
    mPage.get()->processes[LockWord::slotOf(mMine)].store(mFormerProcess, std::memory_order_relaxed);
    std::atomic<std::uint32_t>& word = mPage.get()->word;
    std::uint32_t seen = word.load(std::memory_order_relaxed);
    while ((seen & ~LockWord::WAITERS) == mMine) {
      if (word.compare_exchange_weak(seen, LockWord::FREE, std::memory_order_release, std::memory_order_relaxed)) {
        SharedFutex::wake(word, 1);
        break;
      }
    }
  }
  if (mIsHeld) {
    leave();
  }
}

// Those that a fault of the process's own raises have to come at once.
void LockVisit::holdSignals() {
  sigset_t all;
  sigfillset(&all);
  for (const int fault : {SIGBUS, SIGSEGV, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
    sigdelset(&all, fault);
  }
  pthread_sigmask(SIG_BLOCK, &all, &mFormerSignals);
}

void LockVisit::leave() {
  mPage.unmap();
  if (mDescriptor != -1) {
    ::close(mDescriptor);
    mDescriptor = -1;
  }
  pthread_sigmask(SIG_SETMASK, &mFormerSignals, nullptr);
}

bool LockVisit::isAwaited() const {
  return mIsHeld && mPage.get()->word.load(std::memory_order_relaxed) == (mMine | LockWord::WAITERS);
}

bool LockVisit::open(const std::string& name) {
  mDescriptor = shm_open(('/' + lockObjectOf(name)).c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW, 0);
  struct stat status = {};
  return mDescriptor != -1 && fstat(mDescriptor, &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size >= static_cast<off_t>(LockFile::FILE_SIZE) && mPage.map(mDescriptor) == 0 &&
         LockFile::headerOf(*mPage.get()) == LockFile::Header::INTACT;
}

// From the last slot down: those who use the lock every day look from the first. The byte that the word names is left
// alone, be its process alive or dead: who gets a dead holder's byte has to take the lock over.
bool LockVisit::takeByte() {
  const std::uint32_t word = mPage.get()->word.load(std::memory_order_relaxed);
  const unsigned named = LockWord::isHeld(word) ? LockWord::slotOf(word) : 0;
  for (unsigned slot = LockWord::SLOTS; slot > 0; --slot) {
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(slot);
    range.l_len = 1;
    if (slot == named || fcntl(mDescriptor, F_OFD_SETLK, &range) != 0) {
      continue;
    }
    mMine = LockWord::heldBy(slot);
    // Its process may have taken the lock and died since.
    return (mPage.get()->word.load(std::memory_order_relaxed) & ~LockWord::WAITERS) != mMine;
  }
  return false;
}

bool LockVisit::take(std::chrono::milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    std::uint32_t seen = LockWord::FREE;
    if (mPage.get()->word.compare_exchange_strong(seen, mMine, std::memory_order_acquire, std::memory_order_relaxed)) {
      mFormerProcess = mPage.get()->processes[LockWord::slotOf(mMine)].exchange(static_cast<std::uint32_t>(getpid()),
                                                                                std::memory_order_relaxed);
      return !mPage.isLost();
    }
    if (!LockWord::isHeld(seen) || std::chrono::steady_clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(PAUSE);
  }
}

}  // namespace idl::tools
