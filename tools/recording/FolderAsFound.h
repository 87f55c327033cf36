// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_FOLDERASFOUND_H
#define TOOLS_RECORDING_FOLDERASFOUND_H

#include <set>
#include <string>

namespace idl::tools::recording {

/// Leaves the shared-memory folder as it is now: of the segments, the locks, the claims and the notifier, those that
/// are new when this ends are removed, whoever made them.
class FolderAsFound {
 public:
  FolderAsFound();
  ~FolderAsFound();

  FolderAsFound(const FolderAsFound&) = delete;
  FolderAsFound& operator=(const FolderAsFound&) = delete;

 private:
  const std::set<std::string> mFound;
};

}  // namespace idl::tools::recording

#endif
