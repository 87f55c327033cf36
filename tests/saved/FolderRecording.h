// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_FOLDERRECORDING_H
#define TESTS_SAVED_FOLDERRECORDING_H

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "saved/FolderHistory.h"

/// Writes down what this thread does to a folder, while it lives: the system calls that the objects linked into the
/// program make are caught by the linker (see saved.cmake), made, and recorded when they succeed. One at a time in
/// a thread.
class FolderRecording {
 public:
  explicit FolderRecording(const std::filesystem::path& root);
  ~FolderRecording();
  FolderRecording(const FolderRecording&) = delete;
  FolderRecording& operator=(const FolderRecording&) = delete;

  /// To be called when a save has said that it is done.
  void returned() { record({}); }

  /// Called with the path before each file is made.
  void beforeCreating(std::function<void(const std::filesystem::path&)> hook) { mHook = std::move(hook); }

  const FolderHistory& history() const { return mHistory; }

  /// Whether the steps lead to what lies in the folder now. They do not when a call was made that is not caught.
  bool isComplete() const;

  // For the wrappers. A name is looked up at `folder`, a descriptor or AT_FDCWD; what is elsewhere is not recorded.
  void aboutToOpen(int folder, const char* path, int flags) const;
  void opened(int descriptor, int folder, const char* path, int flags);
  void closed(int descriptor) { mOpen.erase(descriptor); }
  void wrote(int descriptor, std::size_t offset, const void* bytes, std::size_t size);
  void resized(int descriptor, std::size_t size);
  void synced(int descriptor);
  void made(int folder, const char* path);
  void moved(int folder, const char* path, int toFolder, const char* toPath);
  void removed(int folder, const char* path);

 private:
  static constexpr std::size_t NOWHERE = static_cast<std::size_t>(-1);

  struct Place {
    std::size_t folder = NOWHERE;
    std::string name;
  };

  Place find(int folder, const std::string& path) const;
  std::size_t nodeAt(const Place& place) const;
  std::size_t nodeOf(int descriptor) const;
  std::size_t add(bool isFolder);
  void read(const std::filesystem::path& folder, std::size_t node);
  void record(const FolderHistory::Step& step);

  const std::filesystem::path mRoot;
  FolderHistory mHistory;
  std::vector<FolderHistory::Node> mNow;
  std::map<int, std::size_t> mOpen;  // node by descriptor
  std::function<void(const std::filesystem::path&)> mHook;
};

#endif
