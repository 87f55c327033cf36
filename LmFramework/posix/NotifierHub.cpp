// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/NotifierHub.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <new>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/posix/ForkHandlers.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

constexpr char FILE_TEXT[] = "LmFramework/posix/NotifierHub";
constexpr int TAG = 1;
// How late a message may be whose publisher died before it woke anybody, or whose ring replaced ours.
constexpr std::chrono::milliseconds SAFETY_TIMEOUT{1000};
// A wake that comes between the thread's last look and its wait is lost, so it is repeated.
constexpr std::chrono::milliseconds WAKE_INTERVAL{1};
// More messages than any generation of the ring can have: a million a second for twelve days.
constexpr std::uint64_t BASE_STEP = std::uint64_t{1} << 40;

thread_local bool tIsDeliveryThread = false;

// Signals are for the threads of the program that the library is in; but for the one that an observer may cause by
// using a lock whose file was cut off (LockPage.h).
class AllSignalsBlocked : private LmUncopyable {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    sigdelset(&all, SIGBUS);
    pthread_sigmask(SIG_SETMASK, &all, &mFormer);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mFormer, nullptr); }

 private:
  sigset_t mFormer;
};

}  // namespace

std::mutex NotifierHub::sMutex;
std::mutex NotifierHub::sPublishing;
NotifierHub* NotifierHub::sHub = nullptr;

NotifierHub& NotifierHub::instance() {
  installForkHandlers();
  const Lock lock(sMutex);
  if (sHub == nullptr) {
    sHub = new NotifierHub;
  }
  return *sHub;
}

NotifierHub::NotifierHub() = default;

bool NotifierHub::addObserver(const void* owner, LmObserver_* observer, const unsigned* ids, unsigned count) {
  if (observer == nullptr || ids == nullptr || count == 0) {
    return false;
  }
  Lock lock(sMutex);
  NotifierRing::Position position;
  for (std::uint64_t entered = mEntered + 1; entered != mEntered;) {
    entered = mEntered;
    lock.unlock();
    position = currentPosition();
    lock.lock();  // the position is worth nothing if the thread went on to another generation meanwhile
  }
  mObservers.add(observer, ids, count, owner, startOf(position));
  if (mRunning || startThread(position)) {
    return true;
  }
  lock.unlock();
  mObservers.remove(observer);  // without the thread it was the only one
  LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "the delivery thread cannot be started\n");
  return false;
}

// Where a message would go that is published now. Generation 0 when that is not known: there is no whole ring, and
// all that the next one brings is new.
NotifierRing::Position NotifierHub::currentPosition() {
  NotifierRing ring;
  if (ring.open() != 0) {
    return {};
  }
  const NotifierRing::Head head = ring.head();
  return head.valid ? head.position : NotifierRing::Position{};
}

std::uint64_t NotifierHub::startOf(const NotifierRing::Position& position) {
  if (mRunning && position.generation != 0 && position.generation == mGeneration) {
    return mBase + position.sequence;
  }
  if (mAwaitedBase <= mBase || position.generation != mAwaitedGeneration) {
    mLastBase += BASE_STEP;
    mAwaitedBase = mLastBase;
    mAwaitedGeneration = position.generation;
  }
  return mAwaitedBase + position.sequence;
}

bool NotifierHub::startThread(const NotifierRing::Position& position) {
  if (mJoinable) {  // whoever was to join it has not come yet, and will now find nothing to do
    mJoinable = false;
    pthread_detach(mEndedThread);
  }
  mGeneration = 0;
  mCursor = position;
  mLost = 0;
  mFailureLogged = false;
  const AllSignalsBlocked blocked;
  mRunning = pthread_create(&mThread, nullptr, &NotifierHub::runThread, this) == 0;
  return mRunning;
}

void NotifierHub::removeObserver(LmObserver_* observer) {
  mObservers.remove(observer);
  endThreadIfIdle();
}

void NotifierHub::removeAll(const void* owner) {
  mObservers.removeAll(owner);
  endThreadIfIdle();
}

void NotifierHub::endThreadIfIdle() {
  if (tIsDeliveryThread) {
    return;  // it finds out by itself
  }
  Lock lock(sMutex);
  ++mEnders;
  // Not idle, it may be inside an observer whose removal is none of the caller's: the caller may hold what that one
  // waits for.
  while (mRunning && mObservers.idle()) {
    mRing.wake();
    mChanged.notify_all();
    mChanged.wait_for(lock, WAKE_INTERVAL);
  }
  --mEnders;
  if (!mJoinable) {
    return;
  }
  mJoinable = false;
  const pthread_t ended = mEndedThread;
  lock.unlock();
  pthread_join(ended, nullptr);
}

bool NotifierHub::publish(unsigned id, const void* data, unsigned size) {
  if (size > NotifierRingSlot::DATA_SIZE || (data == nullptr && size != 0)) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "id %u: a message of %u bytes is refused\n", id, size);
    return false;
  }
  NotifierRing::Repairs repairs;
  Lock lock(sPublishing);
  const int error = mPublishingRing.publish(id, data, size, repairs);
  lock.unlock();
  if (repairs.passedBy) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                          "who publishes in %s stands still, it is made anew, messages may be lost\n",
                          NotifierRing::NAME);
  }
  if (repairs.madeAnew) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG,
                          "%s was not intact and is made anew, messages may be lost\n", NotifierRing::NAME);
  }
  if (error != 0) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "id %u: cannot be published in %s (%s)\n", id,
                          NotifierRing::NAME, ErrorText(error).get());
  }
  return error == 0;
}

