// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_LISTDIFFERENCE_H
#define TOOLS_INSPECT_LISTDIFFERENCE_H

#include <cstddef>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

namespace idl::tools {

/// One step from a list to the next one. Rows count from 0.
struct ListChange {
  enum class Kind { REMOVED, ADDED, MOVED, CHANGED };

  Kind kind;
  std::size_t formerRow = 0;  // but for ADDED
  std::size_t row = 0;        // but for REMOVED
};

/// What became of the phones of `former` in `now`: those removed, added, moved and changed, in this order, each by its
/// row. A phone is the same one when it has the same Bluetooth id, or is not paired and has its source's same
/// identifier; among several of the same, the first is the first. Moved are those that have changed places with others
/// that stayed.
std::vector<ListChange> differenceOf(const std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& former,
                                     const std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& now);

/// The names of the header's fields in which two records differ, as the records call them.
std::vector<std::string> changedFields(const LmSIntegratedDeviceListDef::DeviceInfo& former,
                                       const LmSIntegratedDeviceListDef::DeviceInfo& now);

}  // namespace idl::tools

#endif
