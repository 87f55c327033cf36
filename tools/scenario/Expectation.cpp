// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Expectation.h"

#include <algorithm>
#include <map>
#include <utility>

#include "tools/text/Escape.h"
#include "tools/text/TextTable.h"

namespace idl::tools::scenario {

namespace {

// Always shown; those beside them only when something is expected of them.
const std::vector<std::string> COLUMNS = {"name", "type", "btid", "port", "session", "suffix"};
const std::vector<std::string> MORE_COLUMNS = {"own", "cp", "aap"};

/// A row, or what is wanted of one, as the texts of its columns: equal texts mean equal values.
using Cells = std::map<std::string, std::string>;

std::string btidText(std::uint64_t btid) { return btid == BTID_NONE ? "none" : std::to_string(btid); }

Cells cellsOf(const Row& row) {
  return {
      {"name", quotedText(row.name)},
      {"type", wordOf(row.type)},
      {"btid", btidText(row.btid)},
      {"port", std::to_string(row.port)},
      {"session", std::to_string(row.session)},
      {"suffix", std::to_string(row.suffix)},
      {"own", quotedText(row.own)},
      {"cp", std::to_string(row.cpId)},
      {"aap", quotedText(row.aapId)},
  };
}

std::string wantedText(const std::string& key, const Value& value) {
  if (key == "name" || key == "own" || key == "aap") {
    return quotedText(value.text);
  }
  if (key == "type") {
    return value.text;
  }
  if (key == "btid") {
    return btidText(value.number);
  }
  return key == "port" ? std::to_string(value.port()) : std::to_string(value.number);
}

/// What is wanted of a row, by `expect list`, `no` and `row`.
Cells wantedRow(const Command& command) {
  Cells wanted;
  const std::size_t nameAt = command.kind == CommandKind::EXPECT_ROW ? 1 : 0;
  if (command.operands.size() > nameAt) {
    wanted["name"] = wantedText("name", command.operands[nameAt]);
  }
  for (const auto& [key, value] : command.options) {
    if (key != "count" && key != "within") {
      wanted[key] = wantedText(key, value);
    }
  }
  return wanted;
}

/// What is wanted by `expect suffix`.
Cells wantedSuffix(const Command& command) {
  return {{"own", quotedText(command.operands[0].text)}, {"suffix", std::to_string(command.operands[1].number)}};
}

bool matches(const Row& row, const Cells& wanted) {
  const Cells cells = cellsOf(row);
  return std::all_of(wanted.begin(), wanted.end(),
                     [&](const auto& entry) { return cells.at(entry.first) == entry.second; });
}

std::uint64_t countOf(const std::vector<Row>& rows, const Cells& wanted) {
  return static_cast<std::uint64_t>(
      std::count_if(rows.begin(), rows.end(), [&](const Row& row) { return matches(row, wanted); }));
}

std::string rowsText(std::uint64_t count) {
  return count == 0 ? "no row is" : count == 1 ? "1 row is" : std::to_string(count) + " rows are";
}

Verdict verdict(bool isMet, const std::string& why) { return {isMet, isMet ? std::string() : why}; }

Verdict judgeCount(const Command& command, const std::vector<Row>& rows) {
  const std::uint64_t count = countOf(rows, wantedRow(command));
  const Value* const exactly = command.option("count");
  if (exactly != nullptr) {
    return verdict(count == exactly->number, rowsText(count) + " like this, not " + exactly->text);
  }
  return verdict(count > 0, "no row is like this");
}

Verdict judgeRow(const Command& command, const std::vector<Row>& rows) {
  const std::uint64_t number = command.operands.front().number;
  if (number > rows.size()) {
    return {false, "there is no row " + std::to_string(number)};
  }
  return verdict(matches(rows[static_cast<std::size_t>(number) - 1], wantedRow(command)),
                 "row " + std::to_string(number) + " is another one");
}

Verdict judgeOrder(const Command& command, const std::vector<Row>& rows) {
  auto at = rows.begin();
  for (const Value& name : command.operands) {
    at = std::find_if(at, rows.end(), [&](const Row& row) { return row.name == name.text; });
    if (at == rows.end()) {
      return {false, quotedText(name.text) + " does not stand there"};
    }
    ++at;
  }
  return {true, {}};
}

std::string table(const std::vector<std::pair<std::string, Cells>>& rows, const std::vector<std::string>& columns,
                  bool colour) {
  std::vector<TextTable::Column> headings = {{"row", Align::RIGHT}};
  for (const std::string& column : columns) {
    const bool isText = column == "name" || column == "own" || column == "aap" || column == "type";
    headings.push_back({column, isText ? Align::LEFT : Align::RIGHT});
  }
  TextTable table(headings);
  for (const auto& [mark, cells] : rows) {
    std::vector<TextTable::Cell> line = {{mark, Colour::DIM}};
    for (const std::string& column : columns) {
      const auto found = cells.find(column);
      line.push_back({found == cells.end() ? std::string() : found->second, Colour::NONE});
    }
    table.add(line);
  }
  return table.text(colour);
}

std::string listTable(const MaybeList& list, const std::vector<std::string>& columns, bool colour) {
  if (!list) {
    return "(the list is not started)\n";
  }
  if (list->empty()) {
    return "(no phones)\n";
  }
  std::vector<std::pair<std::string, Cells>> rows;
  for (const Row& row : *list) {
    rows.emplace_back(std::to_string(rows.size() + 1), cellsOf(row));
  }
  return table(rows, columns, colour);
}

/// What is expected as rows, each with the mark that stands in front of it.
std::vector<std::pair<std::string, Cells>> wantedRows(const Command& command) {
  switch (command.kind) {
    case CommandKind::EXPECT_LIST: {
      const Value* const count = command.option("count");
      return {{count == nullptr ? "any" : count->text + " of", wantedRow(command)}};
    }
    case CommandKind::EXPECT_NO:
      return {{"no", wantedRow(command)}};
    case CommandKind::EXPECT_ROW:
      return {{std::to_string(command.operands.front().number), wantedRow(command)}};
    case CommandKind::EXPECT_ORDER: {
      std::vector<std::pair<std::string, Cells>> rows;
      for (const Value& name : command.operands) {
        rows.emplace_back(rows.empty() ? "any" : "later", Cells{{"name", quotedText(name.text)}});
      }
      return rows;
    }
    default:
      return {{"any", wantedSuffix(command)}};
  }
}

}  // namespace

bool isExpectation(CommandKind kind) {
  switch (kind) {
    case CommandKind::EXPECT_LIST:
    case CommandKind::EXPECT_NO:
    case CommandKind::EXPECT_ROW:
    case CommandKind::EXPECT_ORDER:
    case CommandKind::EXPECT_STARTED:
    case CommandKind::EXPECT_SUFFIX:
      return true;
    default:
      return false;
  }
}

Verdict judge(const Command& command, const MaybeList& list) {
  if (command.kind == CommandKind::EXPECT_STARTED) {
    const bool wanted = command.words.back() == "yes";
    return verdict(list.has_value() == wanted, wanted ? "the list is not started" : "the list is started");
  }
  if (!list) {
    return {false, "the list is not started"};
  }
  switch (command.kind) {
    case CommandKind::EXPECT_LIST:
      return judgeCount(command, *list);
    case CommandKind::EXPECT_NO: {
      const std::uint64_t count = countOf(*list, wantedRow(command));
      return verdict(count == 0, rowsText(count) + " like this");
    }
    case CommandKind::EXPECT_ROW:
      return judgeRow(command, *list);
    case CommandKind::EXPECT_ORDER:
      return judgeOrder(command, *list);
    default:
      return verdict(countOf(*list, wantedSuffix(command)) > 0, "no phone of this name has this number");
  }
}

std::string comparison(const Command& command, const MaybeList& list, bool colour) {
  std::vector<std::string> columns = COLUMNS;
  std::string expected;
  if (command.kind == CommandKind::EXPECT_STARTED) {
    expected = command.words.back() == "yes" ? "(a list that is started)\n" : "(the list is not started)\n";
  } else {
    const auto rows = wantedRows(command);
    for (const std::string& column : MORE_COLUMNS) {
      if (std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return row.second.count(column) != 0; })) {
        columns.push_back(column);
      }
    }
    expected = table(rows, columns, colour);
  }
  return "expected:\n" + expected + "actual:\n" + listTable(list, columns, colour);
}

std::string listText(const MaybeList& list, bool colour) { return listTable(list, COLUMNS, colour); }

bool isInOrder(const std::vector<Row>& rows) {
  const auto key = [](const Row& row) {
    const bool isPaired = row.btid != BTID_NONE;
    return std::pair(isPaired, isPaired ? std::int64_t{row.btid} : std::int64_t{row.port});
  };
  return std::is_sorted(rows.begin(), rows.end(), [&](const Row& a, const Row& b) { return key(a) < key(b); });
}

}  // namespace idl::tools::scenario
