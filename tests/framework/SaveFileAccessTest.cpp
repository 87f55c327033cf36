// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "LmFramework/SaveFileAccess.h"
#include "LmFramework/posix/PosixSaveFile.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

static_assert(std::has_virtual_destructor_v<SaveFileAccess>);
static_assert(std::is_base_of_v<SaveFileAccessBase, SaveFileAccess>);

constexpr char NAME[] = "IDLSuffix.ini";
constexpr unsigned LIMIT = 1024 * 1024;

struct ASaveFile : testing::Test {
  ASaveFile() : access(makeAccess()) {}

  std::unique_ptr<SaveFileAccess> makeAccess() const {
    return std::make_unique<PosixSaveFile>(folder.path().string(), NAME, true);
  }

  static int write(SaveFileAccess& file, const std::string& bytes) {
    return file.Write(bytes.data(), static_cast<unsigned>(bytes.size()));
  }

  static std::string read(SaveFileAccess& file, unsigned size) {
    std::string bytes(size, '#');
    const int got = file.Read(bytes.data(), size);
    bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return bytes;
  }

  static bool save(SaveFileAccess& file, const std::string& bytes) {
    const bool saved = file.FOpen() && write(file, bytes) == static_cast<int>(bytes.size()) && file.Flush();
    file.FClose();
    return saved;
  }

  bool isThere(const std::string& name) const {
    return fs::symlink_status(folder / name).type() != fs::file_type::not_found;
  }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      found.push_back(entry.path().filename());
    }
    return found;
  }

  static mode_t modeOf(const fs::path& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

  const TempFolder folder;
  const LogCapture log;
  const std::unique_ptr<SaveFileAccess> access;
};

/// Sets the process's umask until the end of the test.
class Umask {
 public:
  explicit Umask(mode_t mask) : mBefore(umask(mask)) {}
  ~Umask() { umask(mBefore); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t mBefore;
};

// --- the image

struct AMissingFile : ASaveFile {};

TEST_F(AMissingFile, IsAnEmptyOne) {
  EXPECT_TRUE(access->FOpen());

  EXPECT_EQ(read(*access, 10), "");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AMissingFile, IsAnEmptyOneInAMissingFolder) {
  PosixSaveFile file(folder / "not/yet", NAME, true);

  EXPECT_TRUE(file.FOpen());

  EXPECT_EQ(read(file, 10), "");
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AMissingFile, IsMadeByFlushAlone) {
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(write(*access, "new"), 3);
  EXPECT_THAT(names(), IsEmpty());

  EXPECT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), "new");
  EXPECT_THAT(names(), ElementsAre(NAME));
}

TEST_F(AMissingFile, StaysMissingWhenItIsClosedWithoutFlush) {
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(write(*access, "new"), 3);

  EXPECT_TRUE(access->FClose());

  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AMissingFile, IsMadeEmptyByAnEmptyImage) {
  ASSERT_TRUE(access->FOpen());

  EXPECT_TRUE(access->Flush());

  EXPECT_TRUE(isThere(NAME));
  EXPECT_EQ(folder.contents(NAME), "");
}

struct AnExistingFile : ASaveFile {
  AnExistingFile() { folder.put(NAME, "0123456789"); }
};

TEST_F(AnExistingFile, IsReadFromItsStart) {
  ASSERT_TRUE(access->FOpen());

  EXPECT_EQ(read(*access, 4), "0123");
  EXPECT_EQ(read(*access, 4), "4567");
  EXPECT_EQ(read(*access, 4), "89");
  EXPECT_EQ(read(*access, 4), "");
}

TEST_F(AnExistingFile, LeavesTheRestOfTheBufferAlone) {
  ASSERT_TRUE(access->FOpen());
  std::string buffer(12, '#');

  EXPECT_EQ(access->Read(buffer.data(), 12), 10);

  EXPECT_EQ(buffer, "0123456789##");
}

TEST_F(AnExistingFile, IsReadAnewAtEachOpening) {
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(read(*access, 4), "0123");
  EXPECT_EQ(write(*access, "never flushed"), 13);
  folder.put(NAME, "other");

  ASSERT_TRUE(access->FOpen());

  EXPECT_EQ(read(*access, 100), "other");
}

