// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/RecordingReader.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "SuffixRecord.h"
#include "tools/text/Hexadecimal.h"

namespace idl::tools::recording {

namespace {

using nlohmann::json;

// Many times the longest line that is written: all tables and a full list anew have some 200 KiB.
constexpr std::size_t LONGEST_LINE = 4 << 20;

// A line has seven levels; what a stranger nests deeper would end whatever walks it by recursion.
constexpr int DEEPEST = 16;

// The longest name of a record with a number behind it, and the longest identifier.
constexpr std::size_t LONGEST_NAME = RowFormat::AAP_NAME_SIZE + 4;
constexpr std::size_t LONGEST_ID = RowFormat::AAP_ID_SIZE;

// A list has at most the phones of all tables.
constexpr std::uint64_t MOST_ROWS = 64;

// A hundred years.
constexpr std::uint64_t LATEST = 100ULL * 366 * 24 * 3600 * 1000;

/// What is wrong with a line, before anybody knows which one it is.
class Wrong : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

const json& memberOf(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) {
    throw Wrong(std::string("there is no ") + key);
  }
  return *found;
}

std::uint64_t numberIn(const json& object, const char* key, std::uint64_t most) {
  const json& value = memberOf(object, key);
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > most) {
    throw Wrong(std::string(key) + " is no number up to " + std::to_string(most));
  }
  return value.get<std::uint64_t>();
}

std::string textIn(const json& object, const char* key) {
  const json& value = memberOf(object, key);
  if (!value.is_string()) {
    throw Wrong(std::string(key) + " is no text");
  }
  return value.get<std::string>();
}

bool flagIn(const json& object, const char* key) {
  const json& value = memberOf(object, key);
  if (!value.is_boolean()) {
    throw Wrong(std::string(key) + " is neither true nor false");
  }
  return value.get<bool>();
}

// A number of 64 bits, as the text of its digits.
std::uint64_t longNumberIn(const json& object, const char* key) {
  const std::string text = textIn(object, key);
  const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() <= 20;
  if (isNumber) {
    try {
      return std::stoull(text);
    } catch (const std::out_of_range&) {
    }
  }
  throw Wrong(std::string(key) + " is no number of 64 bits");
}

std::string bytesIn(const json& object, const char* key) {
  const std::optional<std::string> bytes = bytesOf(textIn(object, key));
  if (!bytes) {
    throw Wrong(std::string(key) + " is not hexadecimal");
  }
  return *bytes;
}

// A text of a phone: its bytes, where those are no UTF-8.
std::string phoneTextIn(const json& object, const std::string& key, std::size_t longest) {
  const std::string hexKey = key + "Hex";
  std::string text = object.contains(hexKey) ? bytesIn(object, hexKey.c_str()) : textIn(object, key.c_str());
  if (text.size() > longest) {
    throw Wrong(key + " is longer than " + std::to_string(longest) + " bytes");
  }
  return text;
}

