// SPDX-License-Identifier: Apache-2.0
#include "bench/SelfCall.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace idl::cost {

SelfCall::SelfCall(const std::vector<std::string>& arguments) : mOutput(-1), mProcess(-1) {
  int ends[2] = {};
  if (pipe2(ends, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::vector<std::string> words = {"/proc/self/exe"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  const int error = posix_spawn(&mProcess, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  mOutput = ends[0];
  if (error != 0) {
    close(mOutput);
    throw std::system_error(error, std::generic_category(), "posix_spawn");
  }
}

SelfCall::~SelfCall() {
  close(mOutput);
  if (mProcess > 0) {
    kill(mProcess, SIGKILL);
    waitpid(mProcess, nullptr, 0);
  }
}

std::string SelfCall::line() {
  std::string line;
  for (char byte = 0; read(mOutput, &byte, 1) == 1 && byte != '\n';) {
    line += byte;
  }
  return line;
}

std::string SelfCall::output() {
  std::string output;
  char buffer[1024];
  for (ssize_t got = 0; (got = read(mOutput, buffer, sizeof(buffer))) > 0;) {
    output.append(buffer, static_cast<std::size_t>(got));
  }
  int status = 0;
  const pid_t ended = waitpid(mProcess, &status, 0);
  mProcess = -1;
  if (ended < 0 || status != 0) {
    throw std::runtime_error("a process of the bench has failed");
  }
  return output;
}

}  // namespace idl::cost
