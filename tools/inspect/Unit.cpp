// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/Unit.h"

namespace idl::tools {

const TableCopy& Unit::of(const Source& source) const {
  if (&source == &BT_SOURCE) {
    return bt;
  }
  if (&source == &CP_SOURCE) {
    return cp;
  }
  return &source == &AAP_SOURCE ? aap : funcInfo;
}

TableCopy& Unit::of(const Source& source) { return const_cast<TableCopy&>(static_cast<const Unit&>(*this).of(source)); }

Unit readUnit(const std::string& saveFolder) {
  Unit unit;
  unit.funcInfo = copyTable(FUNC_INFO_SOURCE);
  unit.saved = copySavedTable(savedTableFolder(saveFolder));
  unit.bt = copyTable(BT_SOURCE);
  unit.cp = copyTable(CP_SOURCE);
  unit.aap = copyTable(AAP_SOURCE);
  return unit;
}

bool isThere(const TableCopy& copy) { return copy.isRead() || copy.state == TableCopy::State::NOT_A_TABLE; }

void buildList(const Unit& unit, ListNow& list) {
  InspectedList inspected(awaitsBluetooth(unit.funcInfo), unit.saved, &list.why);
  for (const Source* source : TABLES) {
    if (!isThere(unit.of(*source))) {
      continue;
    }
    list.why.refreshBegins(source->type);
    inspected.refresh(*source, unit.of(*source));
    list.isStarted = inspected.get(list.phones);
    list.why.refreshEnds(list.phones);
  }
}

}  // namespace idl::tools
