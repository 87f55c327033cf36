// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_FAILEDCALLS_H
#define TESTS_SAVED_FAILEDCALLS_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "saved/SavedTable.h"

/// A story of the whole library: a stored table, and what Bluetooth lists at one refresh after the other. It is told
/// while system calls of the saved table's file fail, and compared with how it goes when none does.
///
/// The programs that use this have those calls caught by the linker; see saved.cmake.
class FailedCalls {
 public:
  struct Phone {
    unsigned id = 0;
    std::string name;
  };
  using Refresh = std::vector<Phone>;

  struct Story {
    saved_table::Table stored;  // no file when empty
    std::vector<Refresh> refreshes;
  };

  static constexpr std::size_t ANY = static_cast<std::size_t>(-1);

  /// In one refresh, the call after `index` others of the file's fails with `error`; reads and writes move `limit`
  /// bytes at most.
  struct Failure {
    std::size_t index = ANY;
    int error = 0;
    std::size_t limit = ANY;
  };
  using Plan = std::map<std::size_t, Failure>;  // by refresh, counted from 0

  explicit FailedCalls(Story story);

  /// Tells the story with those failures. Empty when all went as it should:
  ///
  /// - the lists are those of the story without failures, or, when the stored table could not be read, those of the
  ///   same story without a stored table;
  /// - the file holds what the last save that was made put there, and nothing ever replaces what could not be read;
  /// - no temporary file is left behind, unless it could not be removed;
  /// - each failure is one log line with the file and the reason.
  std::vector<std::string> complaintsAbout(const Plan& plan);

  /// The calls of the last telling that failed.
  std::size_t failed() const { return mFailed; }

  /// The calls about the file in each refresh without failures.
  const std::vector<std::vector<std::string>>& calls() const { return mPlain.calls; }

 private:
  struct Telling {
    std::vector<std::vector<std::string>> lists;
    std::vector<std::string> files;
    std::vector<std::size_t> temporaries;  // that there are after each refresh
    std::vector<std::vector<std::string>> calls;
    std::vector<std::vector<std::string>> lines;
  };

  Telling tell(const saved_table::Table& stored, const Plan& plan) const;

  const Story mStory;
  Telling mPlain;
  Telling mWithoutStored;
  std::size_t mFailed = 0;
};

#endif
