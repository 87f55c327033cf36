// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/inspect/LiveList.h"
#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

using Kind = LiveList::Event::Kind;

constexpr std::chrono::milliseconds INTERVAL{200};
constexpr std::chrono::milliseconds SHORTEST_INTERVAL{1};  // 0 would have the unit's processor for itself

struct Options {
  std::string saveFolder;
  bool isJson = false;
  unsigned count = 0;  // 0: no limit
  std::optional<std::chrono::milliseconds> timeout;
  std::optional<std::chrono::milliseconds> interval;
};

const char* wordOf(Kind kind) {
  switch (kind) {
    case Kind::SOURCE_LOST:
      return "sourceLost";
    case Kind::SOURCE_BACK:
      return "sourceBack";
    case Kind::REMOVED:
      return "removed";
    case Kind::ADDED:
      return "added";
    case Kind::MOVED:
      return "moved";
    case Kind::CHANGED:
      break;
  }
  return "changed";
}

std::string row(std::size_t index) { return "row " + std::to_string(index + 1); }

std::string phoneText(const LmSIntegratedDeviceListDef::DeviceInfo& phone) {
  std::string text = quotedText(phone.name);
  for (const char* field : {"type", "btid", "port", "session", "suffix"}) {
    const std::string value = fieldText(phone, field);
    if (value != "-") {
      text += std::string(" ") + field + "=" + value;
    }
  }
  return text;
}

std::string lineOf(const LiveList::Event& event) {
  switch (event.kind) {
    case Kind::SOURCE_LOST:
      return std::string("source lost: ") + event.source->word;
    case Kind::SOURCE_BACK:
      return std::string("source back: ") + event.source->word;
    case Kind::REMOVED:
      return "removed " + row(event.formerRow) + ": " + phoneText(event.former);
    case Kind::ADDED:
      return "added " + row(event.row) + ": " + phoneText(event.now);
    case Kind::MOVED:
      return "moved " + row(event.formerRow) + " to " + row(event.row) + ": " + phoneText(event.now);
    case Kind::CHANGED:
      break;
  }
  std::string text = "changed " + row(event.row) + ": " + quotedText(event.now.name);
  for (const std::string& field : changedFields(event.former, event.now)) {
    text += ' ' + field + ' ' + fieldText(event.former, field) + " -> " + fieldText(event.now, field);
  }
  return text;
}

nlohmann::json jsonOf(const LiveList::Event& event) {
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  object["event"] = wordOf(event.kind);
  object["source"] = event.source->word;
  if (event.kind == Kind::SOURCE_LOST || event.kind == Kind::SOURCE_BACK) {
    return object;
  }
  if (event.kind != Kind::ADDED) {
    object["fromRow"] = event.formerRow + 1;
    object["from"] = tools::jsonOf(event.former);
  }
  if (event.kind != Kind::REMOVED) {
    object["row"] = event.row + 1;
    object["device"] = tools::jsonOf(event.now);
  }
  if (event.kind == Kind::CHANGED) {
    object["fields"] = changedFields(event.former, event.now);
  }
  return object;
}

nlohmann::json initialState(const LiveList& list) {
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  object["event"] = "initial";
  object["started"] = list.isStarted();
  for (const Source* source : TABLES) {
    object["sources"][source->word] = jsonOf(list.unit().of(*source));
  }
  object["devices"] = nlohmann::json::array();
  for (const auto& phone : list.phones()) {
    object["devices"].push_back(tools::jsonOf(phone));
  }
  return object;
}

int run(const Options& options, const Streams& streams) {
  const Stopping stopping;
  const Deadline deadline(options.timeout);
  const std::chrono::milliseconds interval = std::max(SHORTEST_INTERVAL, options.interval.value_or(INTERVAL));
  LiveList list(options.saveFolder);
  saySources(list.unit(), streams.err);
  if (options.isJson) {
    streams.out << jsonText(initialState(list), -1) << std::endl;
  } else {
    streams.out << (list.phones().empty() ? "no phones\n" : tableOf(list.phones(), streams.colour)) << std::flush;
  }
  for (unsigned told = 0;;) {
    if (options.count != 0 && told >= options.count) {
      return EXIT_YES;
    }
    if (deadline.isOver()) {
      return options.count != 0 ? EXIT_TIMED_OUT : EXIT_YES;
    }
    if (stopping.within(deadline.atMost(interval))) {
      return EXIT_YES;
    }
    for (const LiveList::Event& event : list.poll()) {
      if (options.count != 0 && told >= options.count) {
        break;
      }
      streams.out << (options.isJson ? jsonText(jsonOf(event), -1) : lineOf(event)) << std::endl;
      ++told;
    }
  }
}

}  // namespace

void addWatch(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option(
      "--save-dir", options->saveFolder,
      "the folder of the saved numbers; else LM_SAVE_FILE_DIR, the system's if it exists, this user's own");
  arguments.flag("--json", options->isJson, "one JSON object a line");
  arguments.option("-n", options->count, "end after so many events").atLeastOne();
  arguments.duration("--timeout", options->timeout, "end after that time; 124 where -n wanted more events");
  arguments.duration("--interval", options->interval, "time between two looks, 200ms");
  arguments.footer(
      "Exit codes:\n"
      "  0    stopped, or so many events were told, or the time is over that was given without -n\n"
      "  2    wrong arguments\n"
      "  124  timed out before so many events\n"
      "Examples:\n  idlctl watch\n  idlctl watch --json --timeout 10s\n  idlctl watch -n 1");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
