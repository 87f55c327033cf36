// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_PHONEOUTPUT_H
#define TOOLS_IDLCTL_PHONEOUTPUT_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/inspect/RecordJson.h"
#include "tools/inspect/Unit.h"
#include "tools/text/TextTable.h"

namespace idl::tools {

/// The version of everything that `--json` prints.
constexpr int JSON_SCHEMA = 1;

/// What a client would get of a source, and how it was read, as JSON.
nlohmann::json jsonOf(const TableCopy& copy);

/// "present", "absent", "unreadable" or "not a table".
const char* stateText(const TableCopy& copy);

/// The table of a list for a person.
std::string tableOf(const std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& list, bool colour);

/// A field of a phone for a person, under the record's own name for it.
std::string fieldText(const LmSIntegratedDeviceListDef::DeviceInfo& phone, const std::string& field);

/// Says of each table that is absent, unreadable or was read without its lock that it is. False when one is unreadable.
bool saySources(const Unit& unit, std::ostream& messages);

}  // namespace idl::tools

#endif
