// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_CHILDPROCESS_H
#define TESTS_SUPPORT_CHILDPROCESS_H

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <system_error>

/// A forked child that runs a function; killed and reaped at the end if it still lives.
class ChildProcess {
 public:
  /// How the child ends when its function returns: through exit(), with everything that runs then, or at once.
  enum class End { EXIT, AT_ONCE };

  explicit ChildProcess(const std::function<int()>& body, End end = End::AT_ONCE) : mPid(forkFlushed()) {
    if (mPid < 0) {
      throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (mPid == 0) {
      const int code = body();
      if (end == End::EXIT) {
        std::exit(code);
      }
      _exit(code);
    }
  }

  ~ChildProcess() {
    if (!mReaped) {
      ::kill(mPid, SIGKILL);
      reap(0);
    }
  }

  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return mPid; }

  /// Sends a signal; the child must not have been waited for.
  void signal(int number) const { ::kill(mPid, number); }

  /// Stops it. When this returns it stands still, or has ended.
  void stop() const {
    signal(SIGSTOP);
    siginfo_t ignored = {};
    waitid(P_PID, static_cast<id_t>(mPid), &ignored, WSTOPPED | WEXITED | WNOWAIT);
  }

  /// Waits for the end. Returns the exit code, minus the signal's number when a signal ended it, or HUNG when
  /// the watchdog's time is over first.
  int wait(std::chrono::milliseconds watchdog = std::chrono::seconds(60)) {
    const auto deadline = std::chrono::steady_clock::now() + watchdog;
    while (!mReaped && !reap(WNOHANG)) {
      if (std::chrono::steady_clock::now() > deadline) {
        return HUNG;
      }
      const timespec pause = {0, 1000000};
      nanosleep(&pause, nullptr);
    }
    return WIFSIGNALED(mStatus) ? -WTERMSIG(mStatus) : WEXITSTATUS(mStatus);
  }

  static constexpr int HUNG = -1000;

 private:
  /// Without text in the parent's buffers, which the child would print once more.
  static pid_t forkFlushed() {
    std::fflush(nullptr);
    return fork();
  }

  bool reap(int options) {
    pid_t got = 0;
    do {
      got = waitpid(mPid, &mStatus, options);
    } while (got < 0 && errno == EINTR);
    mReaped = got == mPid;
    return mReaped;
  }

  const pid_t mPid;
  int mStatus = 0;
  bool mReaped = false;
};

#endif
