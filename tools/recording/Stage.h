// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_STAGE_H
#define TOOLS_RECORDING_STAGE_H

#include <memory>
#include <string>

#include "tools/recording/Recording.h"

namespace idl::tools::scenario {
class Helper;
}

namespace idl::tools::recording {

/// The library's own list in a process of its own, with folders of its own for shared memory and saved numbers, so that
/// it meets nothing but what it is given.
///
/// Forks, so the process must have no threads. For one thread.
/// @throw scenario::BenchTrouble from every function: the process does not answer, or cannot do it
class Stage {
 public:
  /// Which shared-memory folder: one of its own, for which the kernel has to allow a mount namespace, or the one that
  /// this process has; in that no table may be anybody else's.
  enum class Folder { OWN, FOUND };

  /// The list begins, with these; both may be such as were never read.
  Stage(Folder folder, const TableCopy& funcInfo, const SavedTableCopy& saved);
  ~Stage();

  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  /// The table is now like this.
  void put(const Source& source, const TableCopy& copy);

  /// Refreshes that source. @return the list then
  RecordedList refresh(const Source& source);

 private:
  class SaveFolder;

  const std::unique_ptr<SaveFolder> mFolder;  // null where the process has one by itself
  std::unique_ptr<scenario::Helper> mHelper;
};

}  // namespace idl::tools::recording

#endif
