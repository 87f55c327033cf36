// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/LmObserver_.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

static_assert(std::has_virtual_destructor_v<LmSharedMemNotifier> && !std::is_copy_constructible_v<LmSharedMemNotifier>);

// ThreadSanitizer would end a child that starts threads after its parent with threads forked it; here that is what is
// promised to work.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
const char* __tsan_default_options() { return "die_after_fork=0"; }

namespace {

constexpr unsigned ID = 6;
constexpr unsigned OTHER_ID = 7;
constexpr char RING[] = "LmSharedMemNotifier";
constexpr auto WATCHDOG = std::chrono::seconds(60);

struct Message {
  unsigned id;
  std::string data;

  bool operator==(const Message& other) const { return id == other.id && data == other.data; }
};

class Recorder : public LmObserver_ {
 public:
  unsigned Update(unsigned id, void* data, unsigned size) override {
    const std::lock_guard<std::mutex> guard(mMutex);
    mAligned = mAligned && reinterpret_cast<std::uintptr_t>(data) % alignof(std::max_align_t) == 0;
    mNullWhenEmpty = mNullWhenEmpty && (data == nullptr) == (size == 0);
    mThread = pthread_self();
    mMessages.push_back({id, data != nullptr ? std::string(static_cast<const char*>(data), size) : std::string()});
    mArrived.notify_all();
    return 0;
  }

  bool waitFor(std::size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, WATCHDOG, [&] { return mMessages.size() >= count; });
  }

  bool waitFor(const Message& message) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, WATCHDOG, [&] { return !mMessages.empty() && mMessages.back() == message; });
  }

  std::vector<Message> messages() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mMessages;
  }

  pthread_t thread() const {
    const std::lock_guard<std::mutex> guard(mMutex);
    return mThread;
  }

  bool aligned() const { return mAligned; }
  bool nullWhenEmpty() const { return mNullWhenEmpty; }

 private:
  mutable std::mutex mMutex;
  std::condition_variable mArrived;
  std::vector<Message> mMessages;
  pthread_t mThread = {};
  std::atomic<bool> mAligned{true};
  std::atomic<bool> mNullWhenEmpty{true};
};

class Caller : public LmObserver_ {
 public:
  explicit Caller(std::function<void()> function) : mFunction(std::move(function)) {}

  unsigned Update(unsigned, void*, unsigned) override {
    mFunction();
    return 0;
  }

 private:
  const std::function<void()> mFunction;
};

bool add(LmSharedMemNotifier& notifier, LmObserver_& observer, unsigned id = ID) {
  return notifier.AddObserver(&observer, &id, 1);
}

bool publish(LmSharedMemNotifier& notifier, unsigned id, const std::string& text) {
  return notifier.Publish(id, text.data(), static_cast<unsigned>(text.size()));
}

// Publishes `text`; true when the observer then hears it as its newest message.
bool reaches(LmSharedMemNotifier& notifier, Recorder& recorder, const std::string& text) {
  return publish(notifier, ID, text) && recorder.waitFor(Message{ID, text});
}

// The first thread of a process may bring one of a sanitizer's along, so there has been one before any is counted. One
// that was joined may be listed for a moment more.
std::ptrdiff_t threads() {
  static const bool hadOne = [] {
    std::filesystem::path task = "/proc/self/task";
    std::thread([&] { task /= std::to_string(gettid()); }).join();
    return eventually([&] { return !std::filesystem::exists(task); });
  }();
  EXPECT_TRUE(hadOne);
  const std::filesystem::directory_iterator folder("/proc/self/task");
  return std::distance(begin(folder), end(folder));
}

// A child that observes ID; whether it got `text` is its exit code.
int observeUntil(const std::string& text, std::atomic<int>& ready) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  ++ready;
  return recorder.waitFor(Message{ID, text}) ? 0 : 1;
}

}  // namespace

