// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "LmFramework/posix/SharedFile.h"
#include "framework/SharedMemoryTesting.h"
#include "support/ChildProcess.h"

namespace {

const SharedFile::Contents HELLO = {"hello", 5, 8};

}  // namespace

TEST(AFileThatIsNotThere, IsMadeWithItsContents) {
  const mode_t former = umask(077);
  SharedFile file("New");

  EXPECT_EQ(0, file.open(HELLO));

  umask(former);
  EXPECT_TRUE(file.isCurrent());
  EXPECT_EQ(std::string("hello\0\0\0", 8), sharedContents("New"));
  EXPECT_EQ(0660U, sharedMode("New"));
}

// What is written to standard error must not go into a file.
TEST(AFile, HasNoDescriptorOfAStandardStream) {
  ChildProcess child([] {
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    SharedFile made("Streams");
    SharedFile opened("Streams");
    if (made.open(HELLO) != 0 || opened.open(HELLO) != 0) {
      return 1;
    }
    const bool areFree = fcntl(STDIN_FILENO, F_GETFD) == -1 && fcntl(STDERR_FILENO, F_GETFD) == -1;
    const bool closeOnExec = (fcntl(opened.descriptor(), F_GETFD) & FD_CLOEXEC) != 0;
    return areFree && closeOnExec && made.descriptor() > STDERR_FILENO && opened.descriptor() > STDERR_FILENO ? 0 : 2;
  });

  EXPECT_EQ(0, child.wait());
}

TEST(AFileThatIsThere, IsLeftAsItIs) {
  SharedFile maker("Old");
  ASSERT_EQ(0, maker.open(HELLO));
  SharedFile file("Old");

  EXPECT_EQ(0, file.open({"other", 5, 100}));

  EXPECT_EQ(std::string("hello\0\0\0", 8), sharedContents("Old"));
}

TEST(AFileOfItsOwnWithAnotherMode, GetsItsModeBack) {
  { ASSERT_EQ(0, SharedFile("Half").open(HELLO)); }
  ASSERT_EQ(0, chmod(sharedPath("Half").c_str(), 0600));

  EXPECT_EQ(0, SharedFile("Half").open(HELLO));

  EXPECT_EQ(0660U, sharedMode("Half"));
}

TEST(ARemovedFile, IsNotCurrent) {
  SharedFile file("Gone");
  EXPECT_FALSE(file.isCurrent());
  ASSERT_EQ(0, file.open(HELLO));

  std::filesystem::remove(sharedPath("Gone"));

  EXPECT_TRUE(file.isOpen());
  EXPECT_FALSE(file.isCurrent());
}

TEST(AFileThatWasGivenAnotherName, HasItsNameNoMore) {
  SharedFile file("Named");
  EXPECT_FALSE(file.hasItsName());
  ASSERT_EQ(0, file.open(HELLO));
  EXPECT_TRUE(file.hasItsName());

  std::filesystem::rename(sharedPath("Named"), sharedPath("Renamed"));

  EXPECT_TRUE(file.isCurrent());
  EXPECT_FALSE(file.hasItsName());
  ASSERT_EQ(0, SharedFile("Named").open(HELLO));
  EXPECT_FALSE(file.hasItsName());
}

TEST(AFileThatIsTooShort, IsNotRead) {
  SharedFile file("Short");
  ASSERT_EQ(0, file.open(HELLO));
  char bytes[8] = {};

  EXPECT_TRUE(file.read(0, bytes, 8));
  EXPECT_FALSE(file.read(1, bytes, 8));
  EXPECT_FALSE(file.read(100, bytes, 1));
}

TEST(SomethingElseUnderTheName, IsAnError) {
  std::filesystem::create_directory(sharedPath("Folder"));
  ASSERT_EQ(0, mkfifo(sharedPath("Pipe").c_str(), 0664));
  std::filesystem::create_symlink("/dev/null", sharedPath("Link"));

  EXPECT_NE(0, SharedFile("Folder").open(HELLO));
  EXPECT_EQ(EINVAL, SharedFile("Pipe").open(HELLO));
  EXPECT_NE(0, SharedFile("Link").open(HELLO));
  EXPECT_EQ(EINVAL, SharedFile("").open(HELLO));
  EXPECT_EQ(EINVAL, SharedFile("a/b").open(HELLO));
}

TEST(AnOpenFile, IsClosedInAForkedChildWhichMayOpenItAnew) {
  SharedFile file("Forked");
  ASSERT_EQ(0, file.open(HELLO));
  const int descriptor = file.descriptor();

  ChildProcess child([&] {
    if (file.isOpen() || fcntl(descriptor, F_GETFD) != -1) {
      return 1;
    }
    return file.open(HELLO) == 0 && file.isCurrent() ? 0 : 2;
  });

  EXPECT_EQ(0, child.wait());
  EXPECT_TRUE(file.isCurrent());
}
