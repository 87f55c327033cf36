// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_FOLDERASFOUND_H
#define TOOLS_RECORDING_FOLDERASFOUND_H

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

#include "tools/inspect/Source.h"

namespace idl::tools::recording {

/// Leaves the shared-memory folder as it was found: of the segments, the locks, the claims and the notifier, what was
/// made in around() is removed when this ends. What somebody else has made stays, and so does what somebody else has
/// open by then: a service that has come meanwhile keeps its table and the locks that it shares with its clients.
class FolderAsFound {
 public:
  FolderAsFound() = default;
  ~FolderAsFound();

  FolderAsFound(const FolderAsFound&) = delete;
  FolderAsFound& operator=(const FolderAsFound&) = delete;

  /// Runs `work`. What comes to be meanwhile, in whatever process, is its own, also where it throws; keep it short.
  void around(const std::function<void()>& work);

  /// A table or "FuncInfo" that is there, and was not made in around(); null where there is none.
  const Source* somebodys() const;

 private:
  using Objects = std::map<std::string, ino_t>;

  static Objects objects();
  void noteMade(const Objects& before);

  Objects mMade;
};

}  // namespace idl::tools::recording

#endif