TEST(APublishedMessage, ReachesObserversInThisAndOtherProcesses) {
  const SharedValue<std::atomic<int>> ready;
  ChildProcess first([&] { return observeUntil("news", *ready); });
  ChildProcess second([&] { return observeUntil("news", *ready); });
  ASSERT_TRUE(eventually([&] { return ready->load() == 2; }));
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  ASSERT_TRUE(add(notifier, recorder));

  EXPECT_TRUE(publish(notifier, ID, "news"));

  EXPECT_TRUE(recorder.waitFor(Message{ID, "news"}));
  EXPECT_EQ(0, first.wait());
  EXPECT_EQ(0, second.wait());
}

TEST(APublishedMessage, ReachesOnlyTheObserversOfItsId) {
  LmSharedMemNotifier notifier(true);
  Recorder both;
  Recorder one;
  const unsigned ids[] = {ID, OTHER_ID};
  ASSERT_TRUE(notifier.AddObserver(&both, ids, 2));
  ASSERT_TRUE(add(notifier, one, OTHER_ID));

  publish(notifier, ID, "a");
  publish(notifier, 8, "b");
  publish(notifier, OTHER_ID, "c");

  ASSERT_TRUE(both.waitFor(Message{OTHER_ID, "c"}));
  ASSERT_TRUE(one.waitFor(1));
  EXPECT_EQ((std::vector<Message>{{ID, "a"}, {OTHER_ID, "c"}}), both.messages());
  EXPECT_EQ((std::vector<Message>{{OTHER_ID, "c"}}), one.messages());
}

TEST(APublishedMessage, HasUpTo64Bytes) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  const LogCapture log;
  std::string longest(64, '\0');
  for (std::size_t i = 0; i < longest.size(); ++i) {
    longest[i] = static_cast<char>(255 - i);
  }

  EXPECT_TRUE(notifier.Publish(ID, nullptr, 0));
  EXPECT_TRUE(publish(notifier, ID, longest));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(publish(notifier, ID, std::string(65, 'x')));
  EXPECT_FALSE(notifier.Publish(ID, nullptr, 1));
  EXPECT_EQ(2U, log.lines().size());
  EXPECT_TRUE(publish(notifier, ID, "end"));

  ASSERT_TRUE(recorder.waitFor(3));
  EXPECT_EQ((std::vector<Message>{{ID, ""}, {ID, longest}, {ID, "end"}}), recorder.messages());
  EXPECT_TRUE(recorder.aligned());
  EXPECT_TRUE(recorder.nullWhenEmpty());
}

TEST(ManyMessages, ArriveInTheOrderInWhichTheyWerePublished) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  std::vector<Message> published;

  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 100; ++i) {
      published.push_back({ID, std::to_string(published.size())});
      publish(notifier, ID, published.back().data);
    }
    ASSERT_TRUE(recorder.waitFor(published.size()));
  }

  EXPECT_EQ(published, recorder.messages());
}

