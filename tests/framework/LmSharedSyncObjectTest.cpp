// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "LmFramework/posix/LockFile.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

static_assert(std::has_virtual_destructor_v<LmSharedSyncObject> && !std::is_copy_constructible_v<LmSharedSyncObject>);

namespace {

constexpr char DIED[] = "died, what it guards may be half written";

// A child that takes the lock, says so and keeps it until it is killed.
class Holder {
 public:
  explicit Holder(const char* name)
      : mChild([this, name] {
          const LmSharedSyncObject lock(name);
          lock.lock();
          mHolds->store(true);
          for (;;) {
            pause();
          }
          return 0;
        }) {
    EXPECT_TRUE(eventually([this] { return mHolds->load(); }));
  }

  void kill() {
    mChild.signal(SIGKILL);
    mChild.wait();
  }

 private:
  SharedValue<std::atomic<bool>> mHolds;
  ChildProcess mChild;
};

constexpr std::uintmax_t LOCK_FILE_SIZE = 4096;

// Whether the file still has its name and its length is not asked for each time.
void takeSoOftenThatTheFileIsLookedAt(const LmSharedSyncObject& lock) {
  for (int i = 0; i < 65; ++i) {
    ASSERT_TRUE(lock.lock());
    ASSERT_TRUE(lock.unlock());
  }
}

// Somebody else than the holder has begun to wait; it is said in the word's highest bit.
bool isAwaited(const char* name) {
  constexpr std::size_t WORD_LAST = 19;
  const std::string contents = sharedContents(std::string("LmLock.") + name);
  return contents.size() > WORD_LAST && (contents[WORD_LAST] & 0x80) != 0;
}

int lockOnce(const char* name) {
  const LmSharedSyncObject lock(name);
  return lock.lock() && lock.unlock() ? 0 : 1;
}

}  // namespace

TEST(ALockBetweenProcesses, LetsOneAtATimeCount) {
  constexpr int PROCESSES = 4;
  constexpr int ROUNDS = 500;
  const SharedValue<volatile int> counter;
  std::vector<std::unique_ptr<ChildProcess>> children;

  for (int i = 0; i < PROCESSES; ++i) {
    children.push_back(std::make_unique<ChildProcess>([&counter] {
      const LmSharedSyncObject lock("Counter");
      for (int round = 0; round < ROUNDS; ++round) {
        lock.lock();
        const int seen = *counter;
        sched_yield();
        *counter = seen + 1;
        lock.unlock();
      }
      return 0;
    }));
  }
  for (auto& child : children) {
    ASSERT_EQ(0, child->wait());
  }

  EXPECT_EQ(PROCESSES * ROUNDS, *counter);
}

TEST(ALockBetweenProcesses, IsWaitedForUntilItsHolderGivesItBack) {
  const LmSharedSyncObject lock("Waited");
  const SharedValue<std::atomic<bool>> taken;
  ASSERT_TRUE(lock.lock());
  ChildProcess waiter([&taken] {
    const LmSharedSyncObject same("Waited");
    same.lock();
    taken->store(true);
    return 0;
  });
  EXPECT_EQ(ChildProcess::HUNG, waiter.wait(std::chrono::milliseconds(200)));
  EXPECT_FALSE(taken->load());

  lock.unlock();

  EXPECT_EQ(0, waiter.wait());
  EXPECT_TRUE(taken->load());
}

TEST(ALockBetweenProcesses, IsWaitedForThroughSignals) {
  const LmSharedSyncObject lock("Signalled");
  lock.lock();
  ChildProcess waiter([] {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);  // without SA_RESTART
    return lockOnce("Signalled");
  });
  ASSERT_TRUE(eventually([] { return isAwaited("Signalled"); }));

  for (int i = 0; i < 50; ++i) {
    waiter.signal(SIGUSR1);
    pauseFor(std::chrono::milliseconds(1));
  }
  lock.unlock();

  EXPECT_EQ(0, waiter.wait());
}

