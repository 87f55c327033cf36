// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SHAREDMEMORY_LMSHAREDMEMNOTIFIER_H
#define LMFRAMEWORK_SHAREDMEMORY_LMSHAREDMEMNOTIFIER_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

class LmObserver_;

/// Tells the processes of a unit that something in shared memory has changed.
///
/// What one process publishes, an id with up to 64 bytes, reaches every observer of that id in every
/// process, the publishing one included. All notifiers of a process share one delivery thread, which runs
/// while any observer is registered or being called; observers are called on it, one after the other, with no lock
/// held, messages in the order in which they were published. The thread has all signals blocked. What an
/// observer throws ends in a log line.
///
/// Messages stand in the ring "LmSharedMemNotifier" in the shared-memory folder. Nobody waits for a
/// reader: one that falls more than the ring's length of 256 messages behind loses the oldest, and a log line of its
/// process says how many. A process that is killed leaves the others working; what it was
/// publishing at that moment may be lost, or arrive up to a second late.
///
/// Publishers wait for each other, for two seconds in all at most: one that is stopped inside Publish() for a second is
/// passed by with a log line, and the ring is made anew, so that what a reader has not heard by then may be lost. When
/// it goes on it publishes in the new ring, which it may have to make anew once more. Threads of one process publish
/// one after the other, and fork() waits for whoever is publishing.
///
/// Whoever may open the ring, be it for reading only, can lock it whole. As long as somebody does, nothing can be
/// published by anybody: each Publish() returns false after those two seconds.
///
/// After fork() nothing is delivered in the child until it registers observers of its own. A child that an observer
/// forks ends, as by _exit(0), when it returns from the notification.
///
/// The ring belongs to everybody who may write it. Cut short, overwritten, removed or renamed, it is made anew by the
/// next publisher with one log line (without one when it was removed or renamed). What it held is then lost, as far as
/// it was not heard; later messages arrive, up to a second late. A message that is damaged in the ring is lost alone
/// and counts with those that the log tells of; nothing damaged is ever delivered, nor in another order.
class LM_FRAMEWORK_API LmSharedMemNotifier : private LmUncopyable {
 public:
  /// The longest message, in bytes.
  static constexpr unsigned MAX_DATA_SIZE = 64;

  /// The framework's interface has this flag; what it chooses is each framework's own. This port does
  /// the same for both values.
  explicit LmSharedMemNotifier(bool flag);

  /// Removes the observers that were added through this object, as RemoveObserver does.
  virtual ~LmSharedMemNotifier();

  /// Registers `observer`, which is borrowed, for the `count` ids at `ids`: it hears what is published from
  /// now on. Adding it again adds to its ids. Added through two notifiers, it hears a message twice.
  /// @return false, and nothing changes, when `observer` or `ids` is null, `count` is 0, or the delivery thread
  ///         cannot be started; the last with a log line. A ring that cannot be opened is no failure: one log
  ///         line, and it is tried again about once a second; all that it then holds is delivered.
  /// @throw std::bad_alloc and nothing changes.
  bool AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count);

  /// Removes `observer` from all its ids. When this returns it is not being called and never will be;
  /// only a call from inside one of its own notifications does not wait for that one to end. Calls of other observers
  /// are not waited for. So hold no lock here that the observer takes, and do not remove it from inside a call that the
  /// observer waits for, such as that of a subject's observer which it removes. Unknown observers are ignored.
  void RemoveObserver(LmObserver_* observer);

  /// Publishes a change. `data` may be null when `size` is 0. Does not wait for any delivery, and for other publishers
  /// for two seconds at most, as said above.
  /// @return false, with a log line, when `size` is over MAX_DATA_SIZE, `data` is null for another one than 0, or the
  ///         ring cannot be opened, locked or written.
  bool Publish(unsigned id, const void* data, unsigned size);
};

#endif
