// SPDX-License-Identifier: Apache-2.0
// The whole library while the saved table's system calls fail: the list is right, the log says what failed, and what
// could not be read is not written over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "saved/FailedCalls.h"
#include "saved/SavedTable.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"

namespace {

using saved_table::phone;
using testing::Contains;
using testing::IsEmpty;

/// Numbers that only a stored table can give, a phone that comes, and a phone that goes.
FailedCalls::Story aStory() {
  return {{phone(3, "Phone", 2), phone(5, "Phone", 1), phone(7, "Tab", 4)},
          {{{3, "Phone"}, {5, "Phone"}, {7, "Tab"}, {8, "Tab"}},
           {{3, "Phone"}, {5, "Phone"}, {7, "Tab"}, {8, "Tab"}},
           {{3, "Phone"}, {8, "Tab"}},
           {{2, "Phone"}, {3, "Phone"}, {8, "Tab"}}}};
}

struct AStoredTable : testing::Test {
  /// Each call of each refresh fails in turn, alone. How many did.
  static std::size_t failEach(FailedCalls& story, int error) {
    std::size_t failed = 0;
    for (std::size_t refresh = 0; refresh < story.calls().size(); ++refresh) {
      for (std::size_t index = 0; index < story.calls()[refresh].size(); ++index) {
        FailedCalls::Plan plan;
        plan[refresh] = {index, error, FailedCalls::ANY};
        EXPECT_THAT(story.complaintsAbout(plan), IsEmpty()) << "call " << index;
        failed += story.failed();
      }
    }
    return failed;
  }

  std::size_t failEach(int error) { return failEach(story, error); }

  FailedCalls story{aStory()};
};

TEST_F(AStoredTable, IsReadOnceAndSavedWhenItChanges) {
  const std::vector<std::string> reading = {"openat folder", "openat IDLSuffix.ini", "fstat IDLSuffix.ini",
                                            "read IDLSuffix.ini", "read IDLSuffix.ini"};
  EXPECT_THAT(story.complaintsAbout({}), IsEmpty());

  const std::vector<std::string>& first = story.calls().at(0);
  ASSERT_GT(first.size(), 2 * reading.size());
  EXPECT_TRUE(std::equal(reading.begin(), reading.end(), first.begin()));
  EXPECT_TRUE(std::equal(reading.begin(), reading.end(), first.begin() + 5)) << "before it is saved";
  EXPECT_THAT(first, Contains("renameat temporary"));
  EXPECT_THAT(story.calls().at(1), IsEmpty());
}

TEST_F(AStoredTable, SurvivesAFaultyDisk) { EXPECT_EQ(failEach(EIO), 21U + 16U + 16U); }

TEST_F(AStoredTable, SurvivesAFullDisk) { EXPECT_EQ(failEach(ENOSPC), 21U + 16U + 16U); }

TEST_F(AStoredTable, SurvivesADiskThatHasBecomeReadOnly) { EXPECT_EQ(failEach(EROFS), 21U + 16U + 16U); }

TEST_F(AStoredTable, SurvivesALackOfRights) { EXPECT_EQ(failEach(EACCES), 21U + 16U + 16U); }

TEST_F(AStoredTable, IsNotHarmedBySignals) { EXPECT_EQ(failEach(EINTR), 21U + 16U + 16U); }

TEST_F(AStoredTable, IsReadAndSavedInPieces) {
  for (const std::size_t limit : {1U, 7U, 263U, 2629U}) {
    FailedCalls::Plan plan;
    for (std::size_t refresh = 0; refresh < 4; ++refresh) {
      plan[refresh] = {FailedCalls::ANY, 0, limit};
    }
    EXPECT_THAT(story.complaintsAbout(plan), IsEmpty()) << limit;
  }
}

TEST_F(AStoredTable, ThatCouldNotBeReadStaysWhateverFailsLater) {
  for (std::size_t index = 0; index < 16; ++index) {
    FailedCalls::Plan plan;
    plan[0] = {2, EIO, FailedCalls::ANY};
    plan[2] = {index, EIO, FailedCalls::ANY};
    EXPECT_THAT(story.complaintsAbout(plan), IsEmpty()) << index;
  }
}

TEST_F(AStoredTable, ThatDoesNotExistYetSurvivesItToo) {
  FailedCalls::Story withoutTable = aStory();
  withoutTable.stored.clear();
  FailedCalls first(withoutTable);
  EXPECT_EQ(failEach(first, EIO), 15U + 16U + 16U);
}

/// Whether this process, without root's privileges, refreshes a list with numbers, and how many log lines that takes.
int linesOfARefresh(const std::vector<std::string>& expected) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  if (syscall(SYS_capset, &header, none) != 0) {
    return -1;
  }
  const LogCapture log;
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> devices;
  list->getDeviceList(devices);
  std::vector<std::string> found;
  for (const auto& device : devices) {
    found.push_back(saved_table::told(device.btid, device.name, device.suffix));
  }
  return found == expected ? static_cast<int>(log.count("Permission denied")) : -1;
}

struct AStoredTableWithoutRights : testing::Test {
  AStoredTableWithoutRights() {
    saved_table::save(folder.path(), {phone(3, "Phone", 2), phone(5, "Phone", 1)});
    before = folder.contents(saved_table::NAME);
    table.phone(0, 3, "Phone");
    table.phone(1, 4, "Phone");
  }

  const SaveFolder folder;
  BtTable table;
  std::string before;
};

TEST_F(AStoredTableWithoutRights, ToWriteItsFolderStays) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0500), 0);

  ChildProcess child([] { return linesOfARefresh({"3 Phone 2 2", "4 Phone 1"}); });

  EXPECT_EQ(child.wait(), 1);
  EXPECT_EQ(folder.contents(saved_table::NAME), before);
}

TEST_F(AStoredTableWithoutRights, ToReadItsFolderStays) {
  ASSERT_EQ(chmod(folder.path().c_str(), 0), 0);

  ChildProcess child([] { return linesOfARefresh({"3 Phone 1", "4 Phone 2 2"}); });

  EXPECT_EQ(child.wait(), 1 + 1) << "once when it is loaded, once when it is opened to be saved";
  EXPECT_EQ(folder.contents(saved_table::NAME), before);
}

TEST_F(AStoredTableWithoutRights, ToReadItsFileStays) {
  ASSERT_EQ(chmod((folder / saved_table::NAME).c_str(), 0), 0);

  ChildProcess child([] { return linesOfARefresh({"3 Phone 1", "4 Phone 2 2"}); });

  EXPECT_EQ(child.wait(), 1 + 1) << "once when it is loaded, once when it is opened to be saved";
  EXPECT_EQ(folder.contents(saved_table::NAME), before);
}

}  // namespace