TEST_F(AnExistingFile, IsNotOpenBeforeItIsOpenedAndAfterItIsClosed) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(access->FClose());
    EXPECT_EQ(access->Read(nullptr, 0), -1);
    EXPECT_EQ(access->Write("x", 1), -1);
    EXPECT_FALSE(access->Seek(0, 0));
    EXPECT_FALSE(access->Flush());

    ASSERT_TRUE(access->FOpen());
    EXPECT_TRUE(access->FClose());
  }

  EXPECT_EQ(folder.contents(NAME), "0123456789");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnExistingFile, IsOverwrittenFromTheOffsetOnAndLengthened) {
  ASSERT_TRUE(access->FOpen());
  ASSERT_TRUE(access->Seek(8, 0));

  EXPECT_EQ(write(*access, "abcd"), 4);
  ASSERT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), "01234567abcd");
}

TEST_F(AnExistingFile, IsSoughtFromStartOffsetAndEnd) {
  ASSERT_TRUE(access->FOpen());

  EXPECT_TRUE(access->Seek(3, 0));
  EXPECT_EQ(read(*access, 1), "3");
  EXPECT_TRUE(access->Seek(-2, 1));
  EXPECT_EQ(read(*access, 1), "2");
  EXPECT_TRUE(access->Seek(-1, 2));
  EXPECT_EQ(read(*access, 1), "9");
  EXPECT_TRUE(access->Seek(10, 0));
  EXPECT_EQ(read(*access, 1), "");
}

TEST_F(AnExistingFile, KeepsTheOffsetWhenTheGoalIsOutside) {
  struct Goal {
    long offset;
    int origin;
  };
  ASSERT_TRUE(access->FOpen());
  ASSERT_TRUE(access->Seek(5, 0));

  for (const Goal goal : {Goal{-1, 0},
                          {11, 0},
                          {-6, 1},
                          {6, 1},
                          {1, 2},
                          {-11, 2},
                          {0, 3},
                          {0, -1},
                          {LONG_MAX, 0},
                          {LONG_MIN, 0},
                          {LONG_MAX, 1},
                          {LONG_MIN, 1},
                          {LONG_MAX, 2},
                          {LONG_MIN, 2}}) {
    EXPECT_FALSE(access->Seek(goal.offset, goal.origin)) << goal.offset << " from " << goal.origin;
  }

  EXPECT_EQ(read(*access, 1), "5");
}

TEST_F(AnExistingFile, MayBeFlushedTwice) {
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(write(*access, "a"), 1);
  EXPECT_TRUE(access->Flush());
  EXPECT_EQ(write(*access, "b"), 1);

  EXPECT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), "ab23456789");
}

TEST_F(AnExistingFile, BelongsToWhoeverFlushesLast) {
  const auto other = makeAccess();
  ASSERT_TRUE(access->FOpen());
  ASSERT_TRUE(other->FOpen());
  EXPECT_EQ(write(*access, "first writer"), 12);
  EXPECT_EQ(write(*other, "second writer"), 13);

  EXPECT_TRUE(other->Flush());
  EXPECT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), "first writer");
}

TEST_F(ASaveFile, GrowsToItsLimitAndNotFurther) {
  const std::string full(LIMIT, 'x');
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(write(*access, full), static_cast<int>(LIMIT));

  EXPECT_EQ(write(*access, "y"), -1);
  EXPECT_EQ(access->Write(full.data(), UINT_MAX), -1);
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("File too large"), HasSubstr("File too large")));
  ASSERT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), full);
  ASSERT_TRUE(access->FOpen());
  EXPECT_EQ(read(*access, LIMIT + 1), full);
}

// --- what the file system shows

TEST_F(ASaveFile, HasItsModesWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    const std::string parent = "parent" + std::to_string(mask);
    fs::create_directory(folder / parent);
    const Umask umask(mask);
    PosixSaveFile file(folder / (parent + "/own"), NAME, true);

    EXPECT_TRUE(save(file, "x"));

    EXPECT_EQ(modeOf(folder / (parent + "/own")), 0770U);
    EXPECT_EQ(modeOf(folder / (parent + "/own/") / NAME), 0660U);
  }
}

// Under a umask that takes the owner's own rights, whoever is not root could not open the folder that he had just made.
TEST_F(ASaveFile, IsSavedWithoutPrivilegesWhateverTheUmask) {
  PosixSaveFile file(folder / "parent/own", NAME, true);

  ChildProcess child([&] {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capset, &header, none) != 0) {
      return 2;
    }
    umask(0777);
    return save(file, "x") && save(file, "y") ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(modeOf(folder / "parent"), 0700U);
  EXPECT_EQ(modeOf(folder / "parent/own"), 0770U);
  EXPECT_EQ(folder.contents(std::string("parent/own/") + NAME), "y");
}

