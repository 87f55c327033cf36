// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/OwnMounts.h"

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

[[noreturn]] void fail(const std::string& what, int error = errno) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

void write(const char* path, const std::string& text) {
  const int file = ::open(path, O_WRONLY | O_CLOEXEC);
  const bool isWritten = file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int error = errno;
  if (file >= 0) {
    ::close(file);
  }
  if (!isWritten) {
    fail(std::string(path) + " cannot be written", error);
  }
}

}  // namespace

// A mount namespace is root's to make. Others have to be root of a user namespace, in which they stay who they are to
// see.
void haveOwnMounts() {
  if (::unshare(CLONE_NEWNS) != 0) {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
      fail(
          "this kernel lets this user have no namespace of their own (as root it does; see user.max_user_namespaces "
          "and kernel.unprivileged_userns_clone)");
    }
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", user + ' ' + user + " 1");
    write("/proc/self/gid_map", group + ' ' + group + " 1");
  }
  if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    fail("what is mounted here would be seen outside");
  }
}

void haveOwnSharedMemory() {
  haveOwnMounts();
  if (::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
    fail("there is no empty folder for /dev/shm");
  }
}

}  // namespace idl::tools::recording