TEST(ALockBetweenThreads, LetsOneAtATimeCount) {
  constexpr int THREADS = 4;
  constexpr int ROUNDS = 500;
  int counter = 0;
  std::vector<std::thread> threads;

  for (int i = 0; i < THREADS; ++i) {
    threads.emplace_back([&counter] {
      const LmSharedSyncObject lock("Threads");
      for (int round = 0; round < ROUNDS; ++round) {
        lock.lock();
        ++counter;
        lock.unlock();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(THREADS * ROUNDS, counter);
}

TEST(AHeldLock, IsReEntrantForItsThread) {
  const LmSharedSyncObject lock("Nested");

  EXPECT_TRUE(lock.lock());
  EXPECT_TRUE(lock.lock());
  EXPECT_TRUE(lock.lock());
  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(lock.unlock());
  EXPECT_FALSE(lockFileIsFree("LmLock.Nested"));

  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(lockFileIsFree("LmLock.Nested"));
  EXPECT_FALSE(lock.unlock());
}

TEST(AHeldLock, IsGivenBackByItsHolderOnly) {
  const LmSharedSyncObject lock("Stranger");
  lock.lock();
  bool given = true;

  std::thread([&] { given = lock.unlock(); }).join();

  EXPECT_FALSE(given);
  EXPECT_FALSE(lockFileIsFree("LmLock.Stranger"));
  EXPECT_TRUE(lock.unlock());
}

TEST(ALockThatNobodyTook, CannotBeGivenBack) {
  const LmSharedSyncObject lock("Untaken");

  EXPECT_FALSE(lock.unlock());
}

TEST(TwoObjectsOfOneName, AreOneLockForTheThread) {
  const LmSharedSyncObject first("Twice");
  const LmSharedSyncObject second("Twice");
  first.lock();

  EXPECT_TRUE(second.lock());
  EXPECT_TRUE(first.unlock());
  EXPECT_FALSE(lockFileIsFree("LmLock.Twice"));
  EXPECT_TRUE(second.unlock());
  EXPECT_TRUE(lockFileIsFree("LmLock.Twice"));
}

TEST(TwoObjectsOfOneName, ExcludeTwoThreads) {
  const LmSharedSyncObject first("TwoThreads");
  const LmSharedSyncObject second("TwoThreads");
  std::atomic<bool> taken{false};
  first.lock();

  std::thread other([&] {
    second.lock();
    taken = true;
    second.unlock();
  });
  pauseFor(std::chrono::milliseconds(50));
  EXPECT_FALSE(taken);
  first.unlock();
  other.join();

  EXPECT_TRUE(taken);
}

TEST(TwoNames, AreTwoLocks) {
  const LmSharedSyncObject first("First");
  first.lock();

  ChildProcess other([] { return lockOnce("Second"); });

  EXPECT_EQ(0, other.wait());
  EXPECT_TRUE(first.unlock());
}

TEST(AKilledHolder, GivesTheLockToTheNextWithOneLogLine) {
  Holder holder("Killed");
  const LmSharedSyncObject lock("Killed");
  const LogCapture log;

  holder.kill();

  EXPECT_TRUE(lock.lock());
  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count(std::string("Killed: its holder")));
  EXPECT_EQ(1U, log.count(DIED));
  lock.unlock();
  lock.lock();
  lock.unlock();
  EXPECT_EQ(1U, log.lines().size());
}

TEST(AKilledHolder, GivesTheLockToOneThatWaits) {
  Holder holder("KilledWaited");
  ChildProcess waiter([] { return lockOnce("KilledWaited"); });
  ASSERT_TRUE(eventually([] { return isAwaited("KilledWaited"); }));

  holder.kill();

  EXPECT_EQ(0, waiter.wait());
}

TEST(AKilledHolder, GivesTheLockToOneOfManyThatWait) {
  constexpr int PROCESSES = 8;
  Holder holder("KilledMany");
  const SharedValue<std::atomic<int>> ready;
  const SharedValue<volatile int> counter;
  std::vector<std::unique_ptr<ChildProcess>> waiters;
  for (int i = 0; i < PROCESSES; ++i) {
    waiters.push_back(std::make_unique<ChildProcess>([&] {
      const LmSharedSyncObject lock("KilledMany");
      ready->fetch_add(1);
      lock.lock();
      const int seen = *counter;
      sched_yield();
      *counter = seen + 1;
      return lock.unlock() ? 0 : 1;
    }));
  }
  ASSERT_TRUE(eventually([&] { return ready->load() == PROCESSES && isAwaited("KilledMany"); }));

  holder.kill();

  for (auto& waiter : waiters) {
    EXPECT_EQ(0, waiter->wait());
  }
  EXPECT_EQ(PROCESSES, *counter);
}

TEST(AHolderThatExits, GivesTheLockToTheNextWithOneLogLine) {
  ChildProcess holder(
      [] {
        const LmSharedSyncObject lock("Exits");
        return lock.lock() ? 0 : 1;
      },
      ChildProcess::End::EXIT);
  ASSERT_EQ(0, holder.wait());
  const LogCapture log;

  EXPECT_EQ(0, lockOnce("Exits"));

  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count(DIED));
}

TEST(AHolderThatRunsAnotherProgram, GivesTheLockToTheNextWithOneLogLine) {
  int input[2];
  ASSERT_EQ(0, pipe(input));
  ChildProcess holder([&] {
    const LmSharedSyncObject lock("Execs");
    lock.lock();
    dup2(input[0], STDIN_FILENO);
    close(input[0]);
    close(input[1]);
    execl("/bin/sh", "sh", "-c", "read line; exit 7", nullptr);
    return 1;
  });
  const LmSharedSyncObject lock("Execs");
  ASSERT_TRUE(eventually([] { return sharedContents("LmLock.Execs").size() == LOCK_FILE_SIZE; }));
  ASSERT_TRUE(eventually([] { return !lockFileIsFree("LmLock.Execs"); }));
  const LogCapture log;

  EXPECT_TRUE(lock.lock());

  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("(process " + std::to_string(holder.pid()) + ") died"));
  EXPECT_TRUE(lock.unlock());
  close(input[0]);
  close(input[1]);
  EXPECT_EQ(7, holder.wait()) << "it had died otherwise";
}

TEST(AThreadThatEndsWhileItHoldsTheLock, GivesItUpWithOneLogLine) {
  const LmSharedSyncObject lock("Ended");
  const LmSharedSyncObject other("EndedToo");
  const LogCapture log;

  std::thread([&] {
    lock.lock();
    lock.lock();
    other.lock();
    other.unlock();
  }).join();

  EXPECT_TRUE(lockFileIsFree("LmLock.Ended"));
  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Ended: a thread that held it has ended"));
  EXPECT_TRUE(lock.lock());
  EXPECT_TRUE(lock.unlock());
  EXPECT_FALSE(lock.unlock());
}

TEST(AThreadThatEndsWhileItHoldsTheLock, LeavesItToThreadsAndProcessesThatWait) {
  const LmSharedSyncObject lock("EndedWaited");
  std::atomic<bool> held{false};
  std::atomic<bool> end{false};
  std::thread holder([&] {
    lock.lock();
    held = true;
    while (!end) {
      sched_yield();
    }
  });
  ASSERT_TRUE(eventually([&] { return held.load(); }));
  ChildProcess process([] { return lockOnce("EndedWaited"); });
  ASSERT_TRUE(eventually([] { return isAwaited("EndedWaited"); }));
  std::thread thread([&] {
    lock.lock();
    lock.unlock();
  });

  end = true;

  holder.join();
  thread.join();
  EXPECT_EQ(0, process.wait());
}

// The log lines name the holder, after one second and again after ten more.
TEST(AHolderThatIsStopped, IsWaitedForAndNamedInTheLog) {
  const SharedValue<std::atomic<bool>> held;
  ChildProcess holder([&held] {
    const LmSharedSyncObject lock("Stopped");
    lock.lock();
    held->store(true);
    raise(SIGSTOP);
    return lock.unlock() ? 0 : 1;
  });
  ASSERT_TRUE(eventually([&] { return held->load(); }));
  const LmSharedSyncObject lock("Stopped");
  const LogCapture log;
  std::atomic<bool> taken{false};
  std::thread waiter([&] {
    lock.lock();
    taken = true;
    lock.unlock();
  });
  const std::string line = " s so far, process " + std::to_string(holder.pid()) + " holds it";

  EXPECT_TRUE(log.waitFor("Stopped: waited for 1" + line));
  EXPECT_TRUE(log.waitFor("Stopped: waited for 11" + line));
  EXPECT_FALSE(taken);
  EXPECT_EQ(2U, log.lines().size());
  holder.signal(SIGCONT);

  waiter.join();
  EXPECT_EQ(0, holder.wait());
  EXPECT_EQ(0U, log.count(DIED));
}

TEST(AHolderThatGaveTheLockBack, LeavesNoLogLine) {
  ChildProcess former([] { return lockOnce("Proper"); });
  ASSERT_EQ(0, former.wait());
  const LogCapture log;

  EXPECT_EQ(0, lockOnce("Proper"));

  EXPECT_TRUE(log.lines().empty());
}

TEST(ManyProcessesAtOnce, MakeOneFileThatAllMayOpen) {
  constexpr int PROCESSES = 12;
  const SharedValue<std::atomic<bool>> start;
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 0; i < PROCESSES; ++i) {
    children.push_back(std::make_unique<ChildProcess>([&start] {
      umask(077);
      while (!start->load()) {
        sched_yield();
      }
      const LmSharedSyncObject lock("Race");
      const bool locked = lock.lock();
      return locked && sharedMode("LmLock.Race") == 0660 && lock.unlock() ? 0 : 1;
    }));
  }

  start->store(true);

  for (auto& child : children) {
    EXPECT_EQ(0, child->wait());
  }
  EXPECT_EQ(0660U, sharedMode("LmLock.Race"));
}

