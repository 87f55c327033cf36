// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "LmFramework/LmSingletonFinalizer.h"
#include "LmFramework/LmSync.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"

namespace {

void say(const std::string& what) {
  const std::string line = what + "\n";
  if (write(STDERR_FILENO, line.data(), line.size()) < 0) {
    _exit(99);
  }
}

void a() { say("a"); }
void b() { say("b"); }
void c() { say("c"); }

/// Says when it is destroyed.
struct Witness {
  explicit Witness(const char* text) : name(text) {}
  ~Witness() { say(name); }
  const char* const name;
};

/// What a process says that runs `body` and exits.
template <class Body>
std::vector<std::string> saidAtExitAfter(const Body& body) {
  const CapturedStdErr captured;
  ChildProcess child(
      [&] {
        body();
        return 0;
      },
      ChildProcess::End::EXIT);
  EXPECT_EQ(child.wait(), 0);
  return captured.lines();
}

using Lines = std::vector<std::string>;

TEST(TheFinalizer, RunsTheNewestFirst) {
  EXPECT_EQ(saidAtExitAfter([] {
              LmSingletonFinalizer::addDestroyFunc(&a);
              LmSingletonFinalizer::addDestroyFunc(&b);
              LmSingletonFinalizer::addDestroyFunc(&c);
            }),
            (Lines{"c", "b", "a"}));
}

TEST(TheFinalizer, MovesAFunctionThatIsRegisteredAgainToTheFront) {
  EXPECT_EQ(saidAtExitAfter([] {
              LmSingletonFinalizer::addDestroyFunc(&a);
              LmSingletonFinalizer::addDestroyFunc(&b);
              LmSingletonFinalizer::addDestroyFunc(&c);
              LmSingletonFinalizer::addDestroyFunc(&b);
              LmSingletonFinalizer::addDestroyFunc(&b);
              LmSingletonFinalizer::addDestroyFunc(&a);
            }),
            (Lines{"a", "b", "c"}));
}

TEST(TheFinalizer, RunsBetweenTheDestructorsOfStaticObjects) {
  EXPECT_EQ(saidAtExitAfter([] {
              static const Witness before("before a");
              LmSingletonFinalizer::addDestroyFunc(&a);
              static const Witness between("between a and b");
              LmSingletonFinalizer::addDestroyFunc(&b);
              static const Witness after("after b");
            }),
            (Lines{"after b", "b", "between a and b", "a", "before a"}));
}

TEST(TheFinalizer, KeepsTheOthersInTheirPlacesWhenOneMoves) {
  EXPECT_EQ(saidAtExitAfter([] {
              LmSingletonFinalizer::addDestroyFunc(&a);
              static const Witness between("between a and b");
              LmSingletonFinalizer::addDestroyFunc(&b);
              LmSingletonFinalizer::addDestroyFunc(&c);
              LmSingletonFinalizer::addDestroyFunc(&b);
            }),
            (Lines{"b", "c", "between a and b", "a"}));
}

TEST(TheFinalizer, RunsWhatIsRegisteredWhileTheProcessExits) {
  EXPECT_EQ(saidAtExitAfter([] {
              LmSingletonFinalizer::addDestroyFunc(&a);
              LmSingletonFinalizer::addDestroyFunc([] {
                say("registering");
                LmSingletonFinalizer::addDestroyFunc(&c);
              });
            }),
            (Lines{"registering", "c", "a"}));
}

TEST(TheFinalizer, FindsTheMutexOfTheSourceAlive) {
  EXPECT_EQ(saidAtExitAfter([] {
              // Destroyed in the reverse order: the mutex would be before its witness speaks.
              static struct Source {
                const Witness witness{"mutex destroyed"};
                LmSync mutex;
              } source;
              LmSingletonFinalizer::addDestroyFunc(
                  [] { say(source.mutex.Lock() && source.mutex.Unlock() ? "locked" : "not locked"); });
            }),
            (Lines{"locked", "mutex destroyed"}));
}

void f0() { say("0"); }
void f1() { say("1"); }
void f2() { say("2"); }
void f3() { say("3"); }

TEST(TheFinalizer, RunsEachFunctionOnceWhenThreadsRace) {
  auto lines = saidAtExitAfter([] {
    const std::vector<LmSingletonFinalizer::DestroyFunc> functions{&f0, &f1, &f2, &f3};
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        for (int round = 0; round < 50; ++round) {
          for (const auto function : functions) {
            LmSingletonFinalizer::addDestroyFunc(function);
          }
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });

  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, (Lines{"0", "1", "2", "3"}));
}

}  // namespace
