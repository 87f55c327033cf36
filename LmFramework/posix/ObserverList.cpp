// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/ObserverList.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "LmFramework/LmObserver_.h"
#include "LmFramework/posix/ForkHandlers.h"

namespace {

// Protects all lists and what they are linked into. One for all, because fork() has to take it; it is held for a few
// steps only, and never while an observer is called. Its destructor is trivial: lists are used until the process ends.
std::mutex gMutex;

/// What one attachment listens to.
struct Interest {
  bool everyId;
  unsigned id;
  std::uint64_t from;
};

struct Attachment {
  LmObserver_* observer;
  const void* owner;
  std::uint64_t place;  // grows in the order of attachment
  std::vector<Interest> interests;

  bool hears(unsigned id, std::uint64_t sequence) const {
    return std::any_of(interests.begin(), interests.end(), [&](const Interest& interest) {
      return (interest.everyId || interest.id == id) && interest.from <= sequence;
    });
  }
};

void addInterest(std::vector<Interest>& interests, const Interest& wanted) {
  for (Interest& interest : interests) {
    if (interest.everyId == wanted.everyId && interest.id == wanted.id) {
      interest.from = std::min(interest.from, wanted.from);
      return;
    }
  }
  interests.push_back(wanted);
}

}  // namespace

struct ObserverList::State {
  State() {
    installForkHandlers();
    const std::lock_guard<std::mutex> guard(gMutex);
    next = first;
    if (next != nullptr) {
      next->previous = this;
    }
    first = this;
  }

  ~State() {
    const std::lock_guard<std::mutex> guard(gMutex);
    (previous != nullptr ? previous->next : first) = next;
    if (next != nullptr) {
      next->previous = previous;
    }
  }

  State(const State&) = delete;
  State& operator=(const State&) = delete;

  // The list of all lists, by which a forked child finds them.
  static State* first;
  State* next = nullptr;
  State* previous = nullptr;

  std::condition_variable callEnded;
  std::vector<Attachment> attachments;  // in the order of their places
  std::uint64_t nextPlace = 1;
  Call* calls = nullptr;  // those in progress, each in its caller's stack
  std::uint64_t nextCall = 0;

  void forgetOtherThreads();

  Attachment* find(const LmObserver_* observer, const void* owner) {
    const auto found = std::find_if(attachments.begin(), attachments.end(), [&](const Attachment& attachment) {
      return attachment.observer == observer && attachment.owner == owner;
    });
    return found == attachments.end() ? nullptr : &*found;
  }

  const Attachment* nextListener(std::uint64_t after, std::uint64_t before, unsigned id, std::uint64_t sequence) const {
    const auto found = std::find_if(attachments.begin(), attachments.end(), [&](const Attachment& attachment) {
      return attachment.place > after && attachment.place < before && attachment.hears(id, sequence);
    });
    return found == attachments.end() ? nullptr : &*found;
  }
};

/// One call of an observer, marked from construction to destruction, also when the observer throws.
class ObserverList::Call : private LmUncopyable {
 public:
  /// Called with the list's mutex held, which is given back for the length of the call.
  Call(ObserverList& list, std::unique_lock<std::mutex>& lock, const Attachment& attachment)
      : mObserver(attachment.observer),
        mOwner(attachment.owner),
        mState(list.mState),
        mLock(lock),
        mNumber(mState->nextCall++),
        mNext(mState->calls) {
    mState->calls = this;
    mLock.unlock();
  }

  ~Call() {
    mLock.lock();
    Call** link = &mState->calls;
    while (*link != this) {
      link = &(*link)->mNext;
    }
    *link = mNext;
    mState->callEnded.notify_all();
  }

  bool beganBefore(std::uint64_t number) const { return mNumber < number; }

  LmObserver_* const mObserver;
  const void* const mOwner;
  bool mDetaching = false;  // its thread waits in detach() for other calls of this observer

  Call* next() const { return mNext; }

  bool runsHere() const { return mThread == std::this_thread::get_id(); }

  static void dropOthers(Call** link) {
    while (*link != nullptr) {
      if ((*link)->runsHere()) {
        link = &(*link)->mNext;
      } else {
        *link = (*link)->mNext;
      }
    }
  }

 private:
  State* const mState;
  std::unique_lock<std::mutex>& mLock;
  const std::uint64_t mNumber;
  const std::thread::id mThread = std::this_thread::get_id();
  Call* mNext;
};

ObserverList::State* ObserverList::State::first = nullptr;

