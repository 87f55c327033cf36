// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_FRAMEWORK_CALLRECORDER_H
#define TESTS_FRAMEWORK_CALLRECORDER_H

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// Writes down the system calls that this thread makes from the objects linked into the program, and makes some of them
/// fail. One at a time in a thread.
///
/// A call is written as its name without "64" and the name of what it is about: "openat folder", "fsync temporary".
class CallRecorder {
 public:
  /// @param label  the name to write for a path; a descriptor has the name of the path that it was opened by
  explicit CallRecorder(std::function<std::string(const std::string&)> label);
  ~CallRecorder();
  CallRecorder(const CallRecorder&) = delete;
  CallRecorder& operator=(const CallRecorder&) = delete;

  /// The call after `index` others from now on is not made and fails with `error`, once.
  void failAt(std::size_t index, int error);

  /// Every call that is written like that fails.
  void failAll(const std::string& call, int error);

  /// A read or write moves `size` bytes at most.
  void limitTransfers(std::size_t size) { mTransferLimit = size; }

  /// From now on only calls whose name is known and not empty are written down, counted and made to fail.
  void onlyLabelled() { mOnlyLabelled = true; }

  /// The calls since the last take().
  std::vector<std::string> take();

  // For the wrappers.
  bool counts(const std::string& about) const { return !mOnlyLabelled || (!about.empty() && about != UNKNOWN); }
  int planned(const std::string& call);
  std::size_t allowed(std::size_t size) const { return size < mTransferLimit ? size : mTransferLimit; }
  std::string nameOf(const char* path) const { return mLabel(path); }
  std::string nameOf(int descriptor) const;
  void opened(int descriptor, const char* path);
  void closed(int descriptor) { mNames.erase(descriptor); }

 private:
  static constexpr char UNKNOWN[] = "?";
  static constexpr std::size_t NEVER = static_cast<std::size_t>(-1);

  const std::function<std::string(const std::string&)> mLabel;
  std::map<int, std::string> mNames;
  std::map<std::string, int> mAlways;
  std::vector<std::string> mCalls;
  std::size_t mUntilFailure = NEVER;
  int mError = 0;
  std::size_t mTransferLimit = NEVER;
  bool mOnlyLabelled = false;
};

#endif
