// SPDX-License-Identifier: Apache-2.0
// What locking and giving back cost while nobody else wants the lock, with this port's named lock and with what it
// could have been made of. Run it as scripts/private-shm lock_bench on an idle machine.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <system_error>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

namespace {

int checked(int result, const char* what) {
  if (result == -1) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

void namedLock(benchmark::State& state) {
  const LmSharedSyncObject lock("Bench");
  for (auto unused : state) {
    if (!lock.lock() || !lock.unlock()) {
      state.SkipWithError("other processes are not excluded");
      break;
    }
  }
}
BENCHMARK(namedLock);

void namedLockNested(benchmark::State& state) {
  const LmSharedSyncObject lock("Bench");
  lock.lock();
  for (auto unused : state) {
    lock.lock();
    lock.unlock();
  }
  lock.unlock();
}
BENCHMARK(namedLockNested);

void fileLock(benchmark::State& state) {
  const int file = checked(open("/dev/shm/LmBench.flock", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open");
  for (auto unused : state) {
    checked(flock(file, LOCK_EX), "flock");
    checked(flock(file, LOCK_UN), "flock");
  }
  close(file);
}
BENCHMARK(fileLock);

void byteLock(benchmark::State& state) {
  const int file = checked(open("/dev/shm/LmBench.byte", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open");
  struct flock range = {};
  range.l_whence = SEEK_SET;
  range.l_len = 1;
  for (auto unused : state) {
    range.l_type = F_WRLCK;
    checked(fcntl(file, F_OFD_SETLKW, &range), "fcntl");
    range.l_type = F_UNLCK;
    checked(fcntl(file, F_OFD_SETLK, &range), "fcntl");
  }
  close(file);
}
BENCHMARK(byteLock);

void robustMutex(benchmark::State& state) {
  const int file = checked(open("/dev/shm/LmBench.mutex", O_RDWR | O_CREAT | O_CLOEXEC, 0600), "open");
  checked(ftruncate(file, sizeof(pthread_mutex_t)), "ftruncate");
  void* memory = mmap(nullptr, sizeof(pthread_mutex_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  auto* mutex = new (memory) pthread_mutex_t;
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  for (auto unused : state) {
    pthread_mutex_lock(mutex);
    pthread_mutex_unlock(mutex);
  }
  pthread_mutex_destroy(mutex);
  munmap(memory, sizeof(pthread_mutex_t));
  close(file);
}
BENCHMARK(robustMutex);

}  // namespace

BENCHMARK_MAIN();
