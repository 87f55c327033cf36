// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/PhoneOutput.h"

#include <cstring>
#include <ostream>

#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr char NOTHING[] = "-";

std::string orNothing(bool isThere, std::string text) { return isThere ? std::move(text) : NOTHING; }

}  // namespace

const char* stateText(const TableCopy& copy) { return stateText(copy.state); }

nlohmann::json jsonOf(const TableCopy& copy) {
  nlohmann::json object;
  object["state"] = stateText(copy);
  if (copy.isRead()) {
    object["readWithoutLock"] = !copy.wasLocked;
    object["settled"] = copy.isSettled;
  }
  return object;
}

std::string tableOf(const std::vector<IntegratedDevice>& list, bool colour) {
  TextTable table({{"Row", Align::RIGHT},
                   {"Name"},
                   {"Type"},
                   {"btid", Align::RIGHT},
                   {"Port", Align::RIGHT},
                   {"Session", Align::RIGHT},
                   {"Suffix", Align::RIGHT},
                   {"cpDeviceId", Align::RIGHT},
                   {"aapId"}});
  for (std::size_t row = 0; row < list.size(); ++row) {
    const DeviceInfo& phone = list[row];
    table.add({{std::to_string(row + 1)},
               {fieldText(phone, "name"), Colour::BOLD},
               {fieldText(phone, "type")},
               {fieldText(phone, "btid")},
               {fieldText(phone, "port")},
               {fieldText(phone, "session")},
               {fieldText(phone, "suffix")},
               {fieldText(phone, "cpDeviceId")},
               {fieldText(phone, "aapId")}});
  }
  return table.text(colour);
}

std::string fieldText(const DeviceInfo& phone, const std::string& field) {
  if (field == "type") {
    return sourceOf(phone.type).word;
  }
  if (field == "name") {
    return quotedText(phone.name);
  }
  if (field == "btid") {
    return orNothing(phone.btid != DeviceInfo::BTID_NONE, std::to_string(phone.btid));
  }
  if (field == "port") {
    return orNothing(phone.port != 0, std::to_string(phone.port));
  }
  if (field == "session") {
    return orNothing(phone.session != 0, std::to_string(phone.session));
  }
  if (field == "cpDeviceId") {
    return orNothing(phone.cpDeviceId != 0, std::to_string(phone.cpDeviceId));
  }
  if (field == "aapId") {
    return orNothing(!phone.aapId.empty(), quotedText(phone.aapId));
  }
  return orNothing(phone.suffix != 0, std::to_string(phone.suffix));
}

bool saySources(const Unit& unit, std::ostream& messages) {
  bool areReadable = true;
  for (const Source* source : TABLES) {
    const TableCopy& copy = unit.of(*source);
    const std::string about = std::string(source->word) + " (" + source->segment + "): ";
    if (copy.isAbsent()) {
      messages << about << "absent\n";
    } else if (copy.state == TableCopy::State::UNREADABLE) {
      messages << about << std::strerror(copy.error) << '\n';
      areReadable = false;
    } else if (copy.state == TableCopy::State::NOT_A_TABLE) {
      messages << about << "not a table; clients take it for an empty one\n";
    } else if (!copy.wasLocked) {
      messages << about << (copy.isSettled ? "read without lock\n" : "read without lock, and changing all the time\n");
    }
  }
  return areReadable;
}

}  // namespace idl::tools
