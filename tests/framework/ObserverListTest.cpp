// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LmFramework/LmObserver_.h"
#include "LmFramework/posix/ObserverList.h"
#include "support/ChildProcess.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// Does what it is told.
class Scripted : public LmObserver_ {
 public:
  explicit Scripted(std::function<void(unsigned)> script) : mScript(std::move(script)) {}

  unsigned Update(unsigned id, void*, unsigned) override {
    mScript(id);
    return 0;
  }

 private:
  const std::function<void(unsigned)> mScript;
};

/// Stays inside its call until it is let go.
class Blocking : public LmObserver_ {
 public:
  unsigned Update(unsigned, void*, unsigned) override {
    entered.set_value();
    mRelease.get_future().wait();
    left = true;
    return 0;
  }

  void release() { mRelease.set_value(); }

  std::promise<void> entered;
  std::atomic<bool> left{false};

 private:
  std::promise<void> mRelease;
};

struct AnObserverList : testing::Test {
  Scripted named(const std::string& name) {
    return Scripted([this, name](unsigned) { called.push_back(name); });
  }

  void notify(unsigned id = 6, std::uint64_t sequence = UINT64_MAX) { list.notify(id, nullptr, 0, sequence); }

  ObserverList list;
  std::vector<std::string> called;
};

TEST_F(AnObserverList, IsEmptyUntilSomebodyIsAttached) {
  Scripted a = named("a");
  EXPECT_TRUE(list.empty());

  list.add(&a, nullptr, 0);
  EXPECT_FALSE(list.empty());
  list.remove(&a);

  EXPECT_TRUE(list.empty());
}

TEST_F(AnObserverList, CallsInTheOrderOfAttachment) {
  Scripted a = named("a");
  Scripted b = named("b");
  Scripted c = named("c");
  list.add(&b, nullptr, 0);
  list.add(&a, nullptr, 0);
  list.add(&c, nullptr, 0);
  list.add(&b, nullptr, 0);  // keeps its place

  notify();

  EXPECT_THAT(called, ElementsAre("b", "a", "c"));
}

TEST_F(AnObserverList, PutsWhoeverIsAttachedAnewLast) {
  Scripted a = named("a");
  Scripted b = named("b");
  list.add(&a, nullptr, 0);
  list.add(&b, nullptr, 0);
  list.remove(&a);
  list.add(&a, nullptr, 0);

  notify();

  EXPECT_THAT(called, ElementsAre("b", "a"));
}

TEST_F(AnObserverList, KeepsEveryIdWhenSingleOnesAreAdded) {
  Scripted a = named("a");
  const unsigned id = 7;
  list.add(&a, nullptr, 0);
  list.add(&a, &id, 1);

  notify(7);
  notify(8);

  EXPECT_THAT(called, ElementsAre("a", "a"));
}

TEST_F(AnObserverList, SkipsWhatIsOlderThanTheAttachment) {
  Scripted a = named("a");
  const unsigned ids[] = {6, 7};
  list.add(&a, &ids[0], 1, nullptr, 10);
  list.add(&a, ids, 2, nullptr, 20);  // 6 has been heard from 10 on already

  notify(6, 9);
  EXPECT_THAT(called, IsEmpty());
  notify(6, 10);
  EXPECT_THAT(called, ElementsAre("a"));
  notify(7, 19);
  EXPECT_THAT(called, ElementsAre("a"));
  notify(7, 20);
  EXPECT_THAT(called, ElementsAre("a", "a"));
}

TEST_F(AnObserverList, RemovesByOwner) {
  Scripted a = named("a");
  Scripted b = named("b");
  const int owners[2] = {};
  list.add(&a, nullptr, 0, &owners[0]);
  list.add(&a, nullptr, 0, &owners[1]);
  list.add(&b, nullptr, 0, &owners[0]);

  list.removeAll(&owners[0]);
  notify();
  EXPECT_THAT(called, ElementsAre("a"));

  list.remove(&a);
  EXPECT_TRUE(list.empty());
}

TEST_F(AnObserverList, MayBeChangedFromInsideACall) {
  Scripted late = named("late");
  Scripted victim = named("victim");
  Scripted changer([&](unsigned) {
    called.emplace_back("changer");
    list.remove(&victim);
    list.add(&late, nullptr, 0);
  });
  list.add(&changer, nullptr, 0);
  list.add(&victim, nullptr, 0);

  notify();
  EXPECT_THAT(called, ElementsAre("changer"));
  notify();

  EXPECT_THAT(called, ElementsAre("changer", "changer", "late"));
}

TEST_F(AnObserverList, LetsAnObserverRemoveItself) {
  Scripted* itself = nullptr;
  Scripted once([&](unsigned) {
    called.emplace_back("once");
    list.remove(itself);
  });
  itself = &once;
  Scripted next = named("next");
  list.add(&once, nullptr, 0);
  list.add(&next, nullptr, 0);

  notify();
  notify();

  EXPECT_THAT(called, ElementsAre("once", "next", "next"));
}

