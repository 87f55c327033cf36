// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/FolderAsFound.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "LmFramework/posix/NotifierRing.h"
#include "tools/inspect/Source.h"

namespace idl::tools::recording {

namespace {

bool isOurs(const std::string& name) {
  const auto isSegment = [&name](const Source* source) { return name == source->segment; };
  return name.rfind("LmLock.", 0) == 0 || name.rfind("LmBench.", 0) == 0 || name == NotifierRing::NAME ||
         std::any_of(SOURCES.begin(), SOURCES.end(), isSegment);
}

std::set<std::string> objects() {
  std::set<std::string> names;
  std::error_code none;  // what cannot be listed is left alone
  for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", none)) {
    const std::string name = entry.path().filename().string();
    if (isOurs(name)) {
      names.insert(name);
    }
  }
  return names;
}

}  // namespace

FolderAsFound::FolderAsFound() : mFound(objects()) {}

FolderAsFound::~FolderAsFound() {
  for (const std::string& name : objects()) {
    if (mFound.count(name) == 0) {
      ::shm_unlink(('/' + name).c_str());
    }
  }
}

}  // namespace idl::tools::recording
