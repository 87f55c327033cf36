// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/PrivateBench.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr char SHARED_MEMORY[] = "/dev/shm";
constexpr char SAVE_FOLDER[] = "LM_SAVE_FILE_DIR";
constexpr std::size_t LONGEST_NAME = 64;  // docs and messages say so

std::string enteredSaveFolder;  // where a process is, is the process's

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("--private: " + what + ": " + std::strerror(errno));
}

// Makes `folder` unless it is there. In /tmp anybody may have been first, so it counts only as the user's own, closed
// to others.
void ensureOwnFolder(const std::string& folder) {
  if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
    fail(quotedText(folder) + " cannot be made");
  }
  struct stat status = {};
  if (lstat(folder.c_str(), &status) != 0) {
    fail(quotedText(folder));
  }
  if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & 022) != 0) {
    throw std::runtime_error("--private: " + quotedText(folder) + " is not a folder that this user alone may write to");
  }
}

std::string ensureFolderOf(const std::string& name) {
  const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
  const bool hasRuntime = runtime != nullptr && runtime[0] == '/' && access(runtime, W_OK) == 0;
  const std::string benches =
      hasRuntime ? std::string(runtime) + "/idlctl" : "/tmp/idlctl-" + std::to_string(geteuid());
  ensureOwnFolder(benches);
  ensureOwnFolder(benches + '/' + name);
  return benches + '/' + name;
}

void write(const char* file, const std::string& text) {
  const int descriptor = open(file, O_WRONLY | O_CLOEXEC);
  const bool isWritten =
      descriptor >= 0 && ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int reason = errno;
  if (descriptor >= 0) {
    close(descriptor);
  }
  if (!isWritten) {
    errno = reason;
    fail(std::string(file) + " cannot be written");
  }
}

// A mount namespace is root's to make. Others have to be root of a user namespace, in which they stay who they are to
// see.
void leaveTheSystemsMounts() {
  if (unshare(CLONE_NEWNS) == 0) {
    return;
  }
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    fail(
        "this kernel lets this user have no namespace of their own (as root it does; see user.max_user_namespaces and "
        "kernel.unprivileged_userns_clone)");
  }
  write("/proc/self/setgroups", "deny");
  write("/proc/self/uid_map", user + ' ' + user + " 1");
  write("/proc/self/gid_map", group + ' ' + group + " 1");
}

}  // namespace

bool canBePrivateBench(const std::string& name) {
  const auto fits = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
           c == '.';
  };
  return !name.empty() && name.size() <= LONGEST_NAME && name.front() != '.' &&
         std::all_of(name.begin(), name.end(), fits);
}

void enterPrivateBench(const std::string& name) {
  const std::string bench = ensureFolderOf(name);
  const std::string memory = bench + "/shm";
  const std::string saved = bench + "/saved";
  ensureOwnFolder(memory);
  ensureOwnFolder(saved);
  leaveTheSystemsMounts();
  // What is mounted here must not be seen outside.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount(memory.c_str(), SHARED_MEMORY, nullptr, MS_BIND, nullptr) != 0) {
    fail("the folder cannot be bound over " + std::string(SHARED_MEMORY));
  }
  enteredSaveFolder = saved;
  setenv(SAVE_FOLDER, enteredSaveFolder.c_str(), 1);
}

const std::string& privateSaveFolder() { return enteredSaveFolder; }

}  // namespace idl::tools
