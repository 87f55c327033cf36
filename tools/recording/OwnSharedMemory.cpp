// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/OwnSharedMemory.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace idl::tools::recording {

namespace {

bool writeFile(const char* path, const std::string& text) {
  const int file = ::open(path, O_WRONLY | O_CLOEXEC);
  if (file == -1) {
    return false;
  }
  const bool isWritten = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(file);
  return isWritten;
}

// This user, and no other, is in the namespace whom it is outside.
bool enterUserNamespace() {
  const std::string user = std::to_string(::geteuid());
  const std::string group = std::to_string(::getegid());
  return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && writeFile("/proc/self/setgroups", "deny") &&
         writeFile("/proc/self/uid_map", user + ' ' + user + " 1") &&
         writeFile("/proc/self/gid_map", group + ' ' + group + " 1");
}

}  // namespace

void haveOwnSharedMemory() {
  const bool isAlone = ::unshare(CLONE_NEWNS) == 0 || enterUserNamespace();
  if (!isAlone || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    throw std::runtime_error(std::string("no shared-memory folder of its own: ") + std::strerror(errno) +
                             "; with --here the one that is there is used");
  }
}

}  // namespace idl::tools::recording