TEST(AForkWhileTheLockIsHeld, LeavesItToTheParentAlone) {
  const LmSharedSyncObject lock("Forked");
  lock.lock();
  lock.lock();

  ChildProcess child([&] { return lock.unlock() ? 1 : 0; }, ChildProcess::End::EXIT);

  EXPECT_EQ(0, child.wait());
  EXPECT_FALSE(lockFileIsFree("LmLock.Forked"));
  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(lock.unlock());
  EXPECT_FALSE(lock.unlock());
}

TEST(AForkWhileTheLockIsHeld, LetsTheChildTakeItAfterTheParent) {
  const LmSharedSyncObject lock("ForkedTaken");
  const SharedValue<std::atomic<bool>> taken;
  lock.lock();

  ChildProcess child([&] {
    const bool locked = lock.lock();
    taken->store(true);
    return locked && lock.unlock() ? 0 : 1;
  });
  EXPECT_EQ(ChildProcess::HUNG, child.wait(std::chrono::milliseconds(200)));
  EXPECT_FALSE(taken->load());
  lock.unlock();

  EXPECT_EQ(0, child.wait());
}

TEST(AForkWhileTheLockIsHeld, DoesNotLetTheChildKeepItAfterTheParentsDeath) {
  const SharedValue<std::atomic<pid_t>> grandchild;
  ChildProcess parent([&] {
    const LmSharedSyncObject lock("Outlived");
    lock.lock();
    const pid_t pid = fork();
    if (pid == 0) {
      grandchild->store(getpid());
    }
    for (;;) {
      pause();
    }
    return 0;
  });
  ASSERT_TRUE(eventually([&] { return grandchild->load() != 0; }));

  parent.signal(SIGKILL);
  parent.wait();

  ChildProcess next([] { return lockOnce("Outlived"); });
  EXPECT_EQ(0, next.wait());
  kill(grandchild->load(), SIGKILL);
}

