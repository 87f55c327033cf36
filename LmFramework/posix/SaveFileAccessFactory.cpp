// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/SaveFileAccessFactory.h"

#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "LmFramework/posix/PosixSaveFile.h"

LM_SINGLETON_DEFINE(SaveFileAccessFactory);

namespace {

constexpr char FOLDER_VARIABLE[] = "LM_SAVE_FILE_DIR";
constexpr char ROOTS_FOLDER[] = "/var/lib/lm-save-files";
constexpr char FOLDER_NAME[] = "/lm-save-files";

std::string fromEnvironment(const char* variable) {
  const char* value = secure_getenv(variable);
  return value != nullptr ? value : "";
}

bool isAbsolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

/// The home folder in the user database; empty when there is none.
std::string homeOfUser() {
  std::vector<char> buffer(1024);
  for (;;) {
    passwd entry = {};
    passwd* found = nullptr;
    const int error = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
    if (error == EINTR) {
      continue;
    }
    if (error != ERANGE) {
      return found != nullptr ? entry.pw_dir : "";
    }
    buffer.resize(buffer.size() * 2);
  }
}

/// Empty when it cannot be found out.
std::string chooseFolder() {
  const std::string chosen = fromEnvironment(FOLDER_VARIABLE);
  if (!chosen.empty()) {
    return chosen;
  }
  if (geteuid() == 0) {
    return ROOTS_FOLDER;
  }
  const std::string state = fromEnvironment("XDG_STATE_HOME");
  if (isAbsolute(state)) {  // others are to be ignored
    return state + FOLDER_NAME;
  }
  const std::string variable = fromEnvironment("HOME");
  const std::string home = isAbsolute(variable) ? variable : homeOfUser();
  return isAbsolute(home) ? home + "/.local/state" + FOLDER_NAME : "";
}

}  // namespace

SaveFileAccessFactory::SaveFileAccessFactory() = default;

SaveFileAccessFactory::~SaveFileAccessFactory() = default;

SaveFileAccess* SaveFileAccessFactory::Create(const char* name, const char* mode) {
  const bool writable = mode == nullptr || std::string(mode) != "r";
  return new PosixSaveFile(chooseFolder(), name != nullptr ? name : "", writable);
}
