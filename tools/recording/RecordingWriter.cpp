// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/RecordingWriter.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/inspect/RecordJson.h"
#include "tools/inspect/TableDump.h"
#include "tools/text/Hexadecimal.h"
#include "tools/text/JsonText.h"

namespace idl::tools::recording {

namespace {

using nlohmann::json;

// Two changes with fewer equal bytes between them are one: a new range would take as many characters.
constexpr std::size_t GAP = 8;

const char* wordOf(Event::Kind kind) {
  switch (kind) {
    case Event::Kind::FUNC_INFO:
      return "funcinfo";
    case Event::Kind::SAVED:
      return "saved";
    case Event::Kind::BEGIN:
      return "begin";
    case Event::Kind::TABLE:
      return "table";
    case Event::Kind::END:
      break;
  }
  return "end";
}

// What makes `now` of `former`, once that is as long, with zeros behind.
json changesOf(std::string former, const std::string& now) {
  former.resize(now.size(), '\0');
  json changes = json::array();
  for (std::size_t at = 0; at < now.size();) {
    if (former[at] == now[at]) {
      ++at;
      continue;
    }
    std::size_t end = at + 1;
    for (std::size_t k = end; k < now.size() && k < end + GAP; ++k) {
      if (former[k] != now[k]) {
        end = k + 1;
      }
    }
    changes.push_back({{"at", at}, {"hex", hexadecimalOf(now.substr(at, end - at))}});
    at = end;
  }
  return changes;
}

// The decoded fields that are not the same: the bytes are the record, these are for whoever reads it.
void addFields(const Source& source, const TableCopy& former, const TableCopy& now, json& line) {
  const TableDump before = dumpTable(source, former);
  const TableDump after = dumpTable(source, now);
  json fields = json::object();
  for (const DumpedField& field : after.head) {
    json object;
    setField(object, field);
    fields.update(object);
  }
  for (const DumpedField& field : before.head) {
    json object;
    setField(object, field);
    for (const auto& [key, value] : object.items()) {
      if (fields.contains(key) && fields[key] == value) {
        fields.erase(key);
      }
    }
  }
  if (!fields.empty()) {
    line["fields"] = fields;
  }
  json slots = json::array();
  for (std::size_t k = 0; k < after.slots.size(); ++k) {
    json slot = jsonOf(after.slots[k]);
    const bool isFree = !after.slots[k].isOccupied;
    if (k >= before.slots.size() ? isFree : slot == jsonOf(before.slots[k])) {
      continue;
    }
    slots.push_back(isFree ? json{{"slot", after.slots[k].slot}, {"occupied", false}} : std::move(slot));
  }
  if (!slots.empty()) {
    line["slots"] = slots;
  }
}

// A record that holds nothing is left out.
void addRecord(const char* key, const std::string& record, const std::string& nothing, json& object) {
  if (record != nothing) {
    object[key] = changesOf("", record);
  }
}

json jsonOf(const RecordedRow& row, std::size_t number) {
  static const RecordedRow NOTHING = rowOf({});
  json object = tools::jsonOf(row.header);
  object["row"] = number;
  addRecord("btBytes", row.bt, NOTHING.bt, object);
  addRecord("cpBytes", row.cp, NOTHING.cp, object);
  addRecord("aapBytes", row.aap, NOTHING.aap, object);
  return object;
}

json changesOf(const RecordedList& former, const RecordedList& now) {
  json object;
  object["started"] = now.isStarted;
  object["count"] = now.rows.size();
  object["rows"] = json::array();
  for (std::size_t k = 0; k < now.rows.size(); ++k) {
    if (k >= former.rows.size() || former.rows[k] != now.rows[k]) {
      object["rows"].push_back(jsonOf(now.rows[k], k + 1));
    }
  }
  return object;
}

json entriesOf(const SavedTableCopy& saved) {
  json entries = json::array();
  for (const auto& entry : savedEntries(saved)) {
    json object;
    object["btid"] = entry.btid;
    setText(object, "name", entry.name);
    object["suffix"] = entry.suffix;
    entries.push_back(object);
  }
  return entries;
}

const char* stateText(SavedTableCopy::State state) {
  switch (state) {
    case SavedTableCopy::State::ABSENT:
      return "absent";
    case SavedTableCopy::State::UNREADABLE:
      return "unreadable";
    case SavedTableCopy::State::NOT_A_FILE:
      return "not a file";
    case SavedTableCopy::State::READ:
      break;
  }
  return "present";
}

}  // namespace

RecordingWriter::RecordingWriter(std::ostream& output, const Header& header) : mOutput(output) {
  json line;
  line["schema"] = SCHEMA;
  line["event"] = "recording";
  line["version"] = VERSION;
  line["started"] = header.started;
  line["pseudonymised"] = header.isPseudonymised;
  line["byteOrder"] = "little";
  for (const Source* source : SOURCES) {
    line["sizes"][source->word] = source->segmentSize;
  }
  writeLine(line);
}

void RecordingWriter::write(const Event& event) {
  json line;
  line["schema"] = SCHEMA;
  line["event"] = wordOf(event.kind);
  line["timeMs"] = event.time.count();
  if (event.source != nullptr) {
    TableCopy& last = mLast.of(*event.source);
    line["state"] = tools::stateText(event.copy.state);
    if (event.copy.isRead()) {
      line["size"] = decimal(event.copy.objectSize);
      line["changed"] = changesOf(last.bytes, event.copy.bytes);
      addFields(*event.source, last, event.copy, line);
      if (!event.copy.wasLocked) {
        line["readWithoutLock"] = true;
        line["settled"] = event.copy.isSettled;
      }
    }
    last = event.copy;
  }
  if (event.kind == Event::Kind::SAVED) {
    line["state"] = stateText(event.saved.state);
    if (event.saved.isRead()) {
      line["size"] = decimal(event.saved.size);
      line["changed"] = changesOf(mLast.saved.bytes, event.saved.bytes);
      line["entries"] = entriesOf(event.saved);
    }
    mLast.saved = event.saved;
  }
  if (event.kind == Event::Kind::TABLE && event.source != nullptr) {
    line["source"] = event.source->word;
    line["pass"] = event.isPass;
    if (event.list != mList) {
      line["list"] = changesOf(mList, event.list);
      mList = event.list;
    }
  }
  writeLine(line);
}

void RecordingWriter::writeLine(json& line) {
  line["line"] = ++mLines;
  mOutput << jsonText(line, -1) << std::endl;
}

}  // namespace idl::tools::recording
