// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_UNIT_H
#define TOOLS_INSPECT_UNIT_H

#include <array>
#include <string>
#include <vector>

#include "tools/inspect/Explanation.h"
#include "tools/inspect/InspectedList.h"
#include "tools/inspect/SavedTableCopy.h"
#include "tools/inspect/TableCopy.h"

namespace idl::tools {

/// All that a client which starts now would read, as it is now.
struct Unit {
  TableCopy bt;
  TableCopy cp;
  TableCopy aap;
  TableCopy funcInfo;
  SavedTableCopy saved;

  const TableCopy& of(const Source& source) const;
  TableCopy& of(const Source& source);
};

/// Copies everything. `saveFolder` as savedTableFolder() takes it.
Unit readUnit(const std::string& saveFolder);

/// The list of a client that starts now, and why it is so.
struct ListNow {
  bool isStarted = false;  // false: Bluetooth is awaited and has no table
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
  Explanation why;
};

/// Refreshes Bluetooth, CarPlay and Android Auto in this order, each if its table is there.
void buildList(const Unit& unit, ListNow& list);

/// Whether a client would refresh a source of which there is such a copy: one that is there, be it a table or not.
bool isThere(const TableCopy& copy);

}  // namespace idl::tools

#endif
