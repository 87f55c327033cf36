// SPDX-License-Identifier: Apache-2.0
// The saved table's file, of any bytes and any length.
#include "fuzz/Fuzzing.h"
#include "saved/SavedTable.h"
#include "support/SaveFolder.h"

using namespace fuzzing;
using saved_table::told;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const SaveFolder folder;
  const std::string bytes = input(data, size);
  folder.put(saved_table::NAME, bytes);
  saved_table::Table table = saved_table::load(folder.path());
  require(told(table) == saved_table::meaningOf(bytes), "the table is what the file's bytes say");
  require(told(saved_table::load(folder.path())) == told(table), "a second reading finds the same");

  saved_table::save(folder.path(), {});
  saved_table::save(folder.path(), table);
  Texts stored;
  for (const auto& entry : table) {
    if (entry.btid != 255) {  // never stored
      stored.push_back(told(entry.btid, entry.name.substr(0, 259), entry.suffix));
    }
  }
  require(told(saved_table::load(folder.path())) == stored, "what was read is saved");
  return 0;
}
