// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_RECORDER_H
#define TOOLS_RECORDING_RECORDER_H

#include <chrono>
#include <functional>
#include <string>

#include "tools/inspect/LiveList.h"
#include "tools/recording/Recording.h"

namespace idl::tools::recording {

/// Follows a unit as `watch` does, and tells of each change what it was. Changes nothing.
class Recorder final : private LiveList::Listener {
 public:
  using Take = std::function<void(const Event&)>;

  /// Takes the unit as it is now; `take` is called from here on, in the order of the events.
  Recorder(const std::string& saveFolder, Take take);

  /// Looks again.
  void poll();

  /// The last event.
  void end();

 private:
  void looked(const LiveList& list, const Source& source, bool wasPass) override;
  void takeFuncInfo(const TableCopy& copy);
  void takeSaved(const SavedTableCopy& saved);
  Event eventOf(Event::Kind kind) const;

  const std::string mFolder;
  const Take mTake;
  const std::chrono::steady_clock::time_point mStart;
  Unit mLast;
  bool mHasBegun = false;
  LiveList mList;  // last: it tells of its tables while it is made
};

}  // namespace idl::tools::recording

#endif