TEST_F(ASaveFile, GetsAFolderThatPassesItsGroupOnAsTheParentDoes) {
  ASSERT_EQ(chmod(folder.path().c_str(), 02770), 0);
  PosixSaveFile file(folder / "own", NAME, true);

  EXPECT_TRUE(save(file, "x"));

  EXPECT_EQ(modeOf(folder / "own"), 02770U);
}

TEST_F(ASaveFile, GetsItsFolderWithAllParents) {
  PosixSaveFile file(folder / "a/b//c/", NAME, true);

  EXPECT_TRUE(save(file, "x"));

  EXPECT_EQ(folder.contents(std::string("a/b/c/") + NAME), "x");
}

TEST_F(ASaveFile, LeavesTheModeOfAnExistingFolderAlone) {
  fs::create_directory(folder / "own");
  ASSERT_EQ(chmod((folder / "own").c_str(), 0700), 0);
  PosixSaveFile file(folder / "own", NAME, true);

  EXPECT_TRUE(save(file, "x"));

  EXPECT_EQ(modeOf(folder / "own"), 0700U);
}

TEST_F(AnExistingFile, KeepsItsMode) {
  ASSERT_EQ(chmod((folder / NAME).c_str(), 0604), 0);

  EXPECT_TRUE(save(*access, "x"));

  EXPECT_EQ(modeOf(folder / NAME), 0604U);
}

TEST_F(AnExistingFile, IsReplacedAndNotWrittenInPlace) {
  const int old = open((folder / NAME).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(old, 0);

  EXPECT_TRUE(save(*access, "new contents"));

  char bytes[20] = {};
  EXPECT_EQ(::read(old, bytes, sizeof bytes), 10);
  EXPECT_STREQ(bytes, "0123456789");
  close(old);
}

// --- files that cannot be read

struct AFileThatCannotBeRead : ASaveFile {
  /// Opening it fails with one log line that says why, and nothing is written from then on, once by itself and once
  /// more when the file has become readable.
  void expectNeverWritten(const std::string& reason) {
    EXPECT_FALSE(access->FOpen());
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(HasSubstr((folder / NAME).string()), HasSubstr(reason),
                                               HasSubstr("LmFramework/posix/SaveFileAccess:"))));
    EXPECT_EQ(access->Write("x", 1), -1);
    EXPECT_FALSE(access->Flush());
    EXPECT_FALSE(access->FClose());
    EXPECT_EQ(log.lines().size(), 1U);

    log_clear();
    fs::rename(folder / NAME, folder / "aside");
    folder.put(NAME, "readable now");
    EXPECT_TRUE(access->FOpen());
    EXPECT_EQ(read(*access, 100), "readable now");
    EXPECT_FALSE(access->Flush());
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("was not saved: it could not be read earlier")));
    EXPECT_EQ(folder.contents(NAME), "readable now");
    EXPECT_THAT(names(), UnorderedElementsAre(NAME, "aside"));

    EXPECT_TRUE(save(*makeAccess(), "saved!!!!!!!")) << "another object reads it and may write it";
  }

  void log_clear() const { const_cast<LogCapture&>(log).clear(); }
};

TEST_F(AFileThatCannotBeRead, BecauseItIsAFolder) {
  fs::create_directory(folder / NAME);

  expectNeverWritten("not a regular file");
}

TEST_F(AFileThatCannotBeRead, BecauseItIsALink) {
  const TempFolder elsewhere;
  elsewhere.put("target", "precious");
  fs::create_symlink(elsewhere / "target", folder / NAME);

  expectNeverWritten("open: Too many levels of symbolic links");

  EXPECT_EQ(elsewhere.contents("target"), "precious");
}

TEST_F(AFileThatCannotBeRead, BecauseItIsADanglingLink) {
  fs::create_symlink(folder / "nowhere", folder / NAME);

  expectNeverWritten("open: Too many levels of symbolic links");
}

TEST_F(AFileThatCannotBeRead, BecauseItIsAPipe) {
  ASSERT_EQ(mkfifo((folder / NAME).c_str(), 0660), 0);

  expectNeverWritten("not a regular file");
}

