// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_IDLCTL_RUNNINGIDLCTL_H
#define TESTS_IDLCTL_RUNNINGIDLCTL_H

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ext/stdio_filebuf.h>
#include <ostream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "support/ChildProcess.h"
#include "tools/idlctl/Idlctl.h"

/// idlctl in a process of its own, that says line by line what it does. Only one of its kind at a time takes signals,
/// so a command that goes on until it is stopped belongs here.
class RunningIdlctl {
 public:
  explicit RunningIdlctl(const std::vector<std::string>& arguments)
      : mPipe(makePipe()), mProcess([&] { return run(arguments, mPipe[1]); }) {
    ::close(mPipe[1]);
  }
  ~RunningIdlctl() { ::close(mPipe[0]); }
  RunningIdlctl(const RunningIdlctl&) = delete;
  RunningIdlctl& operator=(const RunningIdlctl&) = delete;

  /// The next line of standard output, as soon as it is there; empty at its end, or when none has come for a minute.
  std::string line() {
    std::size_t end = 0;
    while ((end = mSaid.find('\n')) == std::string::npos) {
      pollfd entry = {mPipe[0], POLLIN, 0};
      char bytes[4096];
      const ssize_t count = ::poll(&entry, 1, WATCHDOG_MS) == 1 ? ::read(mPipe[0], bytes, sizeof bytes) : 0;
      if (count <= 0) {
        return "";
      }
      mSaid.append(bytes, static_cast<std::size_t>(count));
    }
    std::string text = mSaid.substr(0, end);
    mSaid.erase(0, end + 1);
    return text;
  }

  void signal(int number) const { mProcess.signal(number); }

  /// Waits for its end. @return the exit code
  int wait() { return mProcess.wait(); }

 private:
  static constexpr int WATCHDOG_MS = 60000;

  static std::array<int, 2> makePipe() {
    std::array<int, 2> ends = {};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return ends;
  }

  static int run(const std::vector<std::string>& arguments, int descriptor) {
    __gnu_cxx::stdio_filebuf<char> buffer(descriptor, std::ios::out);
    std::ostream out(&buffer);
    std::ostringstream err;
    return idl::tools::idlctl(arguments, {out, err, false});
  }

  const std::array<int, 2> mPipe;
  ChildProcess mProcess;
  std::string mSaid;
};

#endif
