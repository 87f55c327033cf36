// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "simulator/TableClaim.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"

namespace {

using idl::bench::TableClaim;
using idl::bench::TableTaken;
using ::testing::HasSubstr;

constexpr char TABLE[] = "BtPairedDeviceList";
constexpr char FILE_NAME[] = "/LmBench.BtPairedDeviceList";

class AClaim : public ::testing::Test {
 protected:
  AClaim() { RawSegment::remove(FILE_NAME); }
  ~AClaim() override { RawSegment::remove(FILE_NAME); }
};

TEST_F(AClaim, IsRefusedToASecondOneOfTheSameProcess) {
  const TableClaim first(TABLE);

  EXPECT_THROW(TableClaim{TABLE}, TableTaken);
}

TEST_F(AClaim, IsRefusedToAnotherProcess) {
  const TableClaim first(TABLE);

  ChildProcess other([] {
    try {
      const TableClaim second(TABLE);
    } catch (const TableTaken&) {
      return 17;
    }
    return 0;
  });

  EXPECT_EQ(other.wait(), 17);
}

TEST_F(AClaim, IsRefusedInAPlainSentence) {
  const TableClaim first(TABLE);

  try {
    const TableClaim second(TABLE);
    FAIL() << "two claims";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "another stand-in has the table BtPairedDeviceList, and only one may write it");
  }
}

TEST_F(AClaim, StaysTheFirstOnesWhenASecondOneWasRefused) {
  const TableClaim first(TABLE);

  EXPECT_THROW(TableClaim{TABLE}, TableTaken);
  EXPECT_THROW(TableClaim{TABLE}, TableTaken);
}

TEST_F(AClaim, IsOfOneTableOnly) {
  const TableClaim first(TABLE);

  EXPECT_NO_THROW(TableClaim{"AapDeviceList"});
  RawSegment::remove("/LmBench.AapDeviceList");
}

TEST_F(AClaim, EndsWithItsObject) {
  { const TableClaim first(TABLE); }

  EXPECT_NO_THROW(TableClaim{TABLE});
}

TEST_F(AClaim, EndsWithItsProcess) {
  int ready[2] = {};
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  ChildProcess holder([&ready] {
    const TableClaim first(TABLE);
    const char byte = 'x';
    if (write(ready[1], &byte, 1) != 1) {
      return 1;
    }
    for (;;) {
      pause();
    }
  });
  close(ready[1]);
  char byte = '\0';
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  close(ready[0]);
  EXPECT_THROW(TableClaim{TABLE}, TableTaken);

  holder.signal(SIGKILL);
  ASSERT_EQ(holder.wait(), -SIGKILL);

  EXPECT_NO_THROW(TableClaim{TABLE});
}

TEST_F(AClaim, LiesInAFileOfModeO660WhateverTheUmask) {
  const mode_t before = umask(0777);

  std::optional<TableClaim> claim;
  EXPECT_NO_THROW(claim.emplace(TABLE));

  umask(before);
  EXPECT_EQ(RawSegment(FILE_NAME).mode(), 0660U);
}

TEST_F(AClaim, FailsByNameWhenItsFileCannotBeOpened) {
  try {
    const TableClaim claim("no/such/folder");
    FAIL() << "claimed";
  } catch (const TableTaken&) {
    FAIL() << "nobody has it";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("LmBench.no/such/folder: cannot be opened"));
  }
}

}  // namespace