// So few at a time that none can be lost.
TEST(SeveralPublishersAtOnce, AreHeardOnceEachAndEachInItsOrder) {
  constexpr unsigned PUBLISHERS = 4;
  constexpr std::uint32_t COUNT = 3000;
  constexpr std::uint32_t OUTSTANDING = 50;
  struct Message {
    std::uint32_t sender;
    std::uint32_t number;
  };
  struct Heard {
    std::atomic<std::uint32_t> of[PUBLISHERS];
    std::atomic<unsigned> wrong;
  };
  const SharedValue<Heard> heard;
  class Counter : public LmObserver_ {
   public:
    explicit Counter(Heard& heard) : mHeard(heard) {}
    unsigned Update(unsigned, void* data, unsigned size) override {
      Message message = {PUBLISHERS, 0};
      std::memcpy(&message, data, std::min<std::size_t>(size, sizeof message));
      if (message.sender >= PUBLISHERS || message.number != mHeard.of[message.sender] + 1) {
        ++mHeard.wrong;
      } else {
        ++mHeard.of[message.sender];
      }
      return 0;
    }

   private:
    Heard& mHeard;
  } counter(*heard);
  const LogCapture log;
  LmSharedMemNotifier notifier(false);
  ASSERT_TRUE(add(notifier, counter));

  std::vector<std::unique_ptr<ChildProcess>> publishers;
  for (std::uint32_t sender = 0; sender < PUBLISHERS; ++sender) {
    publishers.push_back(std::make_unique<ChildProcess>([&heard, sender] {
      LmSharedMemNotifier own(false);
      for (std::uint32_t number = 1; number <= COUNT; ++number) {
        const auto hasRoom = [&] { return number - heard->of[sender] <= OUTSTANDING; };
        const Message message = {sender, number};
        if ((!hasRoom() && !eventually(hasRoom)) || heard->wrong != 0 || !own.Publish(ID, &message, sizeof message)) {
          return 1;
        }
      }
      return 0;
    }));
  }

  for (std::uint32_t sender = 0; sender < PUBLISHERS; ++sender) {
    EXPECT_EQ(0, publishers[sender]->wait()) << sender;
    EXPECT_TRUE(eventually([&] { return heard->of[sender] == COUNT || heard->wrong != 0; })) << sender;
  }
  EXPECT_EQ(0U, heard->wrong);
  EXPECT_TRUE(log.lines().empty());
}

TEST(ANewObserver, HearsNothingOlder) {
  ChildProcess earlier([] {
    LmSharedMemNotifier notifier(false);
    for (int i = 0; i < 300; ++i) {
      publish(notifier, ID, "old");
    }
    return 0;
  });
  ASSERT_EQ(0, earlier.wait());
  LmSharedMemNotifier notifier(false);
  Recorder first;
  Recorder second;
  const LogCapture log;

  add(notifier, first);
  publish(notifier, ID, "new");
  add(notifier, second);
  publish(notifier, ID, "newer");

  ASSERT_TRUE(first.waitFor(2));
  ASSERT_TRUE(second.waitFor(1));
  EXPECT_EQ((std::vector<Message>{{ID, "new"}, {ID, "newer"}}), first.messages());
  EXPECT_EQ((std::vector<Message>{{ID, "newer"}}), second.messages());
  EXPECT_TRUE(log.lines().empty());
}

TEST(AnObserver, IsNotAddedWithoutAnObserverOrIds) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  const unsigned id = ID;
  const auto before = threads();

  EXPECT_FALSE(notifier.AddObserver(nullptr, &id, 1));
  EXPECT_FALSE(notifier.AddObserver(&recorder, nullptr, 1));
  EXPECT_FALSE(notifier.AddObserver(&recorder, &id, 0));
  notifier.RemoveObserver(nullptr);
  notifier.RemoveObserver(&recorder);

  EXPECT_TRUE(eventually([&] { return threads() == before; }));
}

TEST(AnObserverAddedAgain, AddsToItsIds) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder, ID);
  add(notifier, recorder, OTHER_ID);
  add(notifier, recorder, ID);

  publish(notifier, ID, "a");
  publish(notifier, OTHER_ID, "b");

  ASSERT_TRUE(recorder.waitFor(Message{OTHER_ID, "b"}));
  EXPECT_EQ((std::vector<Message>{{ID, "a"}, {OTHER_ID, "b"}}), recorder.messages());
}

TEST(ARemovedObserver, IsNeverCalledAgain) {
  LmSharedMemNotifier notifier(false);
  std::atomic<bool> stop{false};
  std::thread publisher([&] {
    LmSharedMemNotifier own(false);
    while (!stop) {
      publish(own, ID, "x");
    }
  });
  std::vector<std::thread> users;

  for (int i = 0; i < 3; ++i) {
    users.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        std::atomic<bool> removed{false};
        std::atomic<int> calls{0};
        auto observer = std::make_unique<Caller>([&] {
          EXPECT_FALSE(removed);
          ++calls;
        });
        add(notifier, *observer);
        while (round % 10 == 0 && calls == 0) {
          std::this_thread::yield();
        }
        notifier.RemoveObserver(observer.get());
        removed = true;
        observer.reset();
      }
    });
  }
  for (std::thread& user : users) {
    user.join();
  }
  stop = true;
  publisher.join();
}

