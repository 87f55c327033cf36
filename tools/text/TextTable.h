// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_TEXTTABLE_H
#define TOOLS_TEXT_TEXTTABLE_H

#include <string>
#include <vector>

namespace idl::tools {

enum class Align { LEFT, RIGHT };
enum class Colour { NONE, BOLD, DIM, RED, GREEN, YELLOW };

/// Rows under a heading, in columns as wide as their widest cell, two blanks apart.
///
///     TextTable table({{"row", Align::RIGHT}, {"name"}});
///     table.add({{"1"}, {quotedText(name), Colour::RED}});
///     std::cout << table.text(wantsColour(STDOUT_FILENO));
class TextTable {
 public:
  struct Column {
    std::string heading;
    Align align = Align::LEFT;  // RIGHT is for numbers
  };

  struct Cell {
    std::string text;
    Colour colour = Colour::NONE;
  };

  explicit TextTable(std::vector<Column> columns);

  /// Missing cells are empty, what is beyond the columns is dropped. What a terminal would obey in a cell is shown as
  /// printable() shows it.
  void add(std::vector<Cell> row);

  /// The heading and the rows, each ended by a line feed and without blanks before it. With `colour`, the heading is
  /// bold and cells have their colours.
  std::string text(bool colour) const;

 private:
  std::string line(const std::vector<Cell>& row, const std::vector<std::size_t>& widths, bool colour) const;

  std::vector<Column> mColumns;
  std::vector<std::vector<Cell>> mRows;
};

}  // namespace idl::tools

#endif
