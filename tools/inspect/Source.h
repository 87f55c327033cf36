// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_SOURCE_H
#define TOOLS_INSPECT_SOURCE_H

#include <array>
#include <cstddef>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

namespace idl::tools {

/// One of the tables that a client reads, and "FuncInfo".
struct Source {
  const char* word;     // in arguments, scenarios and JSON
  const char* person;   // in sentences
  const char* segment;  // the bare name of object and lock
  std::size_t dataOffset;
  std::size_t segmentSize;
  bool isTable;                                 // of phones; false for "FuncInfo"
  LmSIntegratedDeviceListDef::DeviceType type;  // where it is a table
};

extern const Source BT_SOURCE;
extern const Source CP_SOURCE;
extern const Source AAP_SOURCE;
extern const Source FUNC_INFO_SOURCE;

/// The tables, in the order in which a client that starts refreshes them.
extern const std::array<const Source*, 3> TABLES;

/// All of them, "FuncInfo" last.
extern const std::array<const Source*, 4> SOURCES;

/// The source that `word` names; null when none does.
const Source* sourceCalled(const char* word);

/// The table of phones of that type.
const Source& sourceOf(LmSIntegratedDeviceListDef::DeviceType type);

}  // namespace idl::tools

#endif
