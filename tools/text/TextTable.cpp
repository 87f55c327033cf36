// SPDX-License-Identifier: Apache-2.0
#include "tools/text/TextTable.h"

#include <algorithm>
#include <utility>

#include "tools/text/DisplayWidth.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr std::size_t GAP = 2;

std::string coloured(const std::string& text, Colour colour) {
  const char* code = "";
  switch (colour) {
    case Colour::NONE:
      return text;
    case Colour::BOLD:
      code = "1";
      break;
    case Colour::DIM:
      code = "2";
      break;
    case Colour::RED:
      code = "31";
      break;
    case Colour::GREEN:
      code = "32";
      break;
    case Colour::YELLOW:
      code = "33";
      break;
  }
  return text.empty() ? text : "\033[" + std::string(code) + 'm' + text + "\033[0m";
}

}  // namespace

TextTable::TextTable(std::vector<Column> columns) : mColumns(std::move(columns)) {}

void TextTable::add(std::vector<Cell> row) {
  row.resize(mColumns.size());
  for (Cell& cell : row) {
    cell.text = printable(cell.text);
  }
  mRows.push_back(std::move(row));
}

std::string TextTable::text(bool colour) const {
  std::vector<Cell> headings;
  std::vector<std::size_t> widths;
  for (const Column& column : mColumns) {
    headings.push_back({column.heading, Colour::BOLD});
    widths.push_back(displayWidth(column.heading));
  }
  for (const auto& row : mRows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], displayWidth(row[i].text));
    }
  }
  std::string all = line(headings, widths, colour);
  for (const auto& row : mRows) {
    all += line(row, widths, colour);
  }
  return all;
}

std::string TextTable::line(const std::vector<Cell>& row, const std::vector<std::size_t>& widths, bool colour) const {
  std::string line;
  std::size_t pending = 0;  // blanks that are written only before something else
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::string& text = row[i].text;
    const std::size_t padding = widths[i] - displayWidth(text);
    if (!text.empty()) {
      line.append(pending + (mColumns[i].align == Align::RIGHT ? padding : 0), ' ');
      line += colour ? coloured(text, row[i].colour) : text;
      pending = mColumns[i].align == Align::RIGHT ? 0 : padding;
    } else {
      pending += padding;
    }
    pending += GAP;
  }
  return line + '\n';
}

}  // namespace idl::tools