void applyChanges(const json& line, const char* key, std::size_t size, std::string& bytes) {
  bytes.resize(size, '\0');
  const json& changes = memberOf(line, key);
  if (!changes.is_array()) {
    throw Wrong(std::string(key) + " is no array");
  }
  for (const json& change : changes) {
    if (!change.is_object()) {
      throw Wrong("a change is no object");
    }
    const std::string range = bytesIn(change, "hex");
    const auto at = static_cast<std::size_t>(numberIn(change, "at", size));
    if (range.size() > size - at) {
      throw Wrong("a change goes beyond the end");
    }
    std::copy(range.begin(), range.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
  }
}

TableCopy::State stateOf(const std::string& word) {
  if (word == "present") {
    return TableCopy::State::READ;
  }
  if (word == "absent") {
    return TableCopy::State::ABSENT;
  }
  if (word == "unreadable") {
    return TableCopy::State::UNREADABLE;
  }
  if (word == "not a table" || word == "not a file") {
    return TableCopy::State::NOT_A_TABLE;
  }
  throw Wrong("there is no such state");
}

SavedTableCopy::State savedStateOf(const std::string& word) {
  switch (stateOf(word)) {
    case TableCopy::State::ABSENT:
      return SavedTableCopy::State::ABSENT;
    case TableCopy::State::UNREADABLE:
      return SavedTableCopy::State::UNREADABLE;
    case TableCopy::State::NOT_A_TABLE:
      return SavedTableCopy::State::NOT_A_FILE;
    case TableCopy::State::READ:
      break;
  }
  return SavedTableCopy::State::READ;
}

const Source& sourceIn(const json& line) {
  const Source* source = sourceCalled(textIn(line, "source").c_str());
  if (source == nullptr || !source->isTable) {
    throw Wrong("there is no such source");
  }
  return *source;
}

// A record, as it differs from zeros; one that is not there holds nothing.
void takeRecord(const json& row, const char* key, std::string& record) {
  if (row.contains(key)) {
    const std::size_t size = record.size();
    record.clear();
    applyChanges(row, key, size, record);
  }
}

RecordedRow rowIn(const json& object) {
  RecordedRow row = rowOf({});
  const std::string type = textIn(object, "type");
  const Source* source = sourceCalled(type.c_str());
  if (source == nullptr || !source->isTable) {
    throw Wrong("type is no source");
  }
  row.header.type = source->type;
  row.header.name = phoneTextIn(object, "name", LONGEST_NAME);
  row.header.btid = static_cast<std::uint8_t>(numberIn(object, "btid", 255));
  const json& port = memberOf(object, "port");
  if (!port.is_number_integer() ||
      (port.is_number_unsigned() ? port.get<std::uint64_t>() > INT32_MAX : port.get<std::int64_t>() < INT32_MIN)) {
    throw Wrong("port is no number of 32 bits");
  }
  row.header.port = port.get<std::int32_t>();
  row.header.session = static_cast<std::uint8_t>(numberIn(object, "session", 255));
  row.header.cpDeviceId = longNumberIn(object, "cpDeviceId");
  row.header.aapId = phoneTextIn(object, "aapId", LONGEST_ID);
  row.header.suffix = static_cast<std::uint8_t>(numberIn(object, "suffix", 255));
  takeRecord(object, "btBytes", row.bt);
  takeRecord(object, "cpBytes", row.cp);
  takeRecord(object, "aapBytes", row.aap);
  return row;
}

Header headerIn(const json& line) {
  if (textIn(line, "event") != "recording") {
    throw Wrong("the first line does not say that this is a recording");
  }
  for (const Source* source : SOURCES) {
    if (numberIn(memberOf(line, "sizes"), source->word, UINT64_MAX) != source->segmentSize) {
      throw Wrong(std::string("the table ") + source->word + " has another size");
    }
  }
  if (textIn(line, "byteOrder") != "little") {
    throw Wrong("the bytes have another order");
  }
  return {textIn(line, "started"), flagIn(line, "pseudonymised")};
}

}  // namespace

RecordingReader::RecordingReader(std::istream& input) : mInput(input) {
  json line;
  if (!parseLine(line)) {
    throw BadRecording(1, "there is no whole line");
  }
  try {
    const std::uint64_t version = numberIn(line, "version", UINT64_MAX);
    if (version != VERSION) {
      throw OtherVersion(mLine,
                         "version " + std::to_string(version) + "; this program reads " + std::to_string(VERSION));
    }
    checkNumber(line);
    mHeader = headerIn(line);
  } catch (const Wrong& wrong) {
    throw BadRecording(mLine, wrong.what());
  }
}

bool RecordingReader::next(Event& event) {
  json line;
  if (!parseLine(line)) {
    return false;
  }
  try {
    checkNumber(line);
    Event taken;
    take(line, taken);
    event = std::move(taken);
  } catch (const Wrong& wrong) {
    throw BadRecording(mLine, wrong.what());
  }
  return true;
}

// False at the end. A line without its end is none, and neither is an empty one behind the last.
bool RecordingReader::readLine(std::string& text) {
  text.clear();
  std::streambuf& input = *mInput.rdbuf();
  for (int next = input.sbumpc(); next != std::streambuf::traits_type::eof(); next = input.sbumpc()) {
    if (next == '\n' && text.empty() && input.sgetc() == std::streambuf::traits_type::eof()) {
      break;
    }
    if (next == '\n') {
      ++mLine;
      return true;
    }
    if (text.size() == LONGEST_LINE) {
      throw BadRecording(mLine + 1, "the line is too long");
    }
    text += static_cast<char>(next);
  }
  mIsAtEnd = true;
  mIsCut = !text.empty();
  return false;
}

bool RecordingReader::parseLine(json& line) {
  std::string text;
  if (!readLine(text)) {
    return false;
  }
  bool isTooDeep = false;
  const auto isWanted = [&isTooDeep](int depth, json::parse_event_t /*event*/, const json& /*parsed*/) {
    isTooDeep = isTooDeep || depth > DEEPEST;
    return depth <= DEEPEST;
  };
  line = json::parse(text, isWanted, false);
  if (isTooDeep) {
    throw BadRecording(mLine, "it is nested too deep");
  }
  if (!line.is_object()) {
    throw BadRecording(mLine, "it is no JSON object");
  }
  const auto schema = line.find("schema");
  if (schema == line.end() || !schema->is_number_unsigned()) {
    throw BadRecording(mLine, "there is no schema");
  }
  if (schema->get<std::uint64_t>() != SCHEMA) {
    throw OtherVersion(mLine, "its schema is not " + std::to_string(SCHEMA));
  }
  return true;
}

