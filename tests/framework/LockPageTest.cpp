// SPDX-License-Identifier: Apache-2.0
// What the process does when a bus error comes: each case is a child that maps its first lock.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "LmFramework/posix/LockPage.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

namespace {

constexpr int PASSED_ON = 7;
constexpr std::size_t PAGE_SIZE_AT_LEAST = 4096;

void handleBy(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigaction(SIGBUS, &action, nullptr);
}

struct sigaction gProgramsFormer;

// What a program does that wants to be sure: its handler goes in again, and passes on what it does not know.
void handleAndPassOn() {
  struct sigaction action = {};
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = [](int number, siginfo_t* info, void* context) {
    if ((gProgramsFormer.sa_flags & SA_SIGINFO) != 0) {
      gProgramsFormer.sa_sigaction(number, info, context);
    } else if (gProgramsFormer.sa_handler == SIG_DFL) {
      handleBy(SIG_DFL);
    }
  };
  sigaction(SIGBUS, &action, &gProgramsFormer);
}

sigjmp_buf gAfterTheAccess;

void useALock() {
  const LmSharedSyncObject lock("First");
  lock.lock();
  lock.unlock();
}

// A load from a mapping that somebody cut off, and that is none of a lock's.
void causeABusError() {
  const int descriptor = shm_open("/Other", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (ftruncate(descriptor, PAGE_SIZE_AT_LEAST) != 0) {
    _exit(100);
  }
  void* memory = mmap(nullptr, PAGE_SIZE_AT_LEAST, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED || ftruncate(descriptor, 0) != 0) {
    _exit(101);
  }
  *static_cast<volatile int*>(memory) = 1;
}

}  // namespace

TEST(ABusErrorOfTheProgram, GoesToTheHandlerThatWasThereBefore) {
  ChildProcess child([] {
    handleBy([](int) { _exit(PASSED_ON); });
    useALock();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(PASSED_ON, child.wait());
}

TEST(ABusErrorOfTheProgram, GoesToTheHandlerThatWasThereBeforeWithItsAddress) {
  ChildProcess child([] {
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int number, siginfo_t* info, void* context) {
      _exit(number == SIGBUS && info->si_code == BUS_ADRERR && info->si_addr != nullptr && context != nullptr
                ? PASSED_ON
                : 1);
    };
    sigaction(SIGBUS, &action, nullptr);
    useALock();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(PASSED_ON, child.wait());
}

TEST(ABusErrorOfTheProgram, KillsItWhereNobodyHandlesIt) {
  ChildProcess child([] {
    handleBy(SIG_DFL);
    useALock();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(-SIGBUS, child.wait());
}

TEST(ABusErrorOfTheProgram, KillsItEvenWhenItWasIgnored) {
  ChildProcess child([] {
    handleBy(SIG_IGN);
    useALock();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(-SIGBUS, child.wait());
}

TEST(ABusErrorOfTheProgram, KillsItWhenTwoHandlersPassItOnToEachOther) {
  ChildProcess child([] {
    handleAndPassOn();
    useALock();
    handleAndPassOn();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(-SIGBUS, child.wait());
}

TEST(ABusErrorOfTheProgram, MayBeJumpedOutOfAsOftenAsItComes) {
  constexpr int TIMES = 100;
  ChildProcess child([] {
    handleBy([](int) { siglongjmp(gAfterTheAccess, 1); });
    useALock();
    for (volatile int i = 0; i < TIMES; i = i + 1) {
      if (sigsetjmp(gAfterTheAccess, 1) == 0) {
        causeABusError();
        return 1;
      }
    }
    return PASSED_ON;
  });

  EXPECT_EQ(PASSED_ON, child.wait());
}

TEST(ABusErrorOfTheProgram, IsHandledWithTheSignalsBlockedThatItsHandlerAskedFor) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  // What is asked for here is the handler's mask, which its runtime replaces; the other lanes run it.
  GTEST_SKIP() << "this sanitizer runs handlers with signals blocked that it chooses itself";
#endif
#endif
  ChildProcess child([] {
    struct sigaction action = {};
    sigaddset(&action.sa_mask, SIGUSR1);
    action.sa_flags = SA_NODEFER;
    action.sa_handler = [](int) {
      sigset_t blocked;
      sigprocmask(SIG_SETMASK, nullptr, &blocked);
      _exit(sigismember(&blocked, SIGUSR1) == 1 && sigismember(&blocked, SIGBUS) == 0 ? PASSED_ON : 1);
    };
    sigaction(SIGBUS, &action, nullptr);
    useALock();
    causeABusError();
    return 1;
  });

  EXPECT_EQ(PASSED_ON, child.wait());
}

TEST(ABusErrorThatSomebodySent, KillsWhereNobodyHandlesIt) {
  ChildProcess child([] {
    handleBy(SIG_DFL);
    useALock();
    raise(SIGBUS);
    return 1;
  });

  EXPECT_EQ(-SIGBUS, child.wait());
}

TEST(ABusErrorThatSomebodySent, IsIgnoredWhereItWas) {
  ChildProcess child([] {
    handleBy(SIG_IGN);
    useALock();
    raise(SIGBUS);
    return 0;
  });

  EXPECT_EQ(0, child.wait());
}

// Cut at any instruction of lock() and unlock(), in several processes.
TEST(AFileThatIsCutAllTheTime, CrashesAndHangsNobody) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  // A bus error in the middle of an atomic would wait for its own thread for ever; the other lanes run it.
  GTEST_SKIP() << "this sanitizer locks something of its own around an atomic instruction, and again in a handler";
#endif
#endif
  constexpr unsigned CUTS = 3000;
  const SharedValue<std::atomic<bool>> stop;
  const SharedValue<std::atomic<unsigned>> holds;
  const auto lockUntilStopped = [&] {
    const LogCapture log;  // every find is a line
    const LmSharedSyncObject lock("CutAlways");
    while (!stop->load()) {
      if (!lock.lock() || !lock.unlock()) {
        return 1;
      }
      holds->fetch_add(1);
    }
    return 0;
  };
  ChildProcess one(lockUntilStopped);
  ChildProcess two(lockUntilStopped);
  ASSERT_TRUE(eventually([&] { return holds->load() > 0; }));

  for (unsigned cut = 0; cut < CUTS; ++cut) {
    std::filesystem::resize_file(sharedPath("LmLock.CutAlways"), 0);
    const unsigned before = holds->load();
    ASSERT_TRUE(eventually([&] { return holds->load() > before + cut % 100; })) << "after cut " << cut;
  }

  stop->store(true);
  EXPECT_EQ(0, one.wait());
  EXPECT_EQ(0, two.wait());
}

TEST(ACutFile, IsSurvivedByEveryThread) {
  ChildProcess child([] {
    const LogCapture log;
    bool survived = false;
    const LmSharedSyncObject lock("Thread");
    std::thread([&] {
      lock.lock();
      std::filesystem::resize_file(sharedPath("LmLock.Thread"), 0);
      survived = lock.unlock() && lock.lock() && lock.unlock();
    }).join();
    return survived ? 0 : 1;
  });

  EXPECT_EQ(0, child.wait());
}
