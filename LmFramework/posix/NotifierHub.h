// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_NOTIFIERHUB_H
#define LMFRAMEWORK_POSIX_NOTIFIERHUB_H

#include <pthread.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/NotifierRing.h"
#include "LmFramework/posix/ObserverList.h"

class LmObserver_;

/// What all notifiers of a process share: its observers, the one thread that calls them, and the ring.
///
/// The thread runs from the first observer to the last; whoever removes that one ends and joins it. While it is still
/// inside some observer's call nobody waits for it, and it ends by itself after that. It takes no lock of the ring, so
/// it waits for no other process.
///
/// Sequence numbers of the ring start again with each of its generations. Observers are filed under a number of
/// this process's own that only grows: each generation has its base, more than every number before it.
///
/// Never destroyed: notifiers may be, while the process exits.
class NotifierHub : private LmUncopyable {
 public:
  /// @throw std::bad_alloc
  static NotifierHub& instance();

  // As LmSharedMemNotifier, which says what they promise; `owner` is the notifier.
  bool addObserver(const void* owner, LmObserver_* observer, const unsigned* ids, unsigned count);
  void removeObserver(LmObserver_* observer);
  void removeAll(const void* owner);
  bool publish(unsigned id, const void* data, unsigned size);

  // For the fork handlers: the state under the hub's mutex does not change between the first call and one of the
  // others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  using Lock = std::unique_lock<std::mutex>;

  // The hub's mutex: it outlives everything, and fork() can take it before there is a hub.
  static std::mutex sMutex;
  static NotifierHub* sHub;  // guarded by sMutex, as is the first group of members below

  // Between the threads that publish; taken before sMutex where both are.
  static std::mutex sPublishing;

  NotifierHub();

  NotifierRing::Position currentPosition();
  std::uint64_t startOf(const NotifierRing::Position& position);
  bool startThread(const NotifierRing::Position& position);
  void endThreadIfIdle();

  static void* runThread(void* hub);
  void deliver();
  bool endIfIdle();
  bool openRing();
  void drain();
  void enterGeneration(const NotifierRing::Head& head);
  void skipOverwritten(const NotifierRing::Head& head);
  void reportLost();
  bool dispatch(const NotifierRingSlot& message);
  void wait();
  void forgetAfterFork();

  ObserverList mObservers;

  std::condition_variable mChanged;
  // Guarded by sMutex.
  bool mRunning = false;
  pthread_t mThread = {};
  unsigned mEnders = 0;    // threads that wait for the delivery thread's end
  bool mJoinable = false;  // it has ended, and one of them has to join mEndedThread
  pthread_t mEndedThread = {};
  std::uint64_t mGeneration = 0;         // of the ring, as the thread last saw it; 0 before that
  std::uint64_t mEntered = 0;            // generations entered so far
  std::uint64_t mBase = 0;               // of mGeneration
  std::uint64_t mLastBase = 0;           // the greatest one given out
  std::uint64_t mAwaitedGeneration = 0;  // one that an observer has seen before the thread
  std::uint64_t mAwaitedBase = 0;

  // The delivery thread's alone; while there is none, whoever starts it.
  NotifierRing mRing;
  NotifierRing::Position mCursor;  // the next message to deliver
  NotifierRing::Head mHead;
  unsigned long long mLost = 0;
  bool mFailureLogged = false;

  NotifierRing mPublishingRing;  // guarded by sPublishing
};

#endif