// Each line says what its predecessors made of things: one that is lost would be a difference somewhere behind it, or
// none.
void RecordingReader::checkNumber(const json& line) const {
  const std::uint64_t number = numberIn(line, "line", UINT64_MAX);
  if (number != mLine) {
    throw Wrong("it says that it is line " + std::to_string(number) + "; lines were lost, or put in");
  }
}

void RecordingReader::take(const json& line, Event& event) {
  if (mHasEnd) {
    throw Wrong("there is a line behind the end");
  }
  event.time = std::chrono::milliseconds(numberIn(line, "timeMs", LATEST));
  if (event.time < mTime) {
    throw Wrong("its time is before that of the line before");
  }
  mTime = event.time;
  const std::string word = textIn(line, "event");
  if (word == "funcinfo") {
    event.kind = Event::Kind::FUNC_INFO;
    takeTable(line, FUNC_INFO_SOURCE, event);
  } else if (word == "saved") {
    event.kind = Event::Kind::SAVED;
    takeSaved(line, event);
  } else if (word == "begin") {
    if (mHasBegun) {
      throw Wrong("the list begins a second time");
    }
    mHasBegun = true;
    event.kind = Event::Kind::BEGIN;
  } else if (word == "table") {
    if (!mHasBegun) {
      throw Wrong("there is a table before the list begins");
    }
    event.kind = Event::Kind::TABLE;
    takeTable(line, sourceIn(line), event);
    event.isPass = flagIn(line, "pass");
    if (event.isPass && !isThere(event.copy)) {
      throw Wrong("a table that is not there was taken over");
    }
    if (!event.isPass && line.contains("list")) {
      throw Wrong("there is a list without a pass");
    }
    takeList(line);
    event.list = mList;
  } else if (word == "end") {
    mHasEnd = true;
    event.kind = Event::Kind::END;
  } else {
    throw Wrong("there is no such event");
  }
}

void RecordingReader::takeTable(const json& line, const Source& source, Event& event) {
  TableCopy& last = mLast.of(source);
  TableCopy now;
  now.state = stateOf(textIn(line, "state"));
  if (now.isRead()) {
    now.objectSize = longNumberIn(line, "size");
    now.bytes = last.bytes;
    applyChanges(line, "changed", static_cast<std::size_t>(std::min<std::uint64_t>(now.objectSize, source.segmentSize)),
                 now.bytes);
    now.wasLocked = !line.contains("readWithoutLock") || !flagIn(line, "readWithoutLock");
    now.isSettled = !line.contains("settled") || flagIn(line, "settled");
  }
  last = now;
  event.source = &source;
  event.copy = std::move(now);
}

void RecordingReader::takeSaved(const json& line, Event& event) {
  SavedTableCopy now;
  now.state = savedStateOf(textIn(line, "state"));
  if (now.isRead()) {
    now.size = longNumberIn(line, "size");
    now.bytes = mLast.saved.bytes;
    applyChanges(line, "changed",
                 static_cast<std::size_t>(std::min<std::uint64_t>(now.size, sizeof(SuffixFileImage) + 1)), now.bytes);
  }
  mLast.saved = now;
  event.saved = std::move(now);
}

void RecordingReader::takeList(const json& line) {
  if (!line.contains("list")) {
    return;
  }
  const json& list = line["list"];
  if (!list.is_object()) {
    throw Wrong("list is no object");
  }
  RecordedList now;
  now.isStarted = flagIn(list, "started");
  const std::uint64_t count = numberIn(list, "count", MOST_ROWS);
  if (!now.isStarted && count != 0) {
    throw Wrong("a list that is not started has phones");
  }
  std::vector<std::optional<RecordedRow>> rows(mList.rows.begin(), mList.rows.end());
  rows.resize(static_cast<std::size_t>(count));
  const json& changed = memberOf(list, "rows");
  if (!changed.is_array()) {
    throw Wrong("rows is no array");
  }
  for (const json& row : changed) {
    if (!row.is_object()) {
      throw Wrong("a row is no object");
    }
    const std::uint64_t number = numberIn(row, "row", count);
    if (number == 0) {
      throw Wrong("rows count from 1");
    }
    rows[static_cast<std::size_t>(number - 1)] = rowIn(row);
  }
  for (std::optional<RecordedRow>& row : rows) {
    if (!row) {
      throw Wrong("a row is missing");
    }
    now.rows.push_back(std::move(*row));
  }
  mList = std::move(now);
}

}  // namespace idl::tools::recording
