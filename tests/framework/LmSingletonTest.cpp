// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmSingleton.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"

namespace {

static_assert(std::is_base_of_v<LmUncopyable, LmSingleton<SaveFileAccessFactory>>);
static_assert(std::has_virtual_destructor_v<SaveFileAccessFactory>);
static_assert(!std::is_copy_constructible_v<SaveFileAccessFactory>);

std::atomic<int> constructed{0};
std::atomic<int> destroyed{0};

class Counted : public LmSingleton<Counted> {
  friend class LmSingleton<Counted>;
  Counted() {
    std::this_thread::yield();  // gives the others time to come too early
    ++constructed;
    ready = true;
  }

 public:
  ~Counted() override { ++destroyed; }

  bool ready = false;
};

std::atomic<int> failuresLeft{0};

class Fallible : public LmSingleton<Fallible> {
  friend class LmSingleton<Fallible>;
  Fallible() {
    if (failuresLeft > 0) {
      --failuresLeft;
      throw std::runtime_error("not yet");
    }
  }
};

void say(const char* what) { LmDbgOutput::DbgPrintStdErr("test", "say", 1, "%s\n", what); }

class Early : public LmSingleton<Early> {
  friend class LmSingleton<Early>;
  Early() { say("Early made"); }

 public:
  ~Early() override { say("Early gone"); }
};

/// Uses another singleton in its destructor.
class Late : public LmSingleton<Late> {
  friend class LmSingleton<Late>;
  Late() { say("Late made"); }

 public:
  ~Late() override {
    say("Late goes");
    Early::getInstance();
    say("Late gone");
  }
};

class NestedOuter : public LmSingleton<NestedOuter> {
  friend class LmSingleton<NestedOuter>;
  NestedOuter() { Early::getInstance(); }

 public:
  ~NestedOuter() override { say("Outer gone"); }
};

/// The lines without what the log puts before them.
std::vector<std::string> said(const CapturedStdErr& captured) {
  std::vector<std::string> texts;
  const std::string head = "test:1 say ";
  for (const std::string& line : captured.lines()) {
    if (line.compare(0, head.size(), head) == 0) {
      texts.push_back(line.substr(head.size()));
    }
  }
  return texts;
}

using Texts = std::vector<std::string>;

TEST(ASingleton, IsMadeOnceByRacingFirstCalls) {
  constexpr std::size_t THREADS = 8;
  constexpr int ROUNDS = 50;
  for (int round = 1; round <= ROUNDS; ++round) {
    std::array<Counted*, THREADS> seen = {};
    std::atomic<std::size_t> arrived{0};
    std::atomic<int> unready{0};
    std::vector<std::thread> threads;

    for (std::size_t i = 0; i < THREADS; ++i) {
      threads.emplace_back([&, i] {
        ++arrived;
        while (arrived < THREADS) {
          std::this_thread::yield();
        }
        seen[i] = Counted::getInstance();
        unready += seen[i]->ready ? 0 : 1;
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }

    for (const Counted* instance : seen) {
      ASSERT_EQ(instance, seen[0]);
    }
    ASSERT_EQ(constructed, round);
    ASSERT_EQ(unready, 0);
    Counted::destroy();
  }
}

TEST(ASingleton, LivesASecondTimeAfterItWasDestroyed) {
  Counted::getInstance();
  const int constructedBefore = constructed;
  const int destroyedBefore = destroyed;

  Counted::destroy();
  EXPECT_EQ(destroyed, destroyedBefore + 1);
  Counted::destroy();
  EXPECT_EQ(destroyed, destroyedBefore + 1);
  Counted* const second = Counted::getInstance();

  EXPECT_EQ(constructed, constructedBefore + 1);
  EXPECT_EQ(Counted::getInstance(), second);
  EXPECT_TRUE(second->ready);
}

TEST(ASingleton, IsMadeAtTheNextCallWhenItsConstructorThrows) {
  failuresLeft = 2;

  EXPECT_THROW(Fallible::getInstance(), std::runtime_error);
  EXPECT_THROW(Fallible::getInstance(), std::runtime_error);
  Fallible* made = nullptr;
  std::thread([&] { made = Fallible::getInstance(); }).join();  // would hang, were the class mutex still held

  EXPECT_NE(made, nullptr);
  EXPECT_EQ(Fallible::getInstance(), made);
}

TEST(ASingleton, IsDestroyedAtExitInReverseOrder) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        Early::getInstance();
        Late::getInstance();
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(said(captured), (Texts{"Early made", "Late made", "Late goes", "Late gone", "Early gone"}));
}

TEST(ASingleton, IsMadeAndDestroyedWhenADestructorAsksForItAtExit) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        Late::getInstance();
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(said(captured), (Texts{"Late made", "Late goes", "Early made", "Late gone", "Early gone"}));
}

TEST(ASingleton, OutlivesTheOneThatMadeItInItsConstructor) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        NestedOuter::getInstance();
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(said(captured), (Texts{"Early made", "Outer gone", "Early gone"}));
}

TEST(ASingleton, IsDestroyedOnceAfterASecondLife) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        Early::getInstance();
        Early::destroy();
        Early::getInstance();
        return 0;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(said(captured), (Texts{"Early made", "Early gone", "Early made", "Early gone"}));
}

TEST(ASingleton, IsNotDestroyedWhenTheProcessEndsAtOnce) {
  const CapturedStdErr captured;

  ChildProcess child(
      [] {
        Early::getInstance();
        return 0;
      },
      ChildProcess::End::AT_ONCE);

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(said(captured), (Texts{"Early made"}));
}

}  // namespace
