// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/ObserverList.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "LmFramework/LmObserver_.h"

namespace {

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
  std::mutex mutex;  // protects everything below; never held while an observer is called
  std::condition_variable callEnded;
  std::vector<Attachment> attachments;  // in the order of their places
  std::uint64_t nextPlace = 1;
  Call* calls = nullptr;  // those in progress, each in its caller's stack
  std::uint64_t nextCall = 0;
  const State* abandoned = nullptr;  // by a forked child; never destroyed, its condition variable may have waiters

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
        mList(list),
        mState(list.mState),
        mLock(lock),
        mNumber(mState->nextCall++),
        mNext(mState->calls) {
    mState->calls = this;
    mLock.unlock();
  }

  ~Call() {
    if (abandoned()) {
      return;
    }
    mLock.lock();
    Call** link = &mState->calls;
    while (*link != this) {
      link = &(*link)->mNext;
    }
    *link = mNext;
    mState->callEnded.notify_all();
  }

  /// True in a forked child whose list was emptied during the call: the old state's mutex may be held for ever.
  bool abandoned() const { return mList.mState != mState; }

  static bool runsElsewhere(const Call& call, std::uint64_t before) {
    return call.mNumber < before && !call.mDetaching && call.mThread != std::this_thread::get_id();
  }

  LmObserver_* const mObserver;
  const void* const mOwner;
  bool mDetaching = false;  // its thread waits in detach() for other calls of this observer

  Call* next() const { return mNext; }

  bool runsHere() const { return mThread == std::this_thread::get_id(); }

 private:
  ObserverList& mList;
  State* const mState;
  std::unique_lock<std::mutex>& mLock;
  const std::uint64_t mNumber;
  const std::thread::id mThread = std::this_thread::get_id();
  Call* mNext;
};

ObserverList::ObserverList() : mState(new State) {}

ObserverList::~ObserverList() { delete mState; }

bool ObserverList::add(LmObserver_* observer, const unsigned* ids, unsigned count, const void* owner,
                       std::uint64_t from) {
  if (observer == nullptr || (ids == nullptr && count != 0)) {
    return false;
  }
  std::lock_guard<std::mutex> guard(mState->mutex);
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
  std::unique_lock<std::mutex> lock(state.mutex);
  const auto kept = std::remove_if(state.attachments.begin(), state.attachments.end(),
                                   [&](const Attachment& a) { return match(a.observer, a.owner); });
  state.attachments.erase(kept, state.attachments.end());

  const auto markOwnCalls = [&](bool detaching) {
    for (Call* call = state.calls; call != nullptr; call = call->next()) {
      if (call->runsHere() && match(call->mObserver, call->mOwner)) {
        call->mDetaching = detaching;
      }
    }
    state.callEnded.notify_all();
  };
  const std::uint64_t before = state.nextCall;  // calls of an observer that is attached anew are not waited for
  markOwnCalls(true);
  state.callEnded.wait(lock, [&] {
    for (const Call* call = state.calls; call != nullptr; call = call->next()) {
      if (Call::runsElsewhere(*call, before) && match(call->mObserver, call->mOwner)) {
        return false;
      }
    }
    return true;
  });
  markOwnCalls(false);
}

void ObserverList::notify(unsigned id, void* data, unsigned size, std::uint64_t sequence) {
  State& state = *mState;
  std::unique_lock<std::mutex> lock(state.mutex);
  const std::uint64_t end = state.nextPlace;
  std::uint64_t place = 0;
  while (const Attachment* attachment = state.nextListener(place, end, id, sequence)) {
    place = attachment->place;
    {
      const Call call(*this, lock, *attachment);
      call.mObserver->Update(id, data, size);
    }
    if (!lock.owns_lock()) {
      return;  // in a forked child: this list is another one now
    }
  }
}

bool ObserverList::empty() const {
  std::lock_guard<std::mutex> guard(mState->mutex);
  return mState->attachments.empty();
}

void ObserverList::resetAfterFork() noexcept {
  State* const fresh = new (std::nothrow) State;
  if (fresh == nullptr) {
    std::terminate();  // the child could neither use the list nor leave it alone
  }
  fresh->abandoned = mState;
  mState = fresh;
}
