// SPDX-License-Identifier: Apache-2.0
#include "demo/ListTable.h"

#include <iomanip>
#include <sstream>

namespace demo {

namespace {

constexpr std::size_t NAME_WIDTH = 18;

const char* textOf(Source source) {
  switch (source) {
    case Source::BLUETOOTH:
      return "Bluetooth";
    case Source::CARPLAY:
      return "CarPlay";
    case Source::ANDROID_AUTO:
      return "Android Auto";
  }
  return "?";
}

std::string shortened(const std::string& name) {
  return name.size() <= NAME_WIDTH ? name : name.substr(0, NAME_WIDTH - 1) + '~';
}

std::string unless(int absent, int value) { return value == absent ? "-" : std::to_string(value); }

std::string lineOf(const std::string& mark, const std::vector<std::string>& cells) {
  std::ostringstream line;
  line << std::setw(4) << mark << std::setw(4) << cells[0] << "  " << std::left << std::setw(12) << cells[1] << "  "
       << std::setw(static_cast<int>(NAME_WIDTH)) << cells[2] << std::right << std::setw(14) << cells[3] << std::setw(6)
       << cells[4] << std::setw(9) << cells[5] << std::setw(8) << cells[6] << '\n';
  return line.str();
}

std::string table(const std::vector<Row>& rows, const std::vector<Row>* other, bool colour) {
  if (rows.empty()) {
    return "       (no phones)\n";
  }
  std::string heading = lineOf("", {"row", "source", "name", "Bluetooth id", "port", "session", "number"});
  if (colour) {
    heading = "\033[1m" + heading + "\033[0m";
  }
  std::string text = heading;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    const bool differs = other != nullptr && (i >= other->size() || !(row == (*other)[i]));
    text += lineOf(differs ? ">" : "",
                   {std::to_string(i + 1), textOf(row.source), shortened(row.name), unless(255, row.btid),
                    unless(0, row.port), unless(0, row.session), unless(0, row.number)});
  }
  return text;
}

}  // namespace

std::string toTable(const std::vector<Row>& rows, bool colour) { return table(rows, nullptr, colour); }

std::string toTable(const std::vector<Row>& rows, const std::vector<Row>& other, bool colour) {
  return table(rows, &other, colour);
}

}  // namespace demo
