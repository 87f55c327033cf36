// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/RecordJson.h"

#include <nlohmann/json.hpp>

#include "tools/text/JsonText.h"

namespace idl::tools {

nlohmann::json jsonOf(const LmSIntegratedDeviceListDef::DeviceInfo& phone) {
  nlohmann::json object;
  object["type"] = sourceOf(phone.type).word;
  setText(object, "name", phone.name);
  object["btid"] = phone.btid;
  object["port"] = phone.port;
  object["session"] = phone.session;
  object["cpDeviceId"] = decimal(phone.cpDeviceId);
  setText(object, "aapId", phone.aapId);
  object["suffix"] = phone.suffix;
  return object;
}

void setField(nlohmann::json& object, const DumpedField& field) {
  if (field.kind == DumpedField::Kind::TEXT) {
    setText(object, field.name, field.text);
    if (!field.hasEnd) {
      object[std::string(field.name) + "HasNoEnd"] = true;
    }
  } else if (field.kind == DumpedField::Kind::LONG_NUMBER) {
    object[field.name] = numberText(field);
  } else if (field.isSigned) {
    object[field.name] = static_cast<std::int64_t>(field.number);
  } else {
    object[field.name] = field.number;
  }
}

nlohmann::json jsonOf(const DumpedSlot& slot) {
  nlohmann::json object;
  object["slot"] = slot.slot;
  object["occupied"] = slot.isOccupied;
  for (const DumpedField& field : slot.fields) {
    setField(object, field);
  }
  return object;
}

std::string numberText(const DumpedField& field) {
  return field.isSigned ? std::to_string(static_cast<std::int64_t>(field.number)) : std::to_string(field.number);
}

const char* stateText(TableCopy::State state) {
  switch (state) {
    case TableCopy::State::ABSENT:
      return "absent";
    case TableCopy::State::UNREADABLE:
      return "unreadable";
    case TableCopy::State::NOT_A_TABLE:
      return "not a table";
    case TableCopy::State::READ:
      break;
  }
  return "present";
}

}  // namespace idl::tools