TEST(ARemoval, WaitsForTheCallInProgress) {
  LmSharedMemNotifier notifier(false);
  std::atomic<bool> entered{false};
  std::atomic<bool> left{false};
  Caller slow([&] {
    entered = true;
    pauseFor(std::chrono::milliseconds(100));
    left = true;
  });
  add(notifier, slow);
  publish(notifier, ID, "x");
  ASSERT_TRUE(eventually([&] { return entered.load(); }));

  notifier.RemoveObserver(&slow);

  EXPECT_TRUE(left);
}

TEST(ARemovalFromInsideANotification, DoesNotWaitForItself) {
  LmSharedMemNotifier notifier(false);
  std::atomic<int> calls{0};
  Caller* self = nullptr;
  Caller once([&] {
    notifier.RemoveObserver(self);
    ++calls;
  });
  self = &once;
  Recorder recorder;
  add(notifier, once);
  add(notifier, recorder);

  publish(notifier, ID, "first");
  publish(notifier, ID, "second");

  ASSERT_TRUE(recorder.waitFor(2));
  EXPECT_EQ(1, calls);
}

TEST(ARemovalFromInsideANotification, OfTheLastObserverEndsTheThread) {
  LmSharedMemNotifier notifier(false);
  const auto before = threads();
  Caller* self = nullptr;
  Caller once([&] { notifier.RemoveObserver(self); });
  self = &once;

  for (int round = 0; round < 20; ++round) {
    add(notifier, once);
    publish(notifier, ID, "x");
    ASSERT_TRUE(eventually([&] { return threads() == before; })) << round;
  }

  Recorder recorder;
  add(notifier, recorder);
  EXPECT_TRUE(reaches(notifier, recorder, "on"));
}

TEST(AnObserverAddedFromInsideANotification, HearsTheNextMessage) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  Caller adder([&] { add(notifier, recorder); });
  add(notifier, adder);

  publish(notifier, ID, "first");
  // The second may be published before the first is delivered; a later one is not.
  std::thread publisher([&] {
    while (recorder.messages().empty()) {
      publish(notifier, ID, "later");
      pauseFor(std::chrono::milliseconds(1));
    }
  });

  EXPECT_TRUE(recorder.waitFor(1));
  publisher.join();
  EXPECT_EQ("later", recorder.messages().front().data);
}

TEST(TheDeliveryThread, IsOneForAllNotifiersWhileAnyObserverIsThere) {
  const auto before = threads();
  LmSharedMemNotifier first(false);
  LmSharedMemNotifier second(true);
  Recorder one;
  Recorder two;
  add(first, one);
  add(second, two);
  publish(first, ID, "x");
  ASSERT_TRUE(one.waitFor(1));
  ASSERT_TRUE(two.waitFor(1));
  EXPECT_TRUE(pthread_equal(one.thread(), two.thread()));
  EXPECT_FALSE(pthread_equal(one.thread(), pthread_self()));
  EXPECT_TRUE(eventually([&] { return threads() == before + 1; }));

  first.RemoveObserver(&one);
  EXPECT_TRUE(eventually([&] { return threads() == before + 1; }));
  second.RemoveObserver(&two);

  EXPECT_TRUE(eventually([&] { return threads() == before; }));
}

