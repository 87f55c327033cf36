// SPDX-License-Identifier: Apache-2.0
#include "demo/Row.h"

#include <sstream>
#include <stdexcept>
#include <tuple>

namespace demo {

namespace {

std::string escaped(const std::string& name) {
  constexpr char DIGITS[] = "0123456789abcdef";
  std::string text;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7f || character == '\\') {
      text += {'\\', DIGITS[byte >> 4], DIGITS[byte & 0xf]};
    } else {
      text += character;
    }
  }
  return text;
}

}  // namespace

bool operator==(const Row& a, const Row& b) {
  return std::tie(a.source, a.name, a.btid, a.port, a.session, a.number) ==
         std::tie(b.source, b.name, b.btid, b.port, b.session, b.number);
}

std::string toLine(const Row& row) {
  std::ostringstream line;
  line << static_cast<int>(row.source) << ' ' << row.btid << ' ' << row.port << ' ' << row.session << ' ' << row.number
       << ' ' << escaped(row.name);
  return line.str();
}

Row toRow(const std::string& line) {
  std::istringstream input(line);
  Row row;
  int source = 0;
  input >> source >> row.btid >> row.port >> row.session >> row.number;
  if (!input || input.get() != ' ' || source < 0 || source > 2) {
    throw std::invalid_argument("no row: " + line);
  }
  row.source = static_cast<Source>(source);
  std::getline(input, row.name);
  return row;
}

}  // namespace demo