void ObserverList::State::forgetOtherThreads() {
  Call::dropOthers(&calls);
  new (&callEnded) std::condition_variable;  // the old one may count threads that are not here, and wait for them
}

ObserverList::ObserverList() : mState(new State) {}

ObserverList::~ObserverList() { delete mState; }

bool ObserverList::add(LmObserver_* observer, const unsigned* ids, unsigned count, const void* owner,
                       std::uint64_t from) {
  if (observer == nullptr || (ids == nullptr && count != 0)) {
    return false;
  }
  const std::lock_guard<std::mutex> guard(gMutex);
  Attachment* known = mState->find(observer, owner);
  std::vector<Interest> interests = known != nullptr ? known->interests : std::vector<Interest>();
  if (count == 0) {
    addInterest(interests, {true, 0, from});
  }
  for (unsigned i = 0; i < count; ++i) {
    addInterest(interests, {false, ids[i], from});
  }
  if (known != nullptr) {
    known->interests = std::move(interests);
  } else {
    mState->attachments.push_back({observer, owner, mState->nextPlace, std::move(interests)});
    ++mState->nextPlace;
  }
  return true;
}

void ObserverList::remove(LmObserver_* observer) {
  detach([observer](const LmObserver_* attached, const void*) { return attached == observer; });
}

void ObserverList::removeAll(const void* owner) {
  detach([owner](const LmObserver_*, const void* attachedBy) { return attachedBy == owner; });
}

template <class Match>
void ObserverList::detach(const Match& match) {
  State& state = *mState;
  std::unique_lock<std::mutex> lock(gMutex);
  const auto kept = std::remove_if(state.attachments.begin(), state.attachments.end(),
                                   [&](const Attachment& a) { return match(a.observer, a.owner); });
  state.attachments.erase(kept, state.attachments.end());

  const auto markOwnCalls = [&](bool detaching) {
    bool any = false;
    for (Call* call = state.calls; call != nullptr; call = call->next()) {
      if (call->runsHere() && match(call->mObserver, call->mOwner)) {
        call->mDetaching = detaching;
        any = true;
      }
    }
    state.callEnded.notify_all();
    return any;
  };
  const std::uint64_t before = state.nextCall;  // calls of an observer that is attached anew are not waited for
  // Only who is inside a call too may pass over another detaching one: that one waits for ours.
  const bool isInside = markOwnCalls(true);
  const auto holdsUp = [&](const Call& call) {
    return call.beganBefore(before) && !call.runsHere() && !(isInside && call.mDetaching) &&
           match(call.mObserver, call.mOwner);
  };
  state.callEnded.wait(lock, [&] {
    for (const Call* call = state.calls; call != nullptr; call = call->next()) {
      if (holdsUp(*call)) {
        return false;
      }
    }
    return true;
  });
  markOwnCalls(false);
}

void ObserverList::notify(unsigned id, void* data, unsigned size, std::uint64_t sequence) {
  State& state = *mState;
  std::exception_ptr thrown;
  std::unique_lock<std::mutex> lock(gMutex);
  const std::uint64_t end = state.nextPlace;
  std::uint64_t place = 0;
  while (const Attachment* attachment = state.nextListener(place, end, id, sequence)) {
    place = attachment->place;
    try {
      const Call call(*this, lock, *attachment);
      call.mObserver->Update(id, data, size);
    } catch (...) {
      const std::exception_ptr current = std::current_exception();
      if (current == nullptr) {
        throw;  // not the language's own: the thread is being ended, which cannot be put off
      }
      if (thrown == nullptr) {
        thrown = current;
      }
    }
  }
  lock.unlock();
  if (thrown != nullptr) {
    std::rethrow_exception(thrown);
  }
}

bool ObserverList::empty() const {
  const std::lock_guard<std::mutex> guard(gMutex);
  return mState->attachments.empty();
}

bool ObserverList::idle() const {
  const std::lock_guard<std::mutex> guard(gMutex);
  return mState->attachments.empty() && mState->calls == nullptr;
}

void ObserverList::clear() noexcept {
  const std::lock_guard<std::mutex> guard(gMutex);
  mState->attachments.clear();
}

void ObserverList::prepareFork() { gMutex.lock(); }

void ObserverList::parentAfterFork() { gMutex.unlock(); }

void ObserverList::childAfterFork() {
  for (State* state = State::first; state != nullptr; state = state->next) {
    state->forgetOtherThreads();
  }
  gMutex.unlock();
}
