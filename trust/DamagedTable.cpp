// SPDX-License-Identifier: Apache-2.0
// Damages stored tables: cuts them, lengthens them, overwrites bytes and stretches, swaps them for noise. What is
// loaded has to be what the bytes say; and a save of another table to make the file begin with that one's image,
// whatever was there. (A file that is longer keeps its end: a save never shortens it.)
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
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

/// What a save puts into a folder without a table.
std::string imageOf(const SaveFolder& folder, const saved_table::Table& table) {
  std::filesystem::remove(folder / NAME);
  saved_table::save(folder.path(), table);  // an empty one makes no file
  std::string image = folder.contents(NAME);
  image.resize(saved_table::SIZE, '\0');
  return image;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("damaged-table", "damaged tables loaded", argc, argv);
  std::mt19937_64 random(campaign.seed());
  const SaveFolder folder;
  LogCapture log;
  std::uint64_t savedOver = 0;

  std::string whole;
  for (std::uint64_t i = 0; i < campaign.count() && !campaign.hasEnough(); ++i) {
    if (i % 20 == 0) {
      const saved_table::Table table = saved_table::randomTable(random);
      const std::vector<std::string> stored = saved_table::storedOf(table);
      const bool isSavedOver = i != 0 && saved_table::meaningOf(folder.contents(NAME)) != stored;
      if (isSavedOver) {
        saved_table::save(folder.path(), table);
      }
      const std::string over = folder.contents(NAME);
      whole = imageOf(folder, table);  // the file anew, rid of the end that it had
      if (saved_table::meaningOf(whole) != stored) {
        campaign.violation("another table was saved");
      }
      if (isSavedOver && over.compare(0, saved_table::SIZE, whole) != 0) {
        campaign.violation("a save over a damaged table left some of it");
      }
      savedOver += isSavedOver ? 1U : 0U;
    }
    std::string bytes = whole;
    for (std::size_t left = 1 + below(3, random); left > 0; --left) {
      damage(bytes, random);
    }
    folder.put(NAME, bytes);
    if (told(saved_table::load(folder.path())) != saved_table::meaningOf(bytes)) {
      campaign.violation("a table of " + std::to_string(bytes.size()) + " bytes was not loaded as they say");
    }
    if (!log.lines().empty()) {
      campaign.violation("logged: " + log.lines().front());
      log.clear();
    }
    campaign.tried();
  }
  campaign.note(std::to_string(savedOver) + " of them saved over");
  return campaign.finish();
}