// Somebody removed an observer with a lock held that no call of that observer takes, and hung: another observer, which
// had removed itself and was still inside its call, took it.
TEST(TheDeliveryThread, IsNotWaitedForWhileItCallsAnotherObserver) {
  const auto before = threads();
  LmSharedMemNotifier notifier(false);
  Recorder other;
  std::mutex mutex;
  std::atomic<bool> inside{false};
  std::atomic<bool> left{false};
  Caller* itself = nullptr;
  Caller leaving([&] {
    notifier.RemoveObserver(itself);
    inside = true;
    const std::lock_guard<std::mutex> guard(mutex);
    left = true;
  });
  itself = &leaving;
  add(notifier, leaving);
  add(notifier, other, OTHER_ID);

  std::unique_lock<std::mutex> lock(mutex);
  publish(notifier, ID, "x");
  ASSERT_TRUE(eventually([&] { return inside.load(); }));
  std::atomic<bool> removed{false};
  std::thread remover([&] {
    notifier.RemoveObserver(&other);
    removed = true;
  });
  EXPECT_TRUE(eventually([&] { return removed.load(); }, std::chrono::seconds(20)));
  EXPECT_FALSE(left);
  lock.unlock();
  remover.join();

  EXPECT_TRUE(eventually([&] { return left && threads() == before; }));  // and it ends by itself
}

TEST(TheDeliveryThread, ServesWhoIsAddedWhileItsLastCallEnds) {
  LmSharedMemNotifier notifier(false);
  Recorder late;
  std::atomic<bool> inside{false};
  std::atomic<bool> release{false};
  Caller* itself = nullptr;
  Caller leaving([&] {
    notifier.RemoveObserver(itself);
    inside = true;
    while (!release) {
      pauseFor(std::chrono::milliseconds(1));
    }
  });
  itself = &leaving;
  add(notifier, leaving);
  publish(notifier, ID, "x");
  ASSERT_TRUE(eventually([&] { return inside.load(); }));

  add(notifier, late);
  release = true;

  EXPECT_TRUE(reaches(notifier, late, "y"));
}

TEST(TheDeliveryThread, TakesNoSignals) {
  LmSharedMemNotifier notifier(false);
  std::atomic<int> blocked{0};
  Caller asks([&] {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    blocked = sigismember(&mask, SIGTERM) + sigismember(&mask, SIGALRM) + sigismember(&mask, SIGUSR1) + 1;
  });

  add(notifier, asks);
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  publish(notifier, ID, "x");

  ASSERT_TRUE(eventually([&] { return blocked != 0; }));
  EXPECT_EQ(4, blocked);
  EXPECT_EQ(0, sigismember(&own, SIGTERM));
}

TEST(ANotifiersEnd, RemovesTheObserversThatWereAddedThroughIt) {
  auto first = std::make_unique<LmSharedMemNotifier>(false);
  LmSharedMemNotifier second(false);
  auto gone = std::make_unique<Recorder>();
  Recorder stays;
  add(*first, *gone);
  add(*first, stays);
  add(second, stays, OTHER_ID);

  first.reset();
  gone.reset();
  publish(second, ID, "x");
  publish(second, OTHER_ID, "y");

  ASSERT_TRUE(stays.waitFor(1));
  EXPECT_EQ((std::vector<Message>{{OTHER_ID, "y"}}), stays.messages());
}

TEST(AThrowingObserver, CostsOneLogLineAndNothingElse) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  Caller throws([] { throw std::runtime_error("no mood"); });
  const LogCapture log;
  add(notifier, recorder);
  add(notifier, throws);

  publish(notifier, ID, "first");
  ASSERT_TRUE(log.waitFor("no mood"));
  notifier.RemoveObserver(&throws);
  publish(notifier, ID, "second");

  ASSERT_TRUE(recorder.waitFor(2));
  EXPECT_EQ(1U, log.lines().size());
}

