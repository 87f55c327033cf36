// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "FixedText.h"
#include "IntegratedDeviceList/idl.h"
#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;

struct Options {
  std::string saveFolder;
  bool explains = false;
  bool isJson = false;
};

// Which tables know the phone, in the order in which they were merged; the last one's header is the row's.
std::vector<const Source*> tablesOf(const IntegratedDevice& phone, const Explanation& why) {
  std::vector<const Source*> tables;
  if (idl::isBtPaired(phone)) {
    tables.push_back(&BT_SOURCE);
    for (const Explanation::DeviceType type : why.foldedInto(phone.btid)) {
      tables.push_back(&sourceOf(type));
    }
  } else {
    tables.push_back(&sourceOf(phone.type));
  }
  return tables;
}

// Of two pairings of one id, only the first is merged: the other row has a Bluetooth header.
std::vector<const Source*> tablesOfRow(const IntegratedDevice& phone, const Explanation& why) {
  std::vector<const Source*> tables = tablesOf(phone, why);
  if (tables.back()->type != phone.type) {
    tables.assign(1, &sourceOf(phone.type));
  }
  return tables;
}

std::string personsOf(const std::vector<const Source*>& tables) {
  std::string text;
  for (std::size_t i = 0; i < tables.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == tables.size() ? " and " : ", ");
    text += tables[i]->person;
  }
  return text;
}

std::string fieldsSentence(const IntegratedDevice& phone, const Explanation& why) {
  const std::vector<const Source*> tables = tablesOfRow(phone, why);
  if (tables.size() == 1) {
    return std::string("all fields from ") + tables[0]->person;
  }
  return "merged by the Bluetooth id " + std::to_string(phone.btid) + " from " + personsOf(tables) +
         "; name, btid, port, session and identifiers from " + tables.back()->person + ", the last";
}

bool lostItsPairing(const IntegratedDevice& phone, const Explanation& why, std::uint8_t& claimed) {
  for (const Explanation::UnknownPairing& unknown : why.unknownPairings()) {
    const IntegratedDevice& device = unknown.device;
    if (unknown.isListed && !idl::isBtPaired(phone) && device.type == phone.type && device.port == phone.port &&
        device.cpDeviceId == phone.cpDeviceId && device.aapId == phone.aapId) {
      claimed = device.btid;
      return true;
    }
  }
  return false;
}

std::string rowDisplayedAs(const std::string& name, const std::vector<IntegratedDevice>& list) {
  for (std::size_t row = 0; row < list.size(); ++row) {
    if (list[row].name == name) {
      return "row " + std::to_string(row + 1);
    }
  }
  return "another row";
}

std::string takenText(const Explanation::Number& number, const std::vector<IntegratedDevice>& list) {
  std::string text;
  for (const Explanation::Taken& taken : number.taken) {
    text += (text.empty() ? "" : ", ") + std::to_string(taken.number) + " would show " + quotedText(taken.name) +
            " as " + rowDisplayedAs(taken.name, list) + " does";
  }
  return text;
}

std::string wordOf(Explanation::Key key) { return key == Explanation::Key::BTID ? "Bluetooth id" : "port"; }

std::string numberSentence(const DeviceInfo& phone, const Explanation::Number& number,
                           const std::vector<IntegratedDevice>& list) {
  const std::string own = "number " + std::to_string(phone.suffix);
  const std::string renamed = number.wasRenamed ? "; the number of " + quotedText(number.otherName) + ", of the same " +
                                                      wordOf(number.sharedKey) + ", is not kept for another name"
                                                : "";
  switch (number.why) {
    case Explanation::Why::KEPT: {
      const std::string key = wordOf(number.key);
      return own + (number.since == Explanation::Since::SAVED
                        ? " kept from the saved table: the same name and " + key
                        : " kept from the refresh before: the same name and " + key);
    }
    case Explanation::Why::GIVEN:
      return own +
             (number.taken.empty() ? std::string(", the first that is free")
                                   : ", the first that is free: " + takenText(number, list)) +
             renamed;
    case Explanation::Why::NONE:
      return "no number: all that may be tried are taken" + renamed;
    case Explanation::Why::UNKNOWN:
      break;
  }
  return "not numbered";
}