// Threads that were just taking, waiting for or giving back a lock do not exist in the child.
TEST(AForkWhileOtherThreadsUseTheLock, LeavesTheChildALockThatWorks) {
  const LmSharedSyncObject lock("Busy");
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        lock.lock();
        lock.unlock();
      }
    });
  }

  for (int i = 0; i < 20; ++i) {
    ChildProcess child([&] { return lock.lock() && lock.unlock() ? 0 : 1; });
    EXPECT_EQ(0, child.wait());
  }

  stop = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
}

class ALockFileThatWasCut : public testing::TestWithParam<unsigned> {};

TEST_P(ALockFileThatWasCut, WhileTheLockWasFreeIsRepairedWithOneLogLine) {
  const LmSharedSyncObject lock("Cut");
  const LogCapture log;
  lock.lock();
  lock.unlock();
  std::filesystem::resize_file(sharedPath("LmLock.Cut"), GetParam());

  takeSoOftenThatTheFileIsLookedAt(lock);

  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Cut: its file was overwritten or cut short"));
  EXPECT_EQ(LOCK_FILE_SIZE, std::filesystem::file_size(sharedPath("LmLock.Cut")));
  EXPECT_EQ(0, lockOnce("Cut"));
}

TEST_P(ALockFileThatWasCut, WhileTheLockWasHeldIsRepairedWithOneLogLine) {
  const LmSharedSyncObject lock("Cut");
  const LogCapture log;
  lock.lock();
  std::filesystem::resize_file(sharedPath("LmLock.Cut"), GetParam());

  EXPECT_TRUE(lock.unlock());
  takeSoOftenThatTheFileIsLookedAt(lock);

  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Cut: its file was overwritten"));
  EXPECT_EQ(LOCK_FILE_SIZE, std::filesystem::file_size(sharedPath("LmLock.Cut")));
}

