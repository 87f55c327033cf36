// SPDX-License-Identifier: Apache-2.0
// A stored table with any byte of a record wrong: what is loaded is what its bytes say, field by field.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <vector>

#include "saved/SavedTable.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"

namespace {

using saved_table::load;
using saved_table::meaningOf;
using saved_table::NAME;
using saved_table::phone;
using saved_table::Table;
using saved_table::told;
using testing::IsEmpty;

constexpr std::size_t RECORD = 4;  // of ten: one that others stand before and behind
constexpr std::size_t PARTS = 8;   // of the record, each a test of its own

/// Ten phones with names that fill their fields, so that a name that does not end runs into the next field.
Table fullTable() {
  Table table;
  for (unsigned i = 0; i < 10; ++i) {
    table.push_back(phone(20 + i, std::string(259, static_cast<char>('a' + i)), 1 + i));
  }
  return table;
}

class ARecordWithAWrongByte : public testing::TestWithParam<std::size_t> {
 protected:
  ARecordWithAWrongByte() {
    saved_table::save(folder.path(), fullTable());
    whole = folder.contents(NAME);
    file = open((folder / NAME).c_str(), O_RDWR | O_CLOEXEC);
  }

  ~ARecordWithAWrongByte() override { close(file); }

  void put(std::size_t at, char byte) const { ASSERT_EQ(pwrite(file, &byte, 1, static_cast<off_t>(at)), 1); }

  const SaveFolder folder;
  const LogCapture log;
  std::string whole;
  int file = -1;
};

TEST_P(ARecordWithAWrongByte, IsLoadedAsItsBytesSay) {
  ASSERT_EQ(whole.size(), saved_table::SIZE);
  std::size_t loaded = 0;
  for (std::size_t i = GetParam(); i < saved_table::RECORD_SIZE; i += PARTS) {
    const std::size_t at = RECORD * saved_table::RECORD_SIZE + i;
    std::string damaged = whole;
    for (int value = 1; value < 256; ++value) {
      damaged[at] = static_cast<char>(whole[at] ^ value);
      put(at, damaged[at]);

      ASSERT_EQ(told(load(folder.path())), meaningOf(damaged)) << "byte " << i << " is " << int{damaged[at]};

      ++loaded;
    }
    put(at, whole[at]);
  }
  EXPECT_GE(loaded, saved_table::RECORD_SIZE / PARTS * 255);
  EXPECT_EQ(told(load(folder.path())), told(fullTable()));
  EXPECT_THAT(log.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EachEighth, ARecordWithAWrongByte, testing::Range(std::size_t{0}, PARTS));

}  // namespace
