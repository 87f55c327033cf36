// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Helper.h"

#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <utility>

#include "tools/scenario/Bench.h"

namespace idl::tools::scenario {

namespace {

// Far more than any answer takes, also under an emulator on a busy machine.
constexpr std::chrono::seconds WATCHDOG(30);

constexpr std::uint64_t DONE = 0;
constexpr std::uint64_t REFUSED = 1;

bool sendAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::send(fd, bytes, size, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool receiveAll(int fd, char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = ::recv(fd, bytes, size, 0);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

/// A record goes with its length in front.
bool sendRecord(int fd, const std::string& bytes) {
  const auto length = static_cast<std::uint32_t>(bytes.size());
  char head[sizeof(length)];
  std::memcpy(head, &length, sizeof(length));
  return sendAll(fd, head, sizeof(head)) && sendAll(fd, bytes.data(), bytes.size());
}

std::optional<std::string> receiveRecord(int fd) {
  std::uint32_t length = 0;
  char head[sizeof(length)];
  if (!receiveAll(fd, head, sizeof(head))) {
    return std::nullopt;
  }
  std::memcpy(&length, head, sizeof(length));
  std::string bytes(length, '\0');
  return receiveAll(fd, bytes.data(), bytes.size()) ? std::optional(std::move(bytes)) : std::nullopt;
}

// A copy of another helper's connection would keep that one alive when the bench has gone.
void closeAllBut(int fd) {
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const int end = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 4096));
  for (int other = STDERR_FILENO + 1; other < end; ++other) {
    if (other != fd) {
      ::close(other);
    }
  }
}

[[noreturn]] void become(int fd, const std::function<void(const BenchEnd&)>& body) {
  closeAllBut(fd);
  try {
    body(BenchEnd(fd));
  } catch (const std::exception& error) {
    // Whatever is asked next is answered with this.
    const BenchEnd end(fd);
    end.answer(Record().add(REFUSED).add(std::string(error.what())));
    ::_exit(EXIT_FAILURE);
  }
  std::exit(EXIT_SUCCESS);
}

}  // namespace

std::optional<Record> BenchEnd::receive() const {
  auto bytes = receiveRecord(mFd);
  return bytes ? std::optional<Record>(Record(std::move(*bytes))) : std::nullopt;
}

void BenchEnd::answer(const Record& record) const {
  // Where the bench has gone, the next receive() tells.
  [[maybe_unused]] const bool ignored = sendRecord(mFd, record.bytes());
}

void BenchEnd::serve(const std::function<Record(Record&)>& obey) const {
  while (auto request = receive()) {
    answerOne(*request, obey);
  }
}

void BenchEnd::answerOne(Record& request, const std::function<Record(Record&)>& obey) const {
  try {
    const Record result = obey(request);
    answer(Record(Record().add(DONE).bytes() + result.bytes()));
  } catch (const std::exception& error) {
    answer(Record().add(REFUSED).add(std::string(error.what())));
  }
}

Helper::Helper(std::string name, const std::function<void(const BenchEnd&)>& body) : mName(std::move(name)) {
  std::array<int, 2> ends = {-1, -1};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw BenchTrouble(mName + ": no socket pair: " + std::strerror(errno));
  }
  // Text in the buffers would be written by both.
  std::fflush(nullptr);
  std::cout.flush();
  mPid = ::fork();
  if (mPid == 0) {
    become(ends[1], body);
  }
  const int error = errno;
  ::close(ends[1]);
  mFd = ends[0];
  if (mPid < 0) {
    ::close(mFd);
    throw BenchTrouble(mName + ": no process: " + std::strerror(error));
  }
}

Helper::~Helper() {
  kill();
  ::close(mFd);
}

Record Helper::ask(const Record& request) {
  send(request);
  return awaitAnswer();  // also of one that could not begin, and has told why before it was asked
}

void Helper::askToDie(const Record& request) {
  send(request);
  if (const auto answer = receive()) {
    Record record(*answer);
    const bool refused = record.number() == REFUSED;
    throw BenchTrouble(mName + ": " + (refused ? record.text() : "lives on"));
  }
  reap();
}

Record Helper::awaitAnswer() {
  const auto answer = receive();
  if (!answer) {
    died();
  }
  Record record(*answer);
  if (record.number() == REFUSED) {
    throw BenchTrouble(mName + ": " + record.text());
  }
  return record;
}

void Helper::finish() {
  ::shutdown(mFd, SHUT_WR);
  if (receive()) {
    throw BenchTrouble(mName + ": answers where nobody asked");
  }
  const int status = reap();
  if (status != 0) {
    throw BenchTrouble(mName + ": did not end well, status " + std::to_string(status));
  }
}

void Helper::kill() {
  if (mPid != -1) {
    ::kill(mPid, SIGKILL);
    reap();
  }
}

void Helper::send(const Record& request) {
  if (mPid == -1) {
    died();
  }
  // Where that fails, what comes back tells more.
  [[maybe_unused]] const bool ignored = sendRecord(mFd, request.bytes());
}

// Nothing at the connection's end.
std::optional<std::string> Helper::receive() {
  const auto deadline = std::chrono::steady_clock::now() + WATCHDOG;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd ready = {mFd, POLLIN, 0};
    const int count = left.count() > 0 ? ::poll(&ready, 1, static_cast<int>(left.count())) : 0;
    if (count > 0) {
      return receiveRecord(mFd);
    }
    if (count < 0 && errno != EINTR) {
      throw BenchTrouble(mName + ": cannot be waited for: " + std::strerror(errno));
    }
    if (left.count() <= 0) {
      throw BenchTrouble(mName + ": does not answer");
    }
  }
}

// The connection is at its end, so that there is no wait for long.
int Helper::reap() {
  int status = 0;
  pid_t got = 0;
  do {
    got = ::waitpid(mPid, &status, 0);
  } while (got < 0 && errno == EINTR);
  mPid = -1;
  return status;
}

void Helper::died() {
  if (mPid == -1) {
    throw BenchTrouble(mName + ": is not running");
  }
  kill();
  throw BenchTrouble(mName + ": has died");
}

}  // namespace idl::tools::scenario