void explain(const ListNow& list, std::ostream& out) {
  for (std::size_t row = 0; row < list.phones.size(); ++row) {
    const IntegratedDevice& phone = list.phones[row];
    out << "\nRow " << row + 1 << ", " << quotedText(phone.name) << ":\n";
    out << "  " << fieldsSentence(phone, list.why) << '\n';
    std::uint8_t claimed = 0;
    if (lostItsPairing(phone, list.why, claimed)) {
      out << "  claims the Bluetooth id " << unsigned{claimed}
          << ", which Bluetooth does not know: listed as connected by USB alone\n";
    }
    out << "  " << numberSentence(phone, list.why.numberOf(row), list.phones) << '\n';
  }
  for (const Explanation::UnknownPairing& unknown : list.why.unknownPairings()) {
    if (!unknown.isListed) {
      out << "\nNot listed: " << quotedText(unknown.device.name) << " of " << sourceOf(unknown.device.type).person
          << ": it claims the Bluetooth id " << unsigned{unknown.device.btid}
          << ", which Bluetooth does not know, and has no USB port\n";
    }
  }
  for (const IntegratedDevice& device : list.why.leftOutRecords()) {
    out << "\nNot listed: " << quotedText(device.name) << " of " << sourceOf(device.type).person
        << ": neither paired nor at a positive USB port\n";
  }
  if (list.why.wereSavedNumbersForgotten()) {
    out << "\nThe saved numbers were forgotten: two of them would be displayed alike\n";
  }
}

nlohmann::json explanationOf(const ListNow& list, std::size_t row) {
  const IntegratedDevice& phone = list.phones[row];
  nlohmann::json object;
  nlohmann::json tables = nlohmann::json::array();
  for (const Source* source : tablesOfRow(phone, list.why)) {
    tables.push_back(source->word);
  }
  object["mergedFrom"] = tables;
  object["fieldsFrom"] = sourceOf(phone.type).word;
  std::uint8_t claimed = 0;
  if (lostItsPairing(phone, list.why, claimed)) {
    object["claimedBtid"] = claimed;
  }
  setText(object, "number", numberSentence(phone, list.why.numberOf(row), list.phones));
  return object;
}

nlohmann::json notListed(const ListNow& list) {
  nlohmann::json refused = nlohmann::json::array();
  for (const Explanation::UnknownPairing& unknown : list.why.unknownPairings()) {
    if (!unknown.isListed) {
      nlohmann::json object = jsonOf(unknown.device);
      object["because"] = "pairing unknown and no USB port";
      refused.push_back(object);
    }
  }
  for (const IntegratedDevice& device : list.why.leftOutRecords()) {
    nlohmann::json object = jsonOf(device);
    object["because"] = "neither paired nor at a positive USB port";
    refused.push_back(object);
  }
  return refused;
}

nlohmann::json asJson(const Unit& unit, const ListNow& list, bool explains) {
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  object["started"] = list.isStarted;
  for (const Source* source : TABLES) {
    object["sources"][source->word] = jsonOf(unit.of(*source));
  }
  object["devices"] = nlohmann::json::array();
  for (std::size_t row = 0; row < list.phones.size(); ++row) {
    nlohmann::json phone = jsonOf(list.phones[row]);
    if (explains) {
      phone["explanation"] = explanationOf(list, row);
    }
    object["devices"].push_back(phone);
  }
  if (explains) {
    object["notListed"] = notListed(list);
  }
  return object;
}

int run(const Options& options, const Streams& streams) {
  const Unit unit = readUnit(options.saveFolder);
  ListNow list;
  buildList(unit, list);
  const bool areReadable = saySources(unit, streams.err);
  if (options.isJson) {
    streams.out << jsonText(asJson(unit, list, options.explains)) << '\n';
  } else {
    if (!list.phones.empty()) {
      streams.out << tableOf(list.phones, streams.colour);
    } else {
      streams.err << (list.isStarted || !awaitsBluetooth(unit.funcInfo)
                          ? "no phones\n"
                          : "no list: the unit has Bluetooth, and its table is not there\n");
    }
    if (options.explains) {
      explain(list, streams.out);
    }
  }
  return areReadable ? EXIT_YES : EXIT_CANNOT_OPEN;
}

}  // namespace

void addList(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option(
      "--save-dir", options->saveFolder,
      "the folder of the saved numbers; else LM_SAVE_FILE_DIR, the system's if it exists, this user's own");
  arguments.flag("--explain", options->explains,
                 "say where each row's fields and number come from, and what is missing");
  arguments.flag("--json", options->isJson, "one JSON object");
  arguments.footer(
      "Exit codes:\n"
      "  0    the list is told, be tables absent or damaged\n"
      "  2    wrong arguments\n"
      "  3    a table is there and cannot be read\n"
      "Examples:\n  idlctl list\n  idlctl list --explain\n  idlctl list --json | jq '.devices[].name'");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
