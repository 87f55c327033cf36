// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_LIVELIST_H
#define TOOLS_INSPECT_LIVELIST_H

#include <memory>
#include <string>
#include <vector>

#include "tools/inspect/ListDifference.h"
#include "tools/inspect/Unit.h"

namespace idl::tools {

/// The list of a client that starts now and refreshes a source whenever its table's bytes have changed.
///
/// A source that is lost keeps its phones, as it does in a client that had attached its table; when it is back, its
/// table is read again.
class LiveList {
 public:
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  struct Event {
    enum class Kind { SOURCE_LOST, SOURCE_BACK, REMOVED, ADDED, MOVED, CHANGED };

    Kind kind;
    const Source* source = nullptr;  // of the table that was read, lost or back
    std::size_t formerRow = 0;       // as ListChange has them, with the phones of these rows
    std::size_t row = 0;
    IntegratedDevice former;
    IntegratedDevice now;
  };

  /// Hears of each look at a table, after the pass if there was one; the list is then as that pass left it.
  class Listener {
   public:
    virtual void looked(const LiveList& list, const Source& source, bool wasPass) = 0;

   protected:
    ~Listener() = default;
  };

  /// Reads everything once. `listener` may be null; it has to live as long as this object.
  explicit LiveList(const std::string& saveFolder, Listener* listener = nullptr);

  /// Reads the tables again, and makes one pass for each whose bytes have changed.
  /// @return what has happened since the last call, in its order
  std::vector<Event> poll();

  /// The tables as they were read last, and the saved numbers as the list began with them.
  const Unit& unit() const { return mUnit; }

  bool isStarted() const { return mIsStarted; }
  const std::vector<IntegratedDevice>& phones() const { return mPhones; }

 private:
  void refresh(const Source& source, std::vector<Event>& events);
  void tell(const Source& source, bool wasPass) const;

  Listener* const mListener;
  Unit mUnit;
  InspectedList mList;
  bool mIsStarted = false;
  std::vector<IntegratedDevice> mPhones;
  Unit mTaken;  // the tables as they were taken over last
};

}  // namespace idl::tools

#endif
