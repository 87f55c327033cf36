// SPDX-License-Identifier: Apache-2.0
#include <iomanip>
#include <memory>
#include <sstream>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/FindingOutput.h"
#include "tools/idlctl/Owner.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/inspect/LockView.h"
#include "tools/text/Counted.h"
#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

struct Options {
  std::string saveFolder;
  bool isJson = false;
};

const char* wordOf(LockView::State state) {
  switch (state) {
    case LockView::State::ABSENT:
      return "absent";
    case LockView::State::UNREADABLE:
      return "unreadable";
    case LockView::State::NOT_A_LOCK:
      return "not a lock";
    case LockView::State::NEW:
      return "new";
    case LockView::State::FREE:
      return "free";
    case LockView::State::HELD:
      return "held";
    case LockView::State::HELD_BY_DEAD:
      return "held by the dead";
    case LockView::State::GARBAGE:
      return "garbage";
    case LockView::State::OTHER_VERSION:
      break;
  }
  return "of another version";
}

bool hasHolder(const LockView& lock) {
  return lock.state == LockView::State::HELD || lock.state == LockView::State::HELD_BY_DEAD;
}

struct Patient {
  const Source* source;
  const TableCopy& copy;
  LockView lock;
};

std::string startRule(const Unit& unit) {
  if (awaitsBluetooth(unit.funcInfo)) {
    return "FuncInfo says that the unit has Bluetooth: a list starts with the first refresh of Bluetooth";
  }
  return std::string(unit.funcInfo.isRead() ? "FuncInfo says that the unit has no Bluetooth"
                                            : "there is no FuncInfo to be read") +
         ": a list starts with the first refresh of any source";
}

std::string savedText(const SavedTableCopy& saved) {
  const std::string path = quotedText(saved.path);
  if (!saved.isRead()) {
    return path + (saved.state == SavedTableCopy::State::ABSENT ? ": absent, so that all numbers are given anew"
                                                                : ": cannot be read");
  }
  return path + ": " + std::to_string(savedEntries(saved).size()) + " entries, " + std::to_string(saved.size) +
         " bytes, " + modeText(saved.mode) + " " + ownerText(saved.owner, saved.group);
}

void print(const std::vector<Patient>& patients, const Unit& unit, const ListNow& list, const Streams& streams) {
  TextTable table({{"Source"},
                   {"Segment"},
                   {"State"},
                   {"Bytes", Align::RIGHT},
                   {"Mode"},
                   {"Owner"},
                   {"Lock"},
                   {"Holder", Align::RIGHT},
                   {"Read"}});
  for (const Patient& patient : patients) {
    const TableCopy& copy = patient.copy;
    const bool isThere = copy.isRead();
    table.add({{patient.source->word, Colour::BOLD},
               {patient.source->segment},
               {stateText(copy), isThere ? Colour::GREEN : Colour::YELLOW},
               {isThere ? std::to_string(copy.objectSize) : ""},
               {isThere ? modeText(copy.mode) : ""},
               {isThere ? ownerText(copy.owner, copy.group) : ""},
               {wordOf(patient.lock.state)},
               {hasHolder(patient.lock) ? std::to_string(patient.lock.holder) : ""},
               {!isThere         ? ""
                : copy.wasLocked ? "under its lock"
                                 : "without lock"}});
  }
  streams.out << table.text(streams.colour) << "\nStart: " << startRule(unit)
              << ".\nSaved numbers: " << savedText(unit.saved)
              << ".\nList: " << (list.isStarted ? counted(list.phones.size(), "phone") : std::string("not started"))
              << ".\n";
}

nlohmann::json asJson(const std::vector<Patient>& patients, const Unit& unit, const ListNow& list) {
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  for (const Patient& patient : patients) {
    nlohmann::json source = jsonOf(patient.copy);
    if (patient.copy.isRead()) {
      source["size"] = decimal(patient.copy.objectSize);
      source["mode"] = modeText(patient.copy.mode);
      source["owner"] = patient.copy.owner;
      source["group"] = patient.copy.group;
    }
    source["lock"] = wordOf(patient.lock.state);
    if (hasHolder(patient.lock)) {
      source["holder"] = patient.lock.holder;
    }
    object["sources"][patient.source->word] = source;
  }
  object["awaitsBluetooth"] = awaitsBluetooth(unit.funcInfo);
  object["started"] = list.isStarted;
  object["phones"] = list.phones.size();
  setText(object["saved"], "path", unit.saved.path);
  object["saved"]["present"] = unit.saved.isRead();
  object["saved"]["entries"] = unit.saved.isRead() ? savedEntries(unit.saved).size() : 0;
  return object;
}

void append(std::vector<Finding>& all, const std::vector<Finding>& more) {
  all.insert(all.end(), more.begin(), more.end());
}

int run(const Options& options, const Streams& streams) {
  const Unit unit = readUnit(options.saveFolder);
  ListNow list;
  buildList(unit, list);
  std::vector<Patient> patients;
  std::vector<Finding> findings;
  for (const Source* source : SOURCES) {
    patients.push_back({source, unit.of(*source), viewLock(source->segment)});
    append(findings, checkObject(*source, unit.of(*source)));
    append(findings, checkLock(*source, patients.back().lock));
    append(findings, checkRecords(*source, unit.of(*source)));
  }
  append(findings, checkSaved(unit.saved));
  append(findings, checkList(unit, list));
  if (options.isJson) {
    nlohmann::json object = asJson(patients, unit, list);
    object["findings"] = jsonOf(findings);
    streams.out << jsonText(object) << '\n';
  } else {
    print(patients, unit, list, streams);
    streams.out << (findings.empty() ? "\nNothing is wrong.\n" : "\n");
    tools::print(findings, streams.out, streams.colour);
  }
  return findings.empty() ? EXIT_YES : EXIT_NO;
}

}  // namespace

void addDoctor(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option(
      "--save-dir", options->saveFolder,
      "the folder of the saved numbers; else LM_SAVE_FILE_DIR, the system's if it exists, this user's own");
  arguments.flag("--json", options->isJson, "one JSON object");
  arguments.footer(
      "Processes are named as they call themselves, each in its own container.\n"
      "Exit codes:\n"
      "  0    nothing is wrong\n"
      "  1    anything was found: a table that is absent, not to be read or damaged as well\n"
      "  2    wrong arguments\n"
      "Examples:\n  idlctl doctor\n  idlctl doctor --json | jq '.findings[].id'");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
