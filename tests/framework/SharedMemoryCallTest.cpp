// SPDX-License-Identifier: Apache-2.0
// What the port does when the system refuses it a thread, or a file without a name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <string>

#include "CallRecorder.h"
#include "LmFramework/LmObserver_.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "LmFramework/posix/SharedFile.h"
#include "SharedMemoryTesting.h"
#include "support/LogCapture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string fileName(const std::string& path) { return std::filesystem::path(path).filename(); }

struct Counting : LmObserver_ {
  unsigned Update(unsigned, void*, unsigned) override {
    ++calls;
    return 0;
  }

  std::atomic<int> calls{0};
};

TEST(AnObserverWithoutAThread, IsNotRegistered) {
  const LogCapture log;
  LmSharedMemNotifier notifier(false);
  Counting refused;
  Counting accepted;
  const unsigned id = 6;

  {
    CallRecorder recorder(&fileName);
    recorder.failAll("pthread_create ", EAGAIN);
    EXPECT_FALSE(notifier.AddObserver(&refused, &id, 1));
  }
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("the delivery thread cannot be started")));
  ASSERT_TRUE(notifier.AddObserver(&accepted, &id, 1));
  notifier.Publish(id, nullptr, 0);

  EXPECT_TRUE(eventually([&] { return accepted.calls == 1; }));
  EXPECT_EQ(refused.calls, 0);  // it would have been called first
}

/// Where the kernel cannot make a file that has no name yet.
struct ASharedFileMadeUnderItsName : testing::Test {
  ASharedFileMadeUnderItsName() : recorder(&fileName) { recorder.failAll("open shm", EOPNOTSUPP); }

  const SharedFile::Contents contents = {"hello", 5, 8};
  CallRecorder recorder;
};

TEST_F(ASharedFileMadeUnderItsName, HasItsContentsAndItsMode) {
  SharedFile file("Named");

  EXPECT_EQ(file.open(contents), 0);

  EXPECT_THAT(recorder.take(), ElementsAre("open shm", "fchmod ?", "fstat ?"));
  EXPECT_EQ(sharedContents("Named"), std::string("hello\0\0\0", 8));
  EXPECT_EQ(sharedMode("Named"), 0660U);
}

TEST_F(ASharedFileMadeUnderItsName, IsRemovedWhenItCannotBeFinished) {
  SharedFile file("Unfinished");
  recorder.failAll("fchmod ?", EPERM);

  EXPECT_EQ(file.open(contents), EPERM);

  EXPECT_FALSE(std::filesystem::exists(sharedPath("Unfinished")));
}

}  // namespace