TEST_F(AnObserverList, MayBeNotifiedFromInsideACall) {
  Scripted nesting([&](unsigned id) {
    called.push_back("in " + std::to_string(id));
    if (id < 3) {
      notify(id + 1);
    }
    called.push_back("out " + std::to_string(id));
  });
  list.add(&nesting, nullptr, 0);

  notify(1);

  EXPECT_THAT(called, ElementsAre("in 1", "in 2", "in 3", "out 3", "out 2", "out 1"));
}

TEST_F(AnObserverList, CallsTheOthersBeforeItPassesTheFirstExceptionOn) {
  Scripted first([](unsigned) { throw std::runtime_error("the first"); });
  Scripted second([](unsigned) { throw std::logic_error("the second"); });
  Scripted last = named("last");
  list.add(&first, nullptr, 0);
  list.add(&second, nullptr, 0);
  list.add(&last, nullptr, 0);

  std::string thrown;
  try {
    notify();
  } catch (const std::exception& exception) {
    thrown = exception.what();
  }

  EXPECT_EQ(thrown, "the first");
  EXPECT_THAT(called, ElementsAre("last"));
}

TEST_F(AnObserverList, LetsAnObserverEndItsThread) {
  Scripted ending([](unsigned) { pthread_exit(nullptr); });
  list.add(&ending, nullptr, 0);
  pthread_t thread = {};
  ASSERT_EQ(pthread_create(
                &thread, nullptr,
                [](void* fixture) -> void* {
                  static_cast<AnObserverList*>(fixture)->notify();
                  return fixture;
                },
                this),
            0);

  void* result = this;
  ASSERT_EQ(pthread_join(thread, &result), 0);

  EXPECT_EQ(result, nullptr);  // it did not return from the notification
  list.remove(&ending);        // would wait for that call for ever
  EXPECT_TRUE(list.idle());
}

TEST_F(AnObserverList, ForgetsACallThatAnExceptionEnded) {
  Scripted throwing([](unsigned) { throw std::runtime_error("from an observer"); });
  Scripted next = named("next");
  list.add(&throwing, nullptr, 0);

  EXPECT_THROW(notify(), std::runtime_error);
  list.add(&next, nullptr, 0);
  auto remover = std::async(std::launch::async, [&] { list.remove(&throwing); });
  ASSERT_EQ(remover.wait_for(seconds(30)), std::future_status::ready);  // would wait for that call for ever
  notify();

  EXPECT_THAT(called, ElementsAre("next"));
}

TEST_F(AnObserverList, WaitsForTheCallOfAnotherThreadBeforeItLetsGo) {
  for (const bool byOwner : {false, true}) {
    Blocking observer;
    list.add(&observer, nullptr, 0, this);
    auto notifier = std::async(std::launch::async, [&] { notify(); });
    observer.entered.get_future().wait();

    auto remover = std::async(std::launch::async, [&] {
      byOwner ? list.removeAll(this) : list.remove(&observer);
      return observer.left.load();
    });
    EXPECT_EQ(remover.wait_for(milliseconds(20)), std::future_status::timeout);
    observer.release();

    EXPECT_TRUE(remover.get());
    notifier.get();
  }
}

TEST_F(AnObserverList, DoesNotWaitForTheCallOfADifferentObserver) {
  Blocking busy;
  Scripted other = named("other");
  list.add(&busy, nullptr, 0);
  list.add(&other, nullptr, 0);
  auto notifier = std::async(std::launch::async, [&] { notify(); });
  busy.entered.get_future().wait();

  auto remover = std::async(std::launch::async, [&] { list.remove(&other); });

  EXPECT_EQ(remover.wait_for(seconds(30)), std::future_status::ready);
  busy.release();
  notifier.get();
  EXPECT_THAT(called, IsEmpty());
}

TEST_F(AnObserverList, DoesNotWaitForTheCallOfAnAttachmentThatStays) {
  Blocking observer;
  list.add(&observer, nullptr, 0);
  auto notifier = std::async(std::launch::async, [&] { notify(); });
  observer.entered.get_future().wait();
  list.add(&observer, nullptr, 0, this);

  auto remover = std::async(std::launch::async, [&] { list.removeAll(this); });

  EXPECT_EQ(remover.wait_for(seconds(30)), std::future_status::ready);
  observer.release();
  notifier.get();
}

TEST_F(AnObserverList, LetsTwoCallsOfOneObserverBothRemoveIt) {
  std::promise<void> bothInside;
  const std::shared_future<void> ready = bothInside.get_future().share();
  std::atomic<int> inside{0};
  Scripted* itself = nullptr;
  Scripted leaving([&](unsigned) {
    if (++inside == 2) {
      bothInside.set_value();
    }
    ready.wait();
    list.remove(itself);
  });
  itself = &leaving;
  list.add(&leaving, nullptr, 0);

  auto one = std::async(std::launch::async, [&] { notify(); });
  auto other = std::async(std::launch::async, [&] { notify(); });

  EXPECT_EQ(one.wait_for(seconds(30)), std::future_status::ready);
  EXPECT_EQ(other.wait_for(seconds(30)), std::future_status::ready);
  EXPECT_TRUE(list.empty());
}