INSTANTIATE_TEST_SUITE_P(To, ALockFileThatWasCut, testing::Values(0, 1, 4, 15, 16, 17, 19, 20, 64, 100, 4095),
                         testing::PrintToStringParamName());

TEST(ALockFile, MadeEmptyForOthersIsUsedWithoutALogLine) {
  std::ofstream(sharedPath("LmLock.Empty"), std::ios::binary).flush();
  const LogCapture log;

  EXPECT_EQ(0, lockOnce("Empty"));

  EXPECT_EQ(LOCK_FILE_SIZE, std::filesystem::file_size(sharedPath("LmLock.Empty")));
  EXPECT_TRUE(log.lines().empty());
}

TEST(ALockFile, FullOfGarbageIsRepairedWithOneLogLine) {
  const LmSharedSyncObject lock("Garbage");
  const LogCapture log;
  lock.lock();
  lock.unlock();
  overwriteShared("LmLock.Garbage", std::string(5000, '\xA5'));

  EXPECT_TRUE(lock.lock());

  EXPECT_FALSE(lockFileIsFree("LmLock.Garbage"));
  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(lock.lock());
  EXPECT_TRUE(lock.unlock());
  EXPECT_EQ(1U, log.count("Garbage: its file was overwritten or cut short and is repaired"));
  EXPECT_EQ(1U, log.lines().size());
}

TEST(ALockFile, FilledWithGarbageWhileItIsWaitedForIsRepairedByWhoWaits) {
  const LmSharedSyncObject lock("GarbageWaited");
  lock.lock();
  ChildProcess waiter([] { return lockOnce("GarbageWaited"); });
  ASSERT_TRUE(eventually([] { return isAwaited("GarbageWaited"); }));

  overwriteShared("LmLock.GarbageWaited", std::string(LOCK_FILE_SIZE, '\x5A'));

  EXPECT_EQ(0, waiter.wait());
  const LogCapture log;
  EXPECT_TRUE(lock.unlock());
  EXPECT_EQ(1U, log.count("another process may have held it too"));
}

TEST(ALockFile, OfAnotherVersionIsLeftAlone) {
  // Version 2 and a size of 8192, with the checksum that makes it whole.
  const std::string other("LmLk\x02\0\0\0\0\x20\0\0\x61\x16\x08\xFE", 16);
  std::ofstream(sharedPath("LmLock.Newer"), std::ios::binary) << other;
  const LogCapture log;
  const LmSharedSyncObject lock("Newer");

  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(lock.lock());
    EXPECT_TRUE(lock.unlock());
  }

  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Newer: no lock on its file (Protocol not supported)"));
  EXPECT_EQ(other, sharedContents("LmLock.Newer"));
}

TEST(ALockFile, ThatWasRemovedIsMadeAgain) {
  const LmSharedSyncObject lock("Removed");
  const LogCapture log;
  lock.lock();
  std::filesystem::remove(sharedPath("LmLock.Removed"));
  EXPECT_TRUE(lock.unlock());

  takeSoOftenThatTheFileIsLookedAt(lock);

  EXPECT_TRUE(lock.lock());
  ASSERT_TRUE(std::filesystem::exists(sharedPath("LmLock.Removed")));
  EXPECT_FALSE(lockFileIsFree("LmLock.Removed"));
  EXPECT_TRUE(lock.unlock());
  EXPECT_TRUE(log.lines().empty());
}

TEST(ALockFile, RemovedWhileItIsWaitedForIsLeftByWhoWaits) {
  const LmSharedSyncObject lock("RemovedWaited");
  lock.lock();
  ChildProcess waiter([] { return lockOnce("RemovedWaited"); });
  ASSERT_TRUE(eventually([] { return isAwaited("RemovedWaited"); }));

  std::filesystem::remove(sharedPath("LmLock.RemovedWaited"));

  EXPECT_EQ(0, waiter.wait());
  EXPECT_TRUE(lock.unlock());
}

