// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_OBSERVERLIST_H
#define LMFRAMEWORK_POSIX_OBSERVERLIST_H

#include <cstdint>

#include "LmFramework/LmUncopyable.h"

class LmObserver_;

/// The observers of a subject or of the process's notifications, and the calls of them in progress.
///
/// Any thread may call anything here, from inside an observer too. No lock is held while an observer is called.
/// Observers are borrowed.
///
/// A forked child has every list as it was, without the calls of the threads that it does not have.
class ObserverList : private LmUncopyable {
 public:
  ObserverList();

  /// No thread may be inside.
  ~ObserverList();

  /// Attaches `observer` to `count` ids; a `count` of 0 attaches it to every id. Attached again with the same `owner`,
  /// it keeps its place and adds to its ids; with another owner it is called once for each.
  /// @param owner  whoever removes it together with others, see removeAll
  /// @param from   it hears only notifications of this sequence number and later ones
  /// @return false, and nothing changes, when `observer` is null, or `ids` is null and `count` is not 0.
  /// @throw std::bad_alloc and nothing changes.
  bool add(LmObserver_* observer, const unsigned* ids, unsigned count, const void* owner = nullptr,
           std::uint64_t from = 0);

  /// Detaches `observer`, whoever its owners are, and waits until no other thread is inside it. Calls by the
  /// calling thread itself are not waited for. When there is one, calls whose thread is waiting here for the same
  /// observer are not waited for either: two notifications of one observer that both detach it do not wait for each
  /// other. Two observers that detach each other from inside their calls on two threads do, for ever.
  void remove(LmObserver_* observer);

  /// The same for all observers that `owner` added; attachments by other owners stay.
  void removeAll(const void* owner);

  /// Calls the observers of `id` one after the other in the order in which they were attached: those that are attached
  /// when it begins, without those that are detached meanwhile.
  /// @throw what the first observer threw that did, after the others have been called all the same
  void notify(unsigned id, void* data, unsigned size, std::uint64_t sequence = UINT64_MAX);

  bool empty() const;

  /// True when nobody is attached and no call is in progress: none will be, until somebody is attached.
  bool idle() const;

  /// Detaches everybody without waiting for anything; meant for a forked child, which starts anew. A notification that
  /// was going on ends after the present observer.
  void clear() noexcept;

  // For the fork handlers: no list changes between the first call and one of the others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  struct State;
  class Call;
  template <class Match>
  void detach(const Match& match);

  State* const mState;
};

#endif