// One thread removed an observer from outside while another was inside it and removed it too, waiting for a third call.
// The one outside passed over that, returned, and destroyed an observer that was being called.
TEST_F(AnObserverList, WaitsForACallThatRemovesTheObserverItself) {
  Blocking third;
  std::promise<void> entered;
  std::promise<void> removed;
  std::promise<void> letGo;
  std::atomic<bool> left{false};
  Scripted leaving([&](unsigned) {
    entered.set_value();
    list.removeAll(this);  // waits for the third call
    removed.set_value();
    letGo.get_future().wait();
    left = true;
  });
  const unsigned ids[] = {1, 2};
  list.add(&leaving, &ids[0], 1, this);
  list.add(&third, &ids[1], 1, this);
  auto thirdCall = std::async(std::launch::async, [&] { notify(2); });
  third.entered.get_future().wait();
  auto call = std::async(std::launch::async, [&] { notify(1); });
  entered.get_future().wait();
  while (!list.empty()) {
    std::this_thread::yield();  // until it waits
  }

  auto outside = std::async(std::launch::async, [&] {
    list.remove(&leaving);
    return left.load();
  });
  EXPECT_EQ(outside.wait_for(milliseconds(50)), std::future_status::timeout);
  third.release();
  removed.get_future().wait();
  EXPECT_EQ(outside.wait_for(milliseconds(50)), std::future_status::timeout);
  letGo.set_value();

  EXPECT_TRUE(outside.get());
  call.get();
  thirdCall.get();
}

TEST_F(AnObserverList, IsIdleWithoutObserversAndWithoutCalls) {
  Blocking observer;
  EXPECT_TRUE(list.idle());
  list.add(&observer, nullptr, 0);
  EXPECT_FALSE(list.idle());
  auto notifier = std::async(std::launch::async, [&] { notify(); });
  observer.entered.get_future().wait();
  list.clear();

  EXPECT_FALSE(list.idle());
  observer.release();
  notifier.get();

  EXPECT_TRUE(list.idle());
}

TEST_F(AnObserverList, NeverCallsAnObserverThatWasRemoved) {
  struct Counting : LmObserver_ {
    unsigned Update(unsigned, void*, unsigned) override {
      wrong = wrong || gone;
      ++calls;
      return 0;
    }
    std::atomic<bool> gone{false};
    std::atomic<bool> wrong{false};
    std::atomic<int> calls{0};
  } observer;
  std::atomic<bool> stop{false};
  std::vector<std::thread> notifiers;
  notifiers.reserve(3);
  for (int i = 0; i < 3; ++i) {
    notifiers.emplace_back([&] {
      while (!stop) {
        notify();
        std::this_thread::yield();  // or the remover, on a busy machine, hardly ever gets a turn
      }
    });
  }

  for (int round = 0; round < 300; ++round) {
    observer.gone = false;
    const int before = observer.calls;
    list.add(&observer, nullptr, 0);
    while (observer.calls == before) {
      std::this_thread::yield();
    }
    list.remove(&observer);
    observer.gone = true;
  }
  stop = true;
  for (std::thread& thread : notifiers) {
    thread.join();
  }

  EXPECT_FALSE(observer.wrong);
}

TEST_F(AnObserverList, IsUsableInAChildForkedDuringACallOnAnotherThread) {
  Blocking busy;
  list.add(&busy, nullptr, 0);
  auto notifier = std::async(std::launch::async, [&] { notify(); });
  busy.entered.get_future().wait();

  ChildProcess child([&] {
    Scripted fresh = named("fresh");
    const bool wasEmpty = list.empty();
    list.remove(&busy);
    list.add(&fresh, nullptr, 0);
    notify();
    return !wasEmpty && called == std::vector<std::string>{"fresh"} ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  busy.release();
  notifier.get();
  EXPECT_FALSE(list.empty());
}

TEST_F(AnObserverList, GoesOnInTheChildWithTheNotificationThatForked) {
  pid_t pid = -1;
  Scripted forking([&](unsigned) { pid = fork(); });
  Scripted next = named("next");
  list.add(&forking, nullptr, 0);
  list.add(&next, nullptr, 0);

  notify();
  if (pid == 0) {
    list.remove(&forking);
    list.remove(&next);
    _exit(called == std::vector<std::string>{"next"} && list.idle() ? 0 : 1);
  }

  int status = -1;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(called, ElementsAre("next"));
}

TEST_F(AnObserverList, EndsItsNotificationWhenItIsCleared) {
  Scripted clearing([&](unsigned) { list.clear(); });
  Scripted next = named("next");
  list.add(&clearing, nullptr, 0);
  list.add(&next, nullptr, 0);

  notify();

  EXPECT_THAT(called, IsEmpty());
  EXPECT_TRUE(list.empty());
}

}  // namespace
