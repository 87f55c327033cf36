// SPDX-License-Identifier: Apache-2.0
#ifndef TRUST_LOCKWORKERS_H
#define TRUST_LOCKWORKERS_H

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <system_error>

#include "LmFramework/LmDbgOutput.h"

/// What the lock's log says in a worker, counted instead of printed.
class CountedLog {
 public:
  CountedLog() { LmDbgOutput::setSink(&CountedLog::take, this); }
  ~CountedLog() { LmDbgOutput::setSink(nullptr, nullptr); }
  CountedLog(const CountedLog&) = delete;
  CountedLog& operator=(const CountedLog&) = delete;

  /// Lines that tell of a holder's death.
  unsigned deaths() const { return mDeaths; }
  /// Lines that tell of garbage.
  unsigned garbage() const { return mGarbage; }
  /// The last line of any other kind but the waiting ones; empty when there was none.
  const std::string& other() const { return mOther; }

 private:
  static void take(void* context, const char* line) {
    auto* log = static_cast<CountedLog*>(context);
    if (std::strstr(line, " died, ") != nullptr) {
      ++log->mDeaths;
    } else if (std::strstr(line, " was overwritten ") != nullptr) {
      ++log->mGarbage;
    } else if (std::strstr(line, ": waited for ") == nullptr) {
      log->mOther = line;
    }
  }

  unsigned mDeaths = 0;
  unsigned mGarbage = 0;
  std::string mOther;
};

/// Forks a child that runs `body` and ends. @return its process id
template <class Body>
pid_t forkWorker(const Body& body) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (pid == 0) {
    body();
    _exit(0);
  }
  return pid;
}

/// Waits for a child that has been killed. @return its status
inline int reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

inline void killAndReap(pid_t pid) {
  kill(pid, SIGKILL);
  reap(pid);
}

inline std::int64_t monotonicNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

/// Does nothing for a while that is different each time.
inline void dawdle(std::minstd_rand& random, unsigned most) {
  for (unsigned i = static_cast<unsigned>(random()) % most; i != 0; --i) {
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }
}

#endif
