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
  /// calling thread itself are not waited for, nor are those whose thread is waiting here for the same observer: two
  /// notifications of one observer that both detach it do not wait for each other.
  void remove(LmObserver_* observer);

  /// The same for all observers that `owner` added; attachments by other owners stay.
  void removeAll(const void* owner);

  /// Calls the observers of `id` one after the other in the order in which they were attached: those that are attached
  /// when it begins, without those that are detached meanwhile. Allocates nothing.
  /// @throw whatever an observer throws; the rest are not called then.
  void notify(unsigned id, void* data, unsigned size, std::uint64_t sequence = UINT64_MAX);

  bool empty() const;

  /// Empties the list in a forked child, whatever threads of the parent were doing with it. The only thread of
  /// the child calls this, before anything else here. A notification that was going on in that very thread ends after
  /// the present observer. What the list held is kept, unused: another thread may have been changing it.
  void resetAfterFork() noexcept;

 private:
  struct State;
  class Call;
  template <class Match>
  void detach(const Match& match);

  State* mState;
};

#endif
