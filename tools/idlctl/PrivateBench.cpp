// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/PrivateBench.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tools/recording/OwnMounts.h"
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

void leaveTheSystemsMounts() {
  try {
    recording::haveOwnMounts();
  } catch (const std::runtime_error& wrong) {
    throw std::runtime_error(std::string("--private: ") + wrong.what());
  }
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
  if (mount(memory.c_str(), SHARED_MEMORY, nullptr, MS_BIND, nullptr) != 0) {
    fail("the folder cannot be bound over " + std::string(SHARED_MEMORY));
  }
  enteredSaveFolder = saved;
  setenv(SAVE_FOLDER, enteredSaveFolder.c_str(), 1);
}

const std::string& privateSaveFolder() { return enteredSaveFolder; }

}  // namespace idl::tools