TEST(ASlowObserver, LosesTheOldestAndTheLogSaysHowMany) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  std::atomic<bool> entered{false};
  std::atomic<bool> release{false};
  Caller blocks([&] {
    entered = true;
    while (!release) {
      pauseFor(std::chrono::milliseconds(1));
    }
  });
  const LogCapture log;
  add(notifier, recorder);
  add(notifier, blocks);
  publish(notifier, ID, "0");
  ASSERT_TRUE(eventually([&] { return entered.load(); }));

  for (int i = 1; i <= 306; ++i) {
    publish(notifier, ID, std::to_string(i));
  }
  release = true;

  ASSERT_TRUE(recorder.waitFor(Message{ID, "306"}));
  const std::vector<Message> heard = recorder.messages();
  ASSERT_EQ(257U, heard.size());
  EXPECT_EQ("0", heard[0].data);
  EXPECT_EQ("51", heard[1].data);
  EXPECT_EQ(1U, log.count(" 50 messages lost"));
  EXPECT_EQ(1U, log.lines().size());
}

TEST(APublisherKilledAtAnyMoment, LeavesTheOthersWorking) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  const LogCapture log;  // the flood may outrun the delivery
  std::minstd_rand random(20);

  for (int round = 0; round < 40; ++round) {
    const SharedValue<std::atomic<bool>> started;
    ChildProcess publisher([&] {
      LmSharedMemNotifier own(false);
      for (;;) {
        publish(own, OTHER_ID, "flood");
        started->store(true);
      }
      return 0;
    });
    ASSERT_TRUE(eventually([&] { return started->load(); }));
    pauseFor(std::chrono::microseconds(random() % 3000));
    publisher.signal(SIGKILL);
    publisher.wait();

    ASSERT_TRUE(reaches(notifier, recorder, std::to_string(round)));
  }
}

// Somewhere in its loop, often with the ring's lock.
TEST(APublisherStoppedAtAnyMoment, HoldsNobodyUpAndGoesOnWhenItIsContinued) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  const LogCapture log;
  std::minstd_rand random(21);
  const SharedValue<std::atomic<unsigned>> published;
  ChildProcess publisher([&] {
    LmSharedMemNotifier own(false);
    while (publish(own, OTHER_ID, "flood")) {
      ++*published;
    }
    return 1;
  });

  for (int round = 0; round < 5; ++round) {
    const unsigned before = *published;
    ASSERT_TRUE(eventually([&] { return *published > before; })) << "it goes on";
    pauseFor(std::chrono::microseconds(random() % 3000));
    publisher.stop();

    ASSERT_TRUE(reaches(notifier, recorder, std::to_string(round)));

    publisher.signal(SIGCONT);
  }
}

TEST(AnObserverKilledAtAnyMoment, LeavesTheOthersWorking) {
  const LogCapture log;
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);
  std::minstd_rand random(22);

  for (int round = 0; round < 20; ++round) {
    const SharedValue<std::atomic<int>> ready;
    ChildProcess observer([&] { return observeUntil("never", *ready); });
    ASSERT_TRUE(eventually([&] { return ready->load() == 1; }));
    for (int i = 0; i < 20; ++i) {
      publish(notifier, ID, "before");
    }
    pauseFor(std::chrono::microseconds(random() % 300));
    observer.signal(SIGKILL);
    observer.wait();

    ASSERT_TRUE(reaches(notifier, recorder, std::to_string(round)));
  }
  EXPECT_EQ(0U, log.lines().size());
}

TEST(AStoppedObserver, HoldsNobodyUpAndGoesOnWhenItIsContinued) {
  const SharedValue<std::atomic<int>> ready;
  ChildProcess stopped([&] { return observeUntil("last", *ready); });
  ASSERT_TRUE(eventually([&] { return ready->load() == 1; }));
  stopped.signal(SIGSTOP);
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  add(notifier, recorder);

  ASSERT_TRUE(reaches(notifier, recorder, "first"));
  ASSERT_TRUE(reaches(notifier, recorder, "last"));
  stopped.signal(SIGCONT);

  EXPECT_EQ(0, stopped.wait());
}

