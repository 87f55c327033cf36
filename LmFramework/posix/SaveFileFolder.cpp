// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/SaveFileFolder.h"

#include <pwd.h>
#include <stdlib.h>

#include <cerrno>
#include <vector>

#include "LmFramework/posix/SystemCall.h"

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
std::string homeOf(uid_t user) {
  std::vector<char> buffer(1024);
  for (;;) {
    passwd entry = {};
    passwd* found = nullptr;
    const int result = retryInterrupted([&] {
      errno = getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);  // it returns the error instead
      return errno == 0 ? 0 : -1;
    });
    if (result == 0 || errno != ERANGE) {
      return found != nullptr ? entry.pw_dir : "";
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace

std::string saveFileFolderOf(uid_t user) {
  std::string chosen = fromEnvironment(FOLDER_VARIABLE);
  if (!chosen.empty()) {
    return chosen;
  }
  if (user == 0) {
    return ROOTS_FOLDER;
  }
  const std::string state = fromEnvironment("XDG_STATE_HOME");
  if (isAbsolute(state)) {  // others are to be ignored
    return state + FOLDER_NAME;
  }
  const std::string variable = fromEnvironment("HOME");
  const std::string home = isAbsolute(variable) ? variable : homeOf(user);
  return isAbsolute(home) ? home + "/.local/state" + FOLDER_NAME : "";
}
