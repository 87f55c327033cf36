// SPDX-License-Identifier: Apache-2.0
#include "demo/Child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace demo {

namespace {

// Far more than any answer takes, also under an emulator on a busy machine.
constexpr std::chrono::seconds WATCHDOG(30);

std::string ownFolder() {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  const std::string executable(path, length > 0 ? static_cast<std::size_t>(length) : 0);
  const std::size_t slash = executable.rfind('/');
  if (slash == std::string::npos) {
    throw Trouble("this program does not know its own folder");
  }
  return executable.substr(0, slash + 1);
}

std::vector<std::string> commandFor(const std::string& program) {
  std::vector<std::string> words;
  const char* launcher = std::getenv("DEMO_LAUNCHER");
  std::istringstream input(launcher == nullptr ? "" : launcher);
  for (std::string word; input >> word;) {
    words.push_back(word);
  }
  words.push_back(ownFolder() + program);
  return words;
}

struct Pipe {
  Pipe() {
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw Trouble(std::string("no pipe: ") + std::strerror(errno));
    }
  }
  ~Pipe() {
    for (const int end : ends) {
      if (end != -1) {
        ::close(end);
      }
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int keep(std::size_t end) {
    const int fd = ends.at(end);
    ends.at(end) = -1;
    return fd;
  }

  std::array<int, 2> ends = {-1, -1};  // read end, write end
};

// In the forked child.
[[noreturn]] void become(const std::vector<std::string>& command, const std::vector<std::string>& variables,
                         const Pipe& input, const Pipe& output, const Pipe& error) {
  ::signal(SIGPIPE, SIG_DFL);
  ::dup2(input.ends[0], STDIN_FILENO);
  ::dup2(output.ends[1], STDOUT_FILENO);
  ::dup2(error.ends[1], STDERR_FILENO);
  std::vector<std::string> texts = variables;
  for (std::string& text : texts) {
    ::putenv(text.data());
  }
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  ::execvp(arguments[0], arguments.data());
  const std::string complaint = command.front() + ": " + std::strerror(errno) + "\n";
  [[maybe_unused]] const ssize_t ignored = ::write(STDERR_FILENO, complaint.data(), complaint.size());
  ::_exit(127);
}

}  // namespace

Child::Child(const std::string& program, const std::vector<std::string>& variables) : mProgram(program) {
  const std::vector<std::string> command = commandFor(program);
  Pipe input;
  Pipe output;
  Pipe error;
  mPid = ::fork();
  if (mPid < 0) {
    throw Trouble(std::string("no process: ") + std::strerror(errno));
  }
  if (mPid == 0) {
    become(command, variables, input, output, error);
  }
  mInput = input.keep(1);
  mOutput = output.keep(0);
  mError = error.keep(0);
  ::fcntl(mError, F_SETFL, O_NONBLOCK);
}

Child::~Child() {
  if (mPid != -1) {
    ::kill(mPid, SIGKILL);
    reap();
  }
  for (const int fd : {mInput, mOutput, mError}) {
    if (fd != -1) {
      ::close(fd);
    }
  }
}

void Child::send(const std::string& line) {
  const std::string text = line + '\n';
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(mInput, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      throw Trouble(mProgram + " takes no more commands: " + std::strerror(errno));
    }
    done += static_cast<std::size_t>(count);
  }
}

std::string Child::readLine() {
  for (;;) {
    if (auto line = mLines.take()) {
      return *line;
    }
    if (mEnded) {
      throw Trouble(mProgram + " has ended");
    }
    awaitOutput();
  }
}

std::vector<std::string> Child::takeLog() {
  while (mLog.fill(mError)) {
  }
  std::vector<std::string> lines;
  while (auto line = mLog.take()) {
    lines.push_back(*line);
  }
  return lines;
}

int Child::finish() {
  if (mInput != -1) {
    ::close(mInput);
    mInput = -1;
  }
  return waitForEnd();
}

int Child::waitForEnd() {
  while (!mEnded) {
    awaitOutput();
  }
  reap();
  return mStatus;
}

// Takes in what comes next on standard output; reads standard error as well, lest the program waits for that pipe.
void Child::awaitOutput() {
  const auto deadline = std::chrono::steady_clock::now() + WATCHDOG;
  for (bool errorOpen = true;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      throw Trouble(mProgram + " says nothing");
    }
    std::array<pollfd, 2> ready = {{{mOutput, POLLIN, 0}, {errorOpen ? mError : -1, POLLIN, 0}}};
    if (::poll(ready.data(), ready.size(), static_cast<int>(left.count())) < 0 && errno != EINTR) {
      throw Trouble(mProgram + " cannot be waited for: " + std::strerror(errno));
    }
    if (ready[1].revents != 0) {
      errorOpen = mLog.fill(mError);
    }
    if (ready[0].revents != 0) {
      mEnded = !mLines.fill(mOutput);
      return;
    }
  }
}

void Child::reap() {
  pid_t got = 0;
  do {
    got = ::waitpid(mPid, &mStatus, 0);
  } while (got < 0 && errno == EINTR);
  mPid = -1;
}

}  // namespace demo
