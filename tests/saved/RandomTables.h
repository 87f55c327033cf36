// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_RANDOMTABLES_H
#define TESTS_SAVED_RANDOMTABLES_H

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "saved/SavedTable.h"

namespace saved_table {

/// A number from 0 to `end` - 1.
inline std::size_t below(std::size_t end, std::mt19937_64& random) {
  return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

/// Any bytes but NUL; of any length that a name's field makes a difference for.
inline std::string randomName(std::mt19937_64& random) {
  constexpr std::size_t LENGTHS[] = {0, 1, 8, 20, 100, 258, 259, 260, 261, 300};
  std::string name(LENGTHS[below(10, random)], '\0');
  for (char& byte : name) {
    byte = static_cast<char>(1 + below(255, random));
  }
  return name;
}

/// Up to ten paired phones, with others among them that are not stored.
inline Table randomTable(std::mt19937_64& random) {
  Table table;
  for (std::size_t left = below(11, random); left > 0; --left) {
    if (below(5, random) == 0) {
      table.push_back(phone(255, randomName(random), 1));
    }
    const auto btid = static_cast<unsigned>(below(255, random));
    const auto suffix = static_cast<unsigned>(below(256, random));
    table.push_back(phone(btid, randomName(random), suffix));
  }
  return table;
}

/// What is to be found of a table that was saved.
inline std::vector<std::string> storedOf(const Table& table) {
  std::vector<std::string> texts;
  for (const auto& entry : table) {
    if (entry.btid != 255) {
      texts.push_back(told(entry.btid, entry.name.substr(0, 259), entry.suffix));
    }
  }
  return texts;
}

}  // namespace saved_table

#endif
