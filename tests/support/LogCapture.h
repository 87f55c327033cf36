// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_LOGCAPTURE_H
#define TESTS_SUPPORT_LOGCAPTURE_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "LmFramework/LmDbgOutput.h"

/// Collects what is printed through LmDbgOutput::DbgPrint while it lives, instead of showing it; afterwards lines go
/// to standard error again. One at a time.
class LogCapture {
 public:
  LogCapture() { LmDbgOutput::setSink(&LogCapture::take, this); }

  ~LogCapture() { LmDbgOutput::setSink(nullptr, nullptr); }

  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The lines so far, without their newlines.
  std::vector<std::string> lines() const {
    std::lock_guard<std::mutex> guard(mMutex);
    return mLines;
  }

  /// How many of them contain `text`.
  std::size_t count(const std::string& text) const {
    std::lock_guard<std::mutex> guard(mMutex);
    return countLocked(text);
  }

  /// Waits until `count` lines contain `text`. False when the watchdog's time is over first.
  bool waitFor(const std::string& text, std::size_t count = 1,
               std::chrono::milliseconds watchdog = std::chrono::seconds(30)) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, watchdog, [&] { return countLocked(text) >= count; });
  }

  void clear() {
    std::lock_guard<std::mutex> guard(mMutex);
    mLines.clear();
  }

 private:
  static void take(void* context, const char* line) {
    auto* capture = static_cast<LogCapture*>(context);
    std::lock_guard<std::mutex> guard(capture->mMutex);
    capture->mLines.emplace_back(line);
    capture->mArrived.notify_all();
  }

  std::size_t countLocked(const std::string& text) const {
    std::size_t found = 0;
    for (const std::string& line : mLines) {
      found += line.find(text) != std::string::npos ? 1U : 0U;
    }
    return found;
  }

  mutable std::mutex mMutex;
  mutable std::condition_variable mArrived;
  std::vector<std::string> mLines;
};

#endif
