// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_RECORDJSON_H
#define TOOLS_INSPECT_RECORDJSON_H

#include <nlohmann/json_fwd.hpp>

#include "tools/inspect/TableDump.h"

namespace idl::tools {

/// A phone: the header's fields under the records' own names.
nlohmann::json jsonOf(const LmSIntegratedDeviceListDef::DeviceInfo& phone);

/// Sets the field under its own name; of a text that has no end, `name` + "HasNoEnd" too.
void setField(nlohmann::json& object, const DumpedField& field);

/// A slot with its number, whether it is occupied, and its fields.
nlohmann::json jsonOf(const DumpedSlot& slot);

/// The field's number as decimal digits.
std::string numberText(const DumpedField& field);

/// "present", "absent", "unreadable" or "not a table".
const char* stateText(TableCopy::State state);

}  // namespace idl::tools

#endif
