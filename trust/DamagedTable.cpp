// SPDX-License-Identifier: Apache-2.0
// Damages stored tables: cuts them, lengthens them, overwrites bytes and stretches, swaps them for noise. What is
// loaded has to be what the bytes say, and the next save to make the file whole.
#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "saved/RandomTables.h"
#include "saved/SavedTable.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"
#include "trust/Campaign.h"

namespace {

using saved_table::below;
using saved_table::NAME;
using saved_table::told;

constexpr unsigned MAX_COMPLAINTS = 20;

char anyByte(std::mt19937_64& random) { return static_cast<char>(below(256, random)); }

std::string noise(std::size_t size, std::mt19937_64& random) {
  std::string bytes(size, '\0');
  std::generate(bytes.begin(), bytes.end(), [&] { return anyByte(random); });
  return bytes;
}

/// One kind of damage of several.
void damage(std::string& bytes, std::mt19937_64& random) {
  const std::size_t at = bytes.empty() ? 0 : below(bytes.size(), random);
  switch (below(6, random)) {
    case 0:
      bytes.resize(at);
      break;
    case 1:
      bytes += noise(below(600, random), random);
      break;
    case 2:
      bytes = noise(below(2 * saved_table::SIZE, random), random);
      break;
    case 3: {  // text over the ends of fields
      const std::size_t size = std::min(below(600, random), bytes.size() - at);
      bytes.replace(at, size, size, 'x');
      break;
    }
    default:
      for (std::size_t left = 1 + below(8, random); left > 0 && !bytes.empty(); --left) {
        bytes[below(bytes.size(), random)] = anyByte(random);
      }
  }
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("damaged-table", "damaged tables loaded", argc, argv);
  std::mt19937_64 random(campaign.seed());
  const SaveFolder folder;
  LogCapture log;
  unsigned complaints = 0;
  std::uint64_t repaired = 0;
  const auto complain = [&](const std::string& text) {
    campaign.violation(text);
    ++complaints;
  };

  std::string whole;
  for (std::uint64_t i = 0; i < campaign.count() && complaints < MAX_COMPLAINTS; ++i) {
    if (i % 20 == 0) {
      const saved_table::Table table = saved_table::randomTable(random);
      saved_table::save(folder.path(), table);
      if (told(saved_table::load(folder.path())) != saved_table::storedOf(table)) {
        complain("a damaged table was not made whole by a save");
      }
      ++repaired;
      whole = folder.contents(NAME);
    }
    std::string bytes = whole;
    for (std::size_t left = 1 + below(3, random); left > 0; --left) {
      damage(bytes, random);
    }
    folder.put(NAME, bytes);
    if (told(saved_table::load(folder.path())) != saved_table::meaningOf(bytes)) {
      complain("a table of " + std::to_string(bytes.size()) + " bytes was not loaded as they say");
    }
    if (!log.lines().empty()) {
      complain("logged: " + log.lines().front());
      log.clear();
    }
    campaign.tried();
  }
  campaign.note(std::to_string(repaired) + " of them saved over");
  return campaign.finish();
}
