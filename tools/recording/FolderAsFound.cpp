// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/FolderAsFound.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

#include "LmFramework/posix/NotifierRing.h"
#include "tools/inspect/Descriptor.h"

namespace idl::tools::recording {

namespace {

const std::string FOLDER = "/dev/shm/";

// An inspector has a table open for a moment; whoever stays longer uses it.
constexpr std::chrono::milliseconds INSPECTORS{100};
constexpr std::chrono::milliseconds PAUSE{1};

bool isOurs(const std::string& name) {
  const auto isSegment = [&name](const Source* source) { return name == source->segment; };
  return name.rfind("LmLock.", 0) == 0 || name.rfind("LmBench.", 0) == 0 || name == NotifierRing::NAME ||
         std::any_of(SOURCES.begin(), SOURCES.end(), isSegment);
}

std::optional<ino_t> inodeOf(const std::string& name) {
  struct stat status = {};
  return lstat((FOLDER + name).c_str(), &status) == 0 ? std::optional(status.st_ino) : std::nullopt;
}

// A write lease is given where nobody else has the file open or mapped. It ends with the descriptor.
bool isOpenElsewhere(int file) {
  fcntl(file, F_SETSIG, SIGURG);  // for whoever opens it now: the signal without this would end the process
  return fcntl(file, F_SETLEASE, F_WRLCK) != 0 && errno == EAGAIN;
}

void removeUnlessUsed(const std::string& name, ino_t inode, std::chrono::steady_clock::time_point patience) {
  for (;;) {
    const Descriptor file(shm_open(('/' + name).c_str(), O_RDONLY, 0));
    struct stat status = {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0 || status.st_ino != inode) {
      return;  // another one by now
    }
    if (!isOpenElsewhere(file.get())) {
      shm_unlink(('/' + name).c_str());
      return;
    }
    if (std::chrono::steady_clock::now() >= patience) {
      return;
    }
    std::this_thread::sleep_for(PAUSE);
  }
}

}  // namespace

FolderAsFound::~FolderAsFound() {
  const auto patience = std::chrono::steady_clock::now() + INSPECTORS;
  for (const auto& [name, inode] : mMade) {
    removeUnlessUsed(name, inode, patience);
  }
}

void FolderAsFound::around(const std::function<void()>& work) {
  const Objects before = objects();
  try {
    work();
  } catch (...) {
    noteMade(before);
    throw;
  }
  noteMade(before);
}

const Source* FolderAsFound::somebodys() const {
  const auto* const found = std::find_if(SOURCES.begin(), SOURCES.end(), [this](const Source* source) {
    const auto inode = inodeOf(source->segment);
    const auto made = mMade.find(source->segment);
    return inode && (made == mMade.end() || made->second != *inode);
  });
  return found == SOURCES.end() ? nullptr : *found;
}

FolderAsFound::Objects FolderAsFound::objects() {
  Objects found;
  std::error_code none;  // what cannot be listed is left alone
  for (const auto& entry : std::filesystem::directory_iterator(FOLDER, none)) {
    const std::string name = entry.path().filename().string();
    const auto inode = isOurs(name) ? inodeOf(name) : std::nullopt;
    if (inode) {
      found[name] = *inode;
    }
  }
  return found;
}

void FolderAsFound::noteMade(const Objects& before) {
  for (const auto& [name, inode] : objects()) {
    if (before.count(name) == 0) {
      mMade[name] = inode;
    }
  }
}

}  // namespace idl::tools::recording