TEST_F(AFileThatCannotBeRead, BecauseItIsTooLong) {
  folder.put(NAME, std::string(LIMIT + 1, 'x'));

  expectNeverWritten("read: File too large");
}

TEST_F(AFileThatCannotBeRead, BecauseItsFolderIsAFile) {
  folder.put("file", "");
  PosixSaveFile file(folder / "file", NAME, true);

  EXPECT_FALSE(file.FOpen());

  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("open folder: Not a directory")));
}

TEST_F(AFileThatCannotBeRead, BecauseNoDescriptorIsLeft) {
  folder.put(NAME, "stored");

  ChildProcess child([&] {
    access->FOpen();  // a sanitizer that sees a class for the first time needs descriptors of its own
    access->FClose();
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const bool opened = access->FOpen();
    setrlimit(RLIMIT_NOFILE, &limit);
    const bool openedLater = access->FOpen();
    const bool saved = access->Flush();
    return !opened && openedLater && !saved && log.count("Too many open files") == 1 ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(folder.contents(NAME), "stored");
}

// --- saves that fail

struct ASaveThatFails : AnExistingFile {};

TEST_F(ASaveThatFails, LeavesTheOldFileAndNothingElse) {
  ChildProcess child([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit small = {1000, 1000};  // a disk that is full after 1,000 bytes
    setrlimit(RLIMIT_FSIZE, &small);
    const bool saved = save(*access, std::string(5000, 'n'));
    return !saved && log.lines().size() == 1 && log.count("was not saved: write temporary file: File too large") == 1
               ? 0
               : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(folder.contents(NAME), "0123456789");
  EXPECT_THAT(names(), ElementsAre(NAME));
}

TEST_F(ASaveThatFails, SavesTheNextTimeWhenTheReasonIsGone) {
  ASSERT_TRUE(access->FOpen());
  ASSERT_EQ(write(*access, "saved late"), 10);
  fs::rename(folder / NAME, folder / "aside");
  fs::create_directory(folder / NAME);
  EXPECT_FALSE(access->Flush());
  EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("was not saved: stat: not a regular file")));

  fs::remove(folder / NAME);
  EXPECT_TRUE(access->Flush());

  EXPECT_EQ(folder.contents(NAME), "saved late");
}

TEST_F(ASaveThatFails, DoesNotReplaceALinkThatCameMeanwhile) {
  const TempFolder elsewhere;
  elsewhere.put("target", "precious");
  ASSERT_TRUE(access->FOpen());
  fs::remove(folder / NAME);
  fs::create_symlink(elsewhere / "target", folder / NAME);

  EXPECT_FALSE(access->Flush());

  EXPECT_EQ(elsewhere.contents("target"), "precious");
  EXPECT_TRUE(fs::is_symlink(folder / NAME));
  EXPECT_THAT(names(), ElementsAre(NAME));
}

// --- left-overs and death

struct LeftOvers : AnExistingFile {
  std::string temporary() const { return std::string(".") + NAME + ".abc123"; }
};

TEST_F(LeftOvers, AreRemovedByTheNextSave) {
  folder.put(temporary(), "half written");

  EXPECT_TRUE(save(*access, "x"));

  EXPECT_THAT(names(), ElementsAre(NAME));
}

TEST_F(LeftOvers, AreNotLookedForByReaders) {
  folder.put(temporary(), "half written");

  EXPECT_TRUE(access->FOpen());

  EXPECT_TRUE(isThere(temporary()));
}

TEST_F(LeftOvers, AreNotWhatALivingProcessWrites) {
  folder.put(temporary(), "being written");
  const int file = open((folder / temporary()).c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(file, LOCK_EX), 0);

  EXPECT_TRUE(save(*access, "x"));
  EXPECT_TRUE(isThere(temporary()));
  close(file);
  EXPECT_TRUE(save(*access, "y"));

  EXPECT_FALSE(isThere(temporary()));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LeftOvers, AreNotFilesOfOtherNames) {
  const std::vector<std::string> others = {".Other.abc123",
                                           temporary() + "7",
                                           std::string(".") + NAME + ".abc12",
                                           std::string(".") + NAME + ".ABC123",
                                           std::string(NAME) + ".abc123",
                                           std::string(".") + NAME + ".a.abc123"};
  for (const std::string& other : others) {
    folder.put(other, "");
  }

  EXPECT_TRUE(save(*access, "x"));

  for (const std::string& other : others) {
    EXPECT_TRUE(isThere(other)) << other;
  }
}

TEST_F(LeftOvers, AreNotLinksFoldersOrPipes) {
  const TempFolder elsewhere;
  elsewhere.put("target", "precious");
  const std::string prefix = std::string(".") + NAME;
  fs::create_symlink(elsewhere / "target", folder / (prefix + ".link00"));
  fs::create_directory(folder / (prefix + ".folder"));
  ASSERT_EQ(mkfifo((folder / (prefix + ".pipe00")).c_str(), 0660), 0);

  EXPECT_TRUE(save(*access, "x"));

  EXPECT_EQ(elsewhere.contents("target"), "precious");
  EXPECT_THAT(names(), UnorderedElementsAre(NAME, prefix + ".link00", prefix + ".folder", prefix + ".pipe00"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

/// A child that saves one of two images after the other for as long as it lives.
struct AWriterThatDies : ASaveFile {
  static constexpr std::size_t SIZE = 300000;
  static std::string image(char letter) { return std::string(SIZE, letter); }

  int saveForEver() const {
    const auto file = makeAccess();
    for (char letter = 'a';; letter = letter == 'a' ? 'b' : 'a') {
      if (!save(*file, image(letter))) {
        return 1;
      }
    }
  }

  /// Whether there is a temporary file that its writer has locked; before that it may be taken for a left-over.
  bool isInTheMiddleOfASave() const {
    for (const std::string& name : names()) {
      if (name[0] != '.') {
        continue;
      }
      const int file = open((folder / name).c_str(), O_RDONLY | O_CLOEXEC);
      const bool locked = file >= 0 && flock(file, LOCK_EX | LOCK_NB) != 0;
      close(file);
      if (locked) {
        return true;
      }
    }
    return false;
  }
};

TEST_F(AWriterThatDies, LeavesTheOldImageOrTheNewOne) {
  ASSERT_TRUE(save(*access, image('a')));
  for (int round = 0; round < 40; ++round) {
    ChildProcess child([&] { return saveForEver(); });
    std::this_thread::sleep_for(std::chrono::microseconds(round * 911));  // dies at a different moment each time

    child.signal(SIGKILL);
    ASSERT_EQ(child.wait(), -SIGKILL);

    const std::string contents = folder.contents(NAME);
    ASSERT_TRUE(contents == image('a') || contents == image('b')) << contents.size();
  }

  EXPECT_TRUE(save(*access, image('c')));
  EXPECT_THAT(names(), ElementsAre(NAME));
}

TEST_F(AWriterThatDies, KeepsItsTemporaryFileUntilThen) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  ChildProcess child([&] { return saveForEver(); });
  const auto stop = [&] {
    child.signal(SIGSTOP);
    int status = 0;
    ASSERT_EQ(waitpid(child.pid(), &status, WUNTRACED), child.pid());
  };
  stop();
  while (!isInTheMiddleOfASave() && std::chrono::steady_clock::now() < deadline) {
    child.signal(SIGCONT);
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    stop();
  }
  ASSERT_TRUE(isInTheMiddleOfASave()) << "the child was never stopped in the middle of a save";

  EXPECT_TRUE(save(*access, "from another process" + std::string(SIZE, 'x')));
  EXPECT_TRUE(isInTheMiddleOfASave());

  child.signal(SIGKILL);
  ASSERT_EQ(child.wait(), -SIGKILL);
  EXPECT_TRUE(save(*access, image('d')));
  EXPECT_THAT(names(), ElementsAre(NAME));
}

TEST_F(ASaveFile, IsWholeWhenManyProcessesSaveIt) {
  std::vector<std::unique_ptr<ChildProcess>> writers;
  for (char letter = 'a'; letter < 'e'; ++letter) {
    writers.push_back(std::make_unique<ChildProcess>([&, letter] {
      const auto file = makeAccess();
      for (int round = 0; round < 25; ++round) {
        if (!save(*file, std::string(LIMIT / 16, letter))) {
          return 1;
        }
      }
      return 0;
    }));
  }

  for (const auto& writer : writers) {
    EXPECT_EQ(writer->wait(), 0);
  }

  const std::string contents = folder.contents(NAME);
  ASSERT_FALSE(contents.empty());
  EXPECT_EQ(contents, std::string(LIMIT / 16, contents[0]));
  EXPECT_THAT(names(), ElementsAre(NAME));
}

}  // namespace