TEST(ALockFile, IsClosedWithTheLastObjectOfItsName) {
  const auto descriptors = [] {
    const std::filesystem::directory_iterator folder("/proc/self/fd");
    return std::distance(begin(folder), end(folder));
  };
  const auto before = descriptors();
  auto first = std::make_unique<LmSharedSyncObject>("Closed");
  auto second = std::make_unique<LmSharedSyncObject>("Closed");
  first->lock();
  first->unlock();

  first.reset();
  EXPECT_EQ(before + 1, descriptors());
  second.reset();

  EXPECT_EQ(before, descriptors());
}

TEST(ALockWhoseFileCannotBeOpened, StillExcludesTheThreadsOfTheProcess) {
  std::filesystem::create_directory(sharedPath("LmLock.Folder"));
  const LogCapture log;
  const LmSharedSyncObject lock("Folder");
  int counter = 0;

  const auto count = [&] {
    for (int i = 0; i < 200; ++i) {
      EXPECT_FALSE(lock.lock());
      EXPECT_FALSE(lock.lock());
      ++counter;
      EXPECT_TRUE(lock.unlock());
      EXPECT_TRUE(lock.unlock());
    }
  };
  std::thread other(count);
  count();
  other.join();

  EXPECT_EQ(400, counter);
  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Folder: no lock on its file"));
}

TEST(ALockWhosePlacesAreAllTaken, IsALockOfThisProcessOnlyUntilOneIsFree) {
  std::vector<std::unique_ptr<LockFile>> files;
  for (unsigned slot = 1; slot <= LockWord::SLOTS; ++slot) {
    files.push_back(std::make_unique<LockFile>("LmLock.Full"));
    bool repaired = false;
    ASSERT_EQ(0, files.back()->open(repaired));
  }
  const LogCapture log;
  const LmSharedSyncObject lock("Full");

  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(lock.lock());
    EXPECT_TRUE(lock.unlock());
  }
  EXPECT_EQ(1U, log.lines().size());
  EXPECT_EQ(1U, log.count("Full: no lock on its file"));

  files.pop_back();
  EXPECT_TRUE(lock.lock());
  EXPECT_FALSE(lockFileIsFree("LmLock.Full"));
  EXPECT_TRUE(lock.unlock());
}

// Nobody is woken then; whoever sleeps looks by himself.
TEST(AWaiter, WhoseMarkIsWipedOutOfTheWordGetsTheLockAllTheSame) {
  const LmSharedSyncObject lock("Unmarked");
  lock.lock();
  ChildProcess waiter([] { return lockOnce("Unmarked"); });
  ASSERT_TRUE(eventually([] { return isAwaited("Unmarked"); }));
  std::string page = sharedContents("LmLock.Unmarked");
  page[19] = static_cast<char>(page[19] & 0x7F);
  overwriteShared("LmLock.Unmarked", page);

  EXPECT_TRUE(lock.unlock());

  EXPECT_EQ(0, waiter.wait());
}

TEST(ALockWhoseFileCannotBeOpened, TriesItAgainEachTime) {
  std::filesystem::create_directory(sharedPath("LmLock.Later"));
  const LogCapture log;
  const LmSharedSyncObject lock("Later");
  EXPECT_FALSE(lock.lock());
  EXPECT_TRUE(lock.unlock());

  std::filesystem::remove(sharedPath("LmLock.Later"));

  EXPECT_TRUE(lock.lock());
  EXPECT_FALSE(lockFileIsFree("LmLock.Later"));
  EXPECT_TRUE(lock.unlock());
}

class ANameThatNoFileCanHave : public testing::TestWithParam<const char*> {};

TEST_P(ANameThatNoFileCanHave, IsALockOfThisProcessOnly) {
  const LogCapture log;
  const LmSharedSyncObject lock(GetParam());

  EXPECT_FALSE(lock.lock());

  EXPECT_TRUE(lock.unlock());
  EXPECT_EQ(1U, log.lines().size());
}

static const std::string TOO_LONG(201, 'x');
INSTANTIATE_TEST_SUITE_P(Names, ANameThatNoFileCanHave, testing::Values(nullptr, "", "a/b", "/a", TOO_LONG.c_str()),
                         [](const auto& instance) { return "Number" + std::to_string(instance.index); });

TEST(ANameOf200Bytes, IsALock) {
  const std::string name(200, 'n');

  EXPECT_EQ(0, lockOnce(name.c_str()));

  EXPECT_EQ(0660U, sharedMode("LmLock." + name));
}
