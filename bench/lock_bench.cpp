// SPDX-License-Identifier: Apache-2.0
// What locking and giving back cost, while nobody else wants the lock and with several processes that all want it, with
// this port's named lock and with what it could have been made of. Run it as scripts/private-shm lock_bench.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

namespace {

int checked(int result, const char* what) {
  if (result == -1) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

/// A T in memory that the children of this process share with it, all zero at first.
template <class T>
class Shared {
 public:
  Shared() {
    void* memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
      throw std::system_error(errno, std::generic_category(), "mmap");
    }
    mObject = new (memory) T();
  }

  ~Shared() { munmap(mObject, sizeof(T)); }

  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;

  T* operator->() const { return mObject; }
  T& operator*() const { return *mObject; }

 private:
  T* mObject;
};

// Each of these is opened by the process that uses it.

class NamedLock {
 public:
  bool lock() const { return mLock.lock(); }
  bool unlock() const { return mLock.unlock(); }

 private:
  const LmSharedSyncObject mLock{"Bench"};
};

class FileLock {
 public:
  FileLock() : mFile(checked(open("/dev/shm/LmBench.flock", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open")) {}
  ~FileLock() { close(mFile); }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  bool lock() const { return flock(mFile, LOCK_EX) == 0; }
  bool unlock() const { return flock(mFile, LOCK_UN) == 0; }

 private:
  const int mFile;
};

class ByteLock {
 public:
  ByteLock() : mFile(checked(open("/dev/shm/LmBench.byte", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open")) {}
  ~ByteLock() { close(mFile); }
  ByteLock(const ByteLock&) = delete;
  ByteLock& operator=(const ByteLock&) = delete;

  bool lock() const { return set(F_WRLCK); }
  bool unlock() const { return set(F_UNLCK); }

 private:
  bool set(short type) const {
    struct flock range = {};
    range.l_whence = SEEK_SET;
    range.l_len = 1;
    range.l_type = type;
    return fcntl(mFile, F_OFD_SETLKW, &range) == 0;
  }

  const int mFile;
};

class RobustMutex {
 public:
  RobustMutex() {
    const int file = checked(open("/dev/shm/LmBench.mutex", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open");
    checked(ftruncate(file, sizeof(pthread_mutex_t)), "ftruncate");
    void* memory = mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (memory == MAP_FAILED) {
      throw std::system_error(errno, std::generic_category(), "mmap");
    }
    mMutex = static_cast<pthread_mutex_t*>(memory);
  }
  ~RobustMutex() { munmap(mMutex, sizeof(pthread_mutex_t)); }
  RobustMutex(const RobustMutex&) = delete;
  RobustMutex& operator=(const RobustMutex&) = delete;

  /// Once, by one process, before anybody locks.
  void initialise() const {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }

  bool lock() const { return pthread_mutex_lock(mMutex) == 0; }
  bool unlock() const { return pthread_mutex_unlock(mMutex) == 0; }

 private:
  pthread_mutex_t* mMutex;
};

template <class Lock>
void initialise(const Lock& /*lock*/) {}
void initialise(const RobustMutex& lock) { lock.initialise(); }

template <class Lock>
void alone(benchmark::State& state) {
  const Lock lock;
  initialise(lock);
  for ([[maybe_unused]] auto turn : state) {
    if (!lock.lock() || !lock.unlock()) {
      state.SkipWithError("other processes are not excluded");
      break;
    }
  }
}
BENCHMARK_TEMPLATE(alone, NamedLock)->Name("lock/named/1");
BENCHMARK_TEMPLATE(alone, FileLock)->Name("lock/flock/1");
BENCHMARK_TEMPLATE(alone, ByteLock)->Name("lock/byte/1");
BENCHMARK_TEMPLATE(alone, RobustMutex)->Name("lock/robust/1");

void nested(benchmark::State& state) {
  const NamedLock lock;
  lock.lock();
  for ([[maybe_unused]] auto turn : state) {
    lock.lock();
    lock.unlock();
  }
  lock.unlock();
}
BENCHMARK(nested)->Name("lock/named_nested/1");

struct Contest {
  std::atomic<unsigned> ready;
  std::atomic<bool> go;
  std::atomic<bool> stop;
  std::atomic<unsigned long> passes;  // what each of them has counted for itself
  unsigned long guarded;              // the same, guarded by the lock that is measured
};

constexpr auto CONTEST = std::chrono::milliseconds(40);

template <class Lock>
[[noreturn]] void contend(Contest& contest) {
  const Lock lock;
  ++contest.ready;
  while (!contest.go) {
    sched_yield();
  }
  unsigned long passes = 0;
  for (; !contest.stop; ++passes) {
    lock.lock();
    benchmark::DoNotOptimize(++contest.guarded);
    lock.unlock();
  }
  contest.passes += passes;
  _exit(0);
}

// The time of one pass: that of all of them together, by how many they were.
template <class Lock>
void contended(benchmark::State& state) {
  const auto count = static_cast<unsigned>(state.range(0));
  initialise(Lock());
  for ([[maybe_unused]] auto turn : state) {
    const Shared<Contest> contest;
    std::vector<pid_t> children;
    for (unsigned i = 0; i < count; ++i) {
      children.push_back(checked(fork(), "fork"));
      if (children.back() == 0) {
        contend<Lock>(*contest);
      }
    }
    while (contest->ready < count) {
      sched_yield();
    }
    const auto begin = std::chrono::steady_clock::now();
    contest->go = true;
    std::this_thread::sleep_for(CONTEST);
    contest->stop = true;
    for (const pid_t child : children) {
      waitpid(child, nullptr, 0);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    if (contest->guarded != contest->passes) {
      state.SkipWithError("two were in at once");
      break;
    }
    state.SetIterationTime(taken.count() / static_cast<double>(contest->passes));
  }
}

void processes(benchmark::internal::Benchmark* bench) { bench->Arg(2)->Arg(4)->Arg(8)->Iterations(1)->UseManualTime(); }
BENCHMARK_TEMPLATE(contended, NamedLock)->Name("lock/named")->Apply(processes);
BENCHMARK_TEMPLATE(contended, FileLock)->Name("lock/flock")->Apply(processes);
BENCHMARK_TEMPLATE(contended, RobustMutex)->Name("lock/robust")->Apply(processes);

}  // namespace

BENCHMARK_MAIN();