class AForkedChild : public testing::Test {
 protected:
  void SetUp() override {
    add(mNotifier, mRecorder);
    ASSERT_TRUE(reaches(mNotifier, mRecorder, "before"));
  }

  void TearDown() override {
    EXPECT_TRUE(reaches(mNotifier, mRecorder, "after"));  // the parent has lost nothing
  }

  LmSharedMemNotifier mNotifier{false};
  Recorder mRecorder;
};

TEST_F(AForkedChild, DeliversNothing) {
  const SharedValue<std::atomic<bool>> published;
  ChildProcess child([&] {
    const std::size_t before = mRecorder.messages().size();
    eventually([&] { return published->load(); });
    pauseFor(std::chrono::milliseconds(200));
    return before == 1 && mRecorder.messages().size() == 1 ? 0 : 1;
  });

  publish(mNotifier, ID, "for the parent");
  published->store(true);

  EXPECT_EQ(0, child.wait());
}

TEST_F(AForkedChild, DoesNotHangAtItsEnd) {
  ChildProcess child(
      [&] {
        mNotifier.RemoveObserver(&mRecorder);
        LmSharedMemNotifier own(false);
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(0, child.wait());
}

TEST_F(AForkedChild, MayPublish) {
  ChildProcess child([&] { return publish(mNotifier, ID, "from the child") ? 0 : 1; });

  EXPECT_EQ(0, child.wait());
  EXPECT_TRUE(mRecorder.waitFor(Message{ID, "from the child"}));
}

TEST_F(AForkedChild, MayObserveAnew) {
  const SharedValue<std::atomic<int>> ready;
  ChildProcess child([&] { return observeUntil("for both", *ready); });
  ASSERT_TRUE(eventually([&] { return ready->load() == 1; }));

  publish(mNotifier, ID, "for both");

  EXPECT_EQ(0, child.wait());
}

TEST(AForkFromInsideANotification, EndsTheChildAfterTheNotification) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  std::atomic<int> result{-1};
  Caller forks([&] {
    const pid_t child = fork();
    if (child == 0) {
      return;
    }
    int status = -1;
    waitpid(child, &status, 0);
    result = WIFEXITED(status) ? WEXITSTATUS(status) : 1000;
  });
  add(notifier, forks);
  add(notifier, recorder);

  publish(notifier, ID, "x");

  ASSERT_TRUE(recorder.waitFor(1));
  EXPECT_EQ(0, result);
}

// A unit makes the ring's file at boot, so that it has an owner and a group of the unit's choice.
TEST(ARingWithoutALength, IsMadeByTheFirstMessageWhichIsHeardWithoutALogLine) {
  std::filesystem::remove(sharedPath(RING));
  std::ofstream(sharedPath(RING)).close();
  const LogCapture log;
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  ASSERT_TRUE(add(notifier, recorder));

  EXPECT_TRUE(reaches(notifier, recorder, "first"));
  EXPECT_TRUE(reaches(notifier, recorder, "second"));

  EXPECT_EQ(2U, recorder.messages().size());
  EXPECT_EQ(0U, log.lines().size());
}

class ADamagedRing : public testing::Test {
 protected:
  void SetUp() override {
    add(mNotifier, mRecorder);
    ASSERT_TRUE(reaches(mNotifier, mRecorder, "before"));
  }

  const LogCapture mLog;
  LmSharedMemNotifier mNotifier{false};
  Recorder mRecorder;
};

TEST_F(ADamagedRing, CutToNothingIsMadeAnew) {
  std::filesystem::resize_file(sharedPath(RING), 0);

  EXPECT_TRUE(reaches(mNotifier, mRecorder, "after"));
  EXPECT_TRUE(reaches(mNotifier, mRecorder, "again"));
  EXPECT_EQ(1U, mLog.count("was not intact"));
  EXPECT_EQ(1U, mLog.lines().size());
}

TEST_F(ADamagedRing, FullOfGarbageIsMadeAnew) {
  overwriteShared(RING, std::string(sharedContents(RING).size(), '\x5A'));

  EXPECT_TRUE(reaches(mNotifier, mRecorder, "after"));
  EXPECT_TRUE(reaches(mNotifier, mRecorder, "again"));
  EXPECT_EQ(1U, mLog.count("was not intact"));
  EXPECT_EQ(1U, mLog.lines().size());
}

TEST_F(ADamagedRing, LetsAnObserverBeAdded) {
  overwriteShared(RING, std::string(64, '\x5A'));
  Recorder second;

  EXPECT_TRUE(add(mNotifier, second));

  EXPECT_TRUE(reaches(mNotifier, second, "after"));
  mNotifier.RemoveObserver(&second);
}

TEST_F(ADamagedRing, RemovedIsMadeAgainAndFoundByAll) {
  std::filesystem::remove(sharedPath(RING));
  ChildProcess other([] {
    LmSharedMemNotifier own(false);
    return publish(own, ID, "from elsewhere") ? 0 : 1;
  });
  ASSERT_EQ(0, other.wait());

  EXPECT_TRUE(mRecorder.waitFor(Message{ID, "from elsewhere"}));
  EXPECT_TRUE(reaches(mNotifier, mRecorder, "after"));
  EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(ADamagedRing, WithADamagedMessageLosesThatOne) {
  const SharedValue<std::atomic<bool>> release;
  Caller blocks([&] { eventually([&] { return release->load(); }); });
  add(mNotifier, blocks, OTHER_ID);
  publish(mNotifier, OTHER_ID, "hold");
  publish(mNotifier, ID, "damaged");
  publish(mNotifier, ID, "whole");
  std::string ring = sharedContents(RING);
  const std::size_t at = ring.find("damaged");
  ASSERT_NE(std::string::npos, at);
  ring[at] = 'D';
  overwriteShared(RING, ring);

  release->store(true);

  ASSERT_TRUE(mRecorder.waitFor(Message{ID, "whole"}));
  EXPECT_EQ(2U, mRecorder.messages().size());
  EXPECT_EQ(1U, mLog.count(" 1 messages lost"));
  mNotifier.RemoveObserver(&blocks);
}

TEST(ARingThatCannotBeOpened, CostsALogLineAndIsTriedAgain) {
  std::filesystem::remove(sharedPath(RING));
  std::filesystem::create_directory(sharedPath(RING));
  const LogCapture log;
  LmSharedMemNotifier notifier(false);
  Recorder recorder;

  EXPECT_TRUE(add(notifier, recorder));
  ASSERT_TRUE(log.waitFor("nothing is delivered"));
  EXPECT_FALSE(publish(notifier, ID, "lost"));
  EXPECT_EQ(1U, log.count("id 6: cannot be published"));
  std::filesystem::remove(sharedPath(RING));

  EXPECT_TRUE(reaches(notifier, recorder, "found"));
  EXPECT_EQ(2U, log.lines().size());
}

TEST(ARingThatSomebodyHasLocked, RefusesMessagesWithALogLineUntilItIsUnlocked) {
  LmSharedMemNotifier notifier(false);
  Recorder recorder;
  ASSERT_TRUE(add(notifier, recorder));
  const LogCapture log;
  const int reader = open(sharedPath(RING).c_str(), O_RDONLY | O_CLOEXEC);
  struct flock whole = {};
  whole.l_type = F_RDLCK;
  whole.l_whence = SEEK_SET;
  ASSERT_EQ(0, fcntl(reader, F_OFD_SETLK, &whole));

  EXPECT_FALSE(publish(notifier, ID, "refused"));
  close(reader);

  EXPECT_TRUE(reaches(notifier, recorder, "taken"));
  EXPECT_EQ(1U, recorder.messages().size());
  EXPECT_EQ(1U, log.count("id 6: cannot be published"));
  EXPECT_EQ(1U, log.lines().size());
}
