// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/Stopping.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>

#include "LmFramework/posix/SystemCall.h"

namespace idl::tools {

namespace {

constexpr std::chrono::hours LONGEST_WAIT{24};  // that poll() is given at once; it counts in an int

sigset_t gFormer;
int gSignals = -1;

}  // namespace

Stopping::Stopping() {
  sigset_t stopping;
  sigemptyset(&stopping);
  sigaddset(&stopping, SIGINT);
  sigaddset(&stopping, SIGTERM);
  struct sigaction hangUp = {};
  if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
    sigaddset(&stopping, SIGHUP);  // one that is ignored would come here all the same
  }
  pthread_sigmask(SIG_BLOCK, &stopping, &gFormer);
  gSignals = signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK);
}

// A signal that nobody has read would end the process as soon as it may come.
Stopping::~Stopping() {
  signalfd_siginfo unread;
  while (read(gSignals, &unread, sizeof unread) == static_cast<ssize_t>(sizeof unread)) {
  }
  close(gSignals);
  pthread_sigmask(SIG_SETMASK, &gFormer, nullptr);
}

bool Stopping::within(std::chrono::milliseconds duration) const {
  for (;;) {
    const auto begin = std::chrono::steady_clock::now();
    const std::chrono::milliseconds slice = std::min<std::chrono::milliseconds>(duration, LONGEST_WAIT);
    pollfd entry = {gSignals, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(slice.count())) > 0) {
      return true;
    }
    duration -= std::chrono::ceil<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    if (duration <= std::chrono::milliseconds(0)) {
      return false;
    }
  }
}

bool Stopping::beforeInput(int descriptor) const {
  pollfd entries[] = {{gSignals, POLLIN, 0}, {descriptor, POLLIN, 0}};
  while (poll(entries, 2, -1) < 0 && errno == EINTR) {
  }
  return entries[0].revents != 0;
}

bool Stopping::beforeEnter() const {
  char character = 0;
  ssize_t count = 0;
  do {
    if (beforeInput(STDIN_FILENO)) {
      return true;
    }
    count = read(STDIN_FILENO, &character, 1);
  } while ((count == 1 && character != '\n') || (count < 0 && errno == EINTR));
  return false;
}

StoppableInput::StoppableInput(const Stopping& stopping) : mStopping(stopping), mFormer(std::cin.rdbuf(this)) {}

StoppableInput::~StoppableInput() { std::cin.rdbuf(mFormer); }

StoppableInput::int_type StoppableInput::underflow() {
  if (mStopping.beforeInput(STDIN_FILENO)) {
    return traits_type::eof();
  }
  const ssize_t count = retryInterrupted([this] { return read(STDIN_FILENO, mBytes.data(), mBytes.size()); });
  if (count <= 0) {
    return traits_type::eof();
  }
  setg(mBytes.data(), mBytes.data(), mBytes.data() + count);
  return traits_type::to_int_type(mBytes.front());
}

std::chrono::milliseconds Deadline::atMost(std::chrono::milliseconds pause) const {
  if (!mEnd) {
    return pause;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*mEnd - std::chrono::steady_clock::now());
  return std::max(std::chrono::milliseconds(0), std::min(pause, left));
}

}  // namespace idl::tools