void* NotifierHub::runThread(void* hub) {
  tIsDeliveryThread = true;
  static_cast<NotifierHub*>(hub)->deliver();
  if (!tIsDeliveryThread) {
    _exit(0);  // a child that an observer forked: it has no other thread, and the exit handlers are its parent's
  }
  return nullptr;
}

void NotifierHub::deliver() {
  while (!endIfIdle()) {
    if (openRing()) {
      drain();
    }
    wait();
  }
}

// True also for a child that an observer forked and that comes back here: it has no observers.
bool NotifierHub::endIfIdle() {
  const Lock lock(sMutex);
  if (!tIsDeliveryThread) {
    return true;
  }
  if (!mObservers.empty()) {
    return false;
  }
  mRing.close();
  mRunning = false;
  if (mEnders == 0) {
    pthread_detach(mThread);
  } else {
    mJoinable = true;
    mEndedThread = mThread;
  }
  mChanged.notify_all();
  return true;
}

bool NotifierHub::openRing() {
  const int error = mRing.open();
  if (error == 0) {
    mFailureLogged = false;
    return true;
  }
  if (!mFailureLogged) {
    mFailureLogged = true;
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "%s cannot be opened (%s), nothing is delivered\n",
                          NotifierRing::NAME, ErrorText(error).get());
  }
  return false;
}

void NotifierHub::drain() {
  for (;;) {
    mHead = mRing.head();
    if (!mHead.valid) {
      break;  // the next publisher makes it anew
    }
    if (mHead.position.generation != mGeneration) {
      enterGeneration(mHead);
    }
    skipOverwritten(mHead);
    if (mCursor.sequence == mHead.position.sequence) {
      break;
    }
    NotifierRingSlot message = {};
    if (mRing.read(mCursor, message)) {
      ++mCursor.sequence;
      reportLost();
      if (!dispatch(message)) {
        return;
      }
    } else if (mHead.position.sequence == mRing.head().position.sequence) {
      ++mCursor.sequence;  // not just overtaken: it is damaged
      ++mLost;
    }
  }
  reportLost();
}

void NotifierHub::enterGeneration(const NotifierRing::Head& head) {
  const Lock lock(sMutex);
  const bool isFirst = mGeneration == 0;
  mGeneration = head.position.generation;
  ++mEntered;
  if (mAwaitedBase > mBase && mAwaitedGeneration == mGeneration) {
    mBase = mAwaitedBase;
  } else {
    mLastBase += BASE_STEP;
    mBase = mLastBase;
  }
  if (mCursor.generation == mGeneration) {
    return;
  }
  // All that a ring holds which came after ours is new. When we have not had one, no count of lost ones would mean
  // anything.
  const bool hadNone = isFirst && mCursor.generation == 0;
  const std::uint64_t newest = head.position.sequence;
  mCursor = {mGeneration, hadNone && newest > NotifierRing::SLOT_COUNT ? newest - NotifierRing::SLOT_COUNT : 0};
}

void NotifierHub::skipOverwritten(const NotifierRing::Head& head) {
  const std::uint64_t newest = head.position.sequence;
  if (mCursor.sequence > newest) {
    mCursor.sequence = newest;
  }
  if (newest - mCursor.sequence > NotifierRing::SLOT_COUNT) {
    mLost += newest - NotifierRing::SLOT_COUNT - mCursor.sequence;
    mCursor.sequence = newest - NotifierRing::SLOT_COUNT;
  }
}

void NotifierHub::reportLost() {
  if (mLost == 0) {
    return;
  }
  LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "%llu messages lost, the observers were too slow\n", mLost);
  mLost = 0;
}

// False when there is nobody to deliver to any more.
bool NotifierHub::dispatch(const NotifierRingSlot& message) {
  alignas(std::max_align_t) unsigned char data[NotifierRingSlot::DATA_SIZE];
  std::memcpy(data, message.data, sizeof data);
  try {
    mObservers.notify(message.id, message.size != 0 ? data : nullptr, message.size, mBase + message.sequence);
  } catch (const std::exception& thrown) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "an observer of id %u threw: %s\n", message.id,
                          thrown.what());
  } catch (...) {
    LmDbgOutput::DbgPrint(FILE_TEXT, __func__, __LINE__, TAG, "an observer of id %u threw\n", message.id);
  }
  return tIsDeliveryThread && !mObservers.empty();
}

void NotifierHub::wait() {
  {
    Lock lock(sMutex);
    if (!tIsDeliveryThread || mObservers.empty()) {
      return;
    }
  }
  if (mRing.wait(mHead.word, SAFETY_TIMEOUT)) {
    return;
  }
  Lock lock(sMutex);
  mChanged.wait_for(lock, SAFETY_TIMEOUT, [this] { return mObservers.empty(); });
}

void NotifierHub::prepareFork() {
  sPublishing.lock();
  sMutex.lock();
}

void NotifierHub::parentAfterFork() {
  sMutex.unlock();
  sPublishing.unlock();
}

void NotifierHub::childAfterFork() {
  if (sHub != nullptr) {
    sHub->forgetAfterFork();
  }
  sMutex.unlock();
  sPublishing.unlock();
}

void NotifierHub::forgetAfterFork() {
  tIsDeliveryThread = false;
  mObservers.clear();
  mRunning = false;
  mJoinable = false;
  mEnders = 0;
  mRing.close();
  mPublishingRing.close();
  new (&mChanged) std::condition_variable;  // the old one may count threads that are not here
}
