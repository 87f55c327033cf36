// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_INSPECTEDLIST_H
#define TOOLS_INSPECT_INSPECTEDLIST_H

#include <memory>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "tools/inspect/SavedTableCopy.h"
#include "tools/inspect/TableCopy.h"

class Decisions;
class LmSIntegratedDeviceListImpl;

namespace idl::tools {

/// The list that a client has which starts now: the library's own decoding, merging and numbering, over copies of the
/// tables. It attaches, writes and saves nothing.
class InspectedList {
 public:
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  /// @param awaitsBluetooth  what "FuncInfo" says: the list is not started before Bluetooth was refreshed
  /// @param saved            the numbers that the list starts with
  /// @param decisions        hears of all decisions; may be null; has to live as long as this object
  InspectedList(bool awaitsBluetooth, const SavedTableCopy& saved, Decisions* decisions);
  ~InspectedList();

  /// Takes over a copy of the table of `source`, and merges and numbers.
  void refresh(const Source& source, const TableCopy& copy);

  /// Replaces `list` by the phones in their order. False, with `list` empty, when the list is not started.
  bool get(std::vector<IntegratedDevice>& list) const;

 private:
  struct Tables;

  std::unique_ptr<Tables> mTables;
  std::unique_ptr<LmSIntegratedDeviceListImpl> mList;
  Decisions* const mDecisions;
};

/// What "FuncInfo" says of Bluetooth; false where it cannot be read, as a client takes it.
bool awaitsBluetooth(const TableCopy& funcInfo);

}  // namespace idl::tools

#endif
