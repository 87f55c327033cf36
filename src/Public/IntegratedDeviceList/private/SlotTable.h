// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SLOTTABLE_H
#define INTEGRATEDDEVICELIST_PRIVATE_SLOTTABLE_H

#include <cstddef>

#include "LmFramework/LmSyncGuard.h"

/// Copies a table of slots out of its segment under the segment's lock.
/// @return how many slots the object reaches to the end of; those of `table` behind them hold no value.
template <class Segment, class Table>
std::size_t readSlots(const Segment& segment, Table& table) {
  LmSyncGuard guard(segment);
  return segment.read(Segment::DATA_OFFSET, &table, sizeof(table)) / sizeof(table.slots[0]);
}

#endif
