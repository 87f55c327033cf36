// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <type_traits>
#include <vector>

#include "LmFramework/LmObserver_.h"
#include "LmFramework/LmSubject.h"
#include "support/ChildProcess.h"

namespace {

static_assert(std::has_virtual_destructor_v<LmSubject>);
static_assert(!std::is_copy_constructible_v<LmSubject>);

struct Recorder : LmObserver_ {
  unsigned Update(unsigned id, void* data, unsigned size) override {
    ids.push_back(id);
    lastData = data;
    lastSize = size;
    return 0;
  }

  std::vector<unsigned> ids;
  void* lastData = nullptr;
  unsigned lastSize = 0;
};

void notify(LmSubject& subject, unsigned id) { subject.NotifyObserver(id, nullptr, 0, LmSubject::EN_NTF_TYPE_SYNC); }

TEST(ASubjectWithoutObservers, NotifiesNobody) {
  LmSubject subject;
  Recorder stranger;

  notify(subject, 6);
  subject.RemoveObserver(&stranger);
  subject.RemoveObserver(nullptr);

  EXPECT_TRUE(stranger.ids.empty());
}

TEST(ASubjectWithoutObservers, RefusesNullObserversAndNullIds) {
  LmSubject subject;
  Recorder recorder;
  const unsigned id = 6;

  EXPECT_FALSE(subject.AddObserver(nullptr, &id, 1));
  EXPECT_FALSE(subject.AddObserver(&recorder, nullptr, 1));
  notify(subject, 6);

  EXPECT_TRUE(recorder.ids.empty());
}

TEST(ASubjectWithAnObserver, TellsItItsIdsOnly) {
  LmSubject subject;
  Recorder recorder;
  const unsigned ids[] = {6, 8};
  ASSERT_TRUE(subject.AddObserver(&recorder, ids, 2));

  for (unsigned id = 5; id < 10; ++id) {
    notify(subject, id);
  }

  EXPECT_EQ(recorder.ids, (std::vector<unsigned>{6, 8}));
}

TEST(ASubjectWithAnObserver, TellsItEveryIdWhenNoneIsNamed) {
  LmSubject subject;
  Recorder recorder;
  ASSERT_TRUE(subject.AddObserver(&recorder, nullptr, 0));

  notify(subject, 0);
  notify(subject, 4294967295U);

  EXPECT_EQ(recorder.ids, (std::vector<unsigned>{0, 4294967295U}));
}

TEST(ASubjectWithAnObserver, HandsTheDataOverOnTheCallersThread) {
  LmSubject subject;
  Recorder recorder;
  int payload = 3;
  ASSERT_TRUE(subject.AddObserver(&recorder, nullptr, 0));

  subject.NotifyObserver(6, &payload, sizeof payload, static_cast<LmSubject::EN_NTF_TYPE>(1));

  EXPECT_EQ(recorder.lastData, &payload);
  EXPECT_EQ(recorder.lastSize, sizeof payload);
}

TEST(ASubjectWithAnObserver, CallsItOnceWhenItWasAttachedTwice) {
  LmSubject subject;
  Recorder recorder;
  const unsigned first[] = {6};
  const unsigned second[] = {6, 7};
  ASSERT_TRUE(subject.AddObserver(&recorder, first, 1));
  ASSERT_TRUE(subject.AddObserver(&recorder, second, 2));

  notify(subject, 6);
  notify(subject, 7);

  EXPECT_EQ(recorder.ids, (std::vector<unsigned>{6, 7}));
}

TEST(ASubjectWithAnObserver, ForgetsItWhenItIsRemoved) {
  LmSubject subject;
  Recorder recorder;
  const unsigned ids[] = {6, 7};
  ASSERT_TRUE(subject.AddObserver(&recorder, ids, 2));

  subject.RemoveObserver(&recorder);
  notify(subject, 6);
  notify(subject, 7);

  EXPECT_TRUE(recorder.ids.empty());
}

/// A subject that two other threads use while the process forks: one is inside an observer, one waits for that.
struct AForkedSubject : testing::Test {
  struct Blocking : LmObserver_ {
    unsigned Update(unsigned, void*, unsigned) override {
      entered.set_value();
      release.get_future().wait();
      return 0;
    }

    std::promise<void> entered;
    std::promise<void> release;
  };

  void SetUp() override {
    subject->AddObserver(&busy, nullptr, 0);
    notifier = std::async(std::launch::async, [this] { notify(*subject, 6); });
    busy.entered.get_future().wait();
    subject->AddObserver(&stays, nullptr, 0);
    remover = std::async(std::launch::async, [this] { subject->RemoveObserver(&busy); });
    EXPECT_EQ(remover.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  }

  void TearDown() override {
    busy.release.set_value();
    notifier.get();
    remover.get();
    EXPECT_TRUE(stays.ids.empty());  // it came too late for the notification, and the child's is none of ours
  }

  std::unique_ptr<LmSubject> subject = std::make_unique<LmSubject>();
  Blocking busy;
  Recorder stays;
  std::future<void> notifier;
  std::future<void> remover;
};

TEST_F(AForkedSubject, MayBeDestroyedInTheChild) {
  ChildProcess child([this] {
    subject.reset();
    return 0;
  });

  EXPECT_EQ(child.wait(), 0);
}

TEST_F(AForkedSubject, HasItsObserversInTheChildAndMayBeUsed) {
  ChildProcess child([this] {
    Recorder fresh;
    subject->RemoveObserver(&busy);  // nobody is inside it here
    subject->AddObserver(&fresh, nullptr, 0);
    notify(*subject, 7);
    return fresh.ids == std::vector<unsigned>{7} && stays.ids == std::vector<unsigned>{7} ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
}

TEST(TwoSubjects, KnowNothingOfEachOther) {
  LmSubject one;
  LmSubject other;
  Recorder recorder;
  ASSERT_TRUE(one.AddObserver(&recorder, nullptr, 0));

  notify(other, 6);

  EXPECT_TRUE(recorder.ids.empty());
}

}  // namespace
