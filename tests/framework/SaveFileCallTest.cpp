// SPDX-License-Identifier: Apache-2.0
// What a save file does to the system, call by call, and what it does when one of the calls fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "CallRecorder.h"
#include "LmFramework/posix/PosixSaveFile.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Calls = std::vector<std::string>;

constexpr char NAME[] = "IDLSuffix.ini";
constexpr char LEFT_OVER[] = ".IDLSuffix.ini.abc123";
constexpr char OLD[] = "0123456789";
constexpr char NEW[] = "abcdefghijkl";
constexpr unsigned NEW_SIZE = sizeof NEW - 1;

bool startsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

struct ACallOfASaveFile : testing::Test {
  ACallOfASaveFile() { folder.put(NAME, OLD); }

  std::string label(const std::string& path) const {
    std::string name = fs::path(path).filename();
    if (name == LEFT_OVER) {
      return "left-over";
    }
    if (startsWith(name, std::string(".") + NAME + ".")) {
      return "temporary";
    }
    if (startsWith(name, ".own.")) {
      return "nameless folder";
    }
    if (path == folder.path()) {
      return "folder";
    }
    return name;
  }

  CallRecorder recorder() const {
    return CallRecorder([this](const std::string& path) { return label(path); });
  }

  /// An open object whose image differs from the file; its calls so far are not recorded.
  void prepare(PosixSaveFile& file) const {
    ASSERT_TRUE(file.FOpen());
    ASSERT_EQ(file.Write(NEW, NEW_SIZE), static_cast<int>(NEW_SIZE));
  }

  Calls callsOfAFlush() const {
    PosixSaveFile file(folder.path(), NAME, true);
    prepare(file);
    CallRecorder calls = recorder();
    EXPECT_TRUE(file.Flush());
    return calls.take();
  }

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      found.push_back(entry.path().filename());
    }
    return found;
  }

  void expectOneLine(const std::string& path, int error) const {
    EXPECT_THAT(log.lines(), ElementsAre(AllOf(HasSubstr(path), HasSubstr(strerror(error)))));
  }

  std::string path() const { return folder / NAME; }

  const TempFolder folder;
  LogCapture log;
};

struct AFlush : ACallOfASaveFile {};

TEST_F(AFlush, SyncsTheFileBeforeItHasItsNameAndTheFolderAfterThat) {
  EXPECT_THAT(callsOfAFlush(), ElementsAre("openat folder", "openat .", "fstatat IDLSuffix.ini", "openat temporary",
                                           "fchmod temporary", "flock temporary", "fstat temporary", "write temporary",
                                           "fsync temporary", "renameat temporary", "fsync folder"));
}

TEST_F(AFlush, LeavesTheOldFileAndNothingElseWhereverItFails) {
  const Calls calls = callsOfAFlush();
  const auto renamed = std::find(calls.begin(), calls.end(), "renameat temporary") - calls.begin();
  for (std::size_t failing = 0; failing < calls.size(); ++failing) {
    for (const int error : {EIO, ENOSPC, EACCES, EROFS}) {
      SCOPED_TRACE(calls[failing] + ": " + strerror(error));
      folder.put(NAME, OLD);
      log.clear();
      PosixSaveFile file(folder.path(), NAME, true);
      prepare(file);
      CallRecorder recorded = recorder();
      recorded.failAt(failing, error);

      const bool saved = file.Flush();

      const bool isCleaning = calls[failing] == "openat .";  // looks for left-overs; the file is saved all the same
      const bool isReplaced = isCleaning || static_cast<std::ptrdiff_t>(failing) > renamed;
      EXPECT_EQ(saved, isCleaning);
      EXPECT_EQ(folder.contents(NAME), isReplaced ? NEW : OLD);
      EXPECT_THAT(names(), ElementsAre(NAME));
      expectOneLine(path(), error);
      EXPECT_TRUE(file.Flush()) << "the reason is gone";
      EXPECT_EQ(folder.contents(NAME), NEW);
    }
  }
}

TEST_F(AFlush, IsNotStoppedByASignal) {
  const Calls calls = callsOfAFlush();
  int interrupted = 0;
  for (std::size_t failing = 0; failing < calls.size(); ++failing) {
    const std::string call = calls[failing].substr(0, calls[failing].find(' '));
    if (call != "openat" && call != "flock" && call != "write" && call != "fsync") {
      continue;  // never interrupted
    }
    SCOPED_TRACE(calls[failing]);
    folder.put(NAME, OLD);
    PosixSaveFile file(folder.path(), NAME, true);
    prepare(file);
    CallRecorder recorded = recorder();
    recorded.failAt(failing, EINTR);

    EXPECT_TRUE(file.Flush());

    EXPECT_EQ(recorded.take().size(), calls.size() + 1);  // that one twice
    EXPECT_EQ(folder.contents(NAME), NEW);
    EXPECT_THAT(log.lines(), IsEmpty());
    ++interrupted;
  }
  EXPECT_EQ(interrupted, 7);
}

TEST_F(AFlush, WritesOnAfterAShortWrite) {
  PosixSaveFile file(folder.path(), NAME, true);
  prepare(file);
  CallRecorder recorded = recorder();
  recorded.limitTransfers(5);

  EXPECT_TRUE(file.Flush());

  const Calls calls = recorded.take();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "write temporary"), 3);
  EXPECT_EQ(folder.contents(NAME), NEW);
}

TEST_F(AFlush, FailsWhenNothingCanBeWrittenAnyMore) {
  PosixSaveFile file(folder.path(), NAME, true);
  prepare(file);
  CallRecorder recorded = recorder();
  recorded.limitTransfers(0);

  EXPECT_FALSE(file.Flush());

  EXPECT_EQ(folder.contents(NAME), OLD);
  EXPECT_THAT(names(), ElementsAre(NAME));
  expectOneLine(path(), ENOSPC);
}

TEST_F(AFlush, SavesAllTheSameWhenALeftOverCannotBeRemoved) {
  for (const char* failing :
       {"openat left-over", "fstat left-over", "flock left-over", "fstatat left-over", "unlinkat left-over"}) {
    SCOPED_TRACE(failing);
    folder.put(NAME, OLD);
    folder.put(LEFT_OVER, "half written");
    log.clear();
    PosixSaveFile file(folder.path(), NAME, true);
    prepare(file);
    {
      CallRecorder recorded = recorder();
      recorded.failAll(failing, EIO);
      EXPECT_TRUE(file.Flush());
    }

    EXPECT_EQ(folder.contents(NAME), NEW);
    expectOneLine(path(), EIO);
    EXPECT_TRUE(file.Flush());
    EXPECT_THAT(names(), ElementsAre(NAME));
  }
}

struct AFlushIntoAMissingFolder : ACallOfASaveFile {
  AFlushIntoAMissingFolder() { fs::remove(folder / NAME); }

  std::vector<std::string> callsUntilTheFolderIsThere() {
    PosixSaveFile file(folder / "own", NAME, true);
    prepare(file);
    CallRecorder calls = recorder();
    EXPECT_TRUE(file.Flush());
    Calls all = calls.take();
    all.erase(std::find(all.begin(), all.end(), "openat ."), all.end());
    fs::remove_all(folder / "own");
    return all;
  }
};

TEST_F(AFlushIntoAMissingFolder, GivesTheFolderItsModeBeforeItsName) {
  Calls calls = callsUntilTheFolderIsThere();

  // The parents are looked at first.
  calls.erase(calls.begin() + 1, std::find(calls.begin(), calls.end(), "stat own"));
  EXPECT_THAT(calls, ElementsAre("openat own", "stat own", "mkdir nameless folder", "stat nameless folder",
                                 "chmod nameless folder", "renameat2 nameless folder", "openat folder", "fsync folder",
                                 "openat own"));
}

TEST_F(AFlushIntoAMissingFolder, LeavesNothingBehindWhereverItFails) {
  const Calls calls = callsUntilTheFolderIsThere();
  for (std::size_t failing = 0; failing < calls.size(); ++failing) {
    for (const int error : {EIO, ENOSPC, EACCES, EROFS}) {
      SCOPED_TRACE(calls[failing] + ": " + strerror(error));
      log.clear();
      PosixSaveFile file(folder / "own", NAME, true);
      prepare(file);
      CallRecorder recorded = recorder();
      recorded.failAt(failing, error);

      EXPECT_FALSE(file.Flush());

      // Named already, an empty folder stays; nothing of another name ever does.
      EXPECT_THAT(names(), testing::Each(testing::StrEq("own")));
      expectOneLine(folder / "own" / NAME, error);
      EXPECT_TRUE(file.Flush()) << "the reason is gone";
      fs::remove_all(folder / "own");
    }
  }
}

TEST_F(AFlushIntoAMissingFolder, MakesItWhereTheFileSystemCannotRefuseToReplace) {
  PosixSaveFile file(folder / "own", NAME, true);
  prepare(file);
  CallRecorder recorded = recorder();
  recorded.failAll("renameat2 nameless folder", EINVAL);

  EXPECT_TRUE(file.Flush());

  EXPECT_EQ(folder.contents(std::string("own/") + NAME), NEW);
  EXPECT_THAT(names(), ElementsAre("own"));
}

TEST_F(AFlushIntoAMissingFolder, UsesTheOneThatSomebodyElseMadeMeanwhile) {
  PosixSaveFile file(folder / "own", NAME, true);
  prepare(file);
  fs::create_directory(folder / "own");
  CallRecorder recorded = recorder();
  recorded.failAt(0, ENOENT);  // not there at the first look

  EXPECT_TRUE(file.Flush());

  EXPECT_EQ(folder.contents(std::string("own/") + NAME), NEW);
}

struct ALoad : ACallOfASaveFile {
  Calls callsOfALoad() const {
    PosixSaveFile file(folder.path(), NAME, true);
    CallRecorder calls = recorder();
    EXPECT_TRUE(file.FOpen());
    return calls.take();
  }
};

TEST_F(ALoad, ReadsToTheEnd) {
  EXPECT_THAT(callsOfALoad(), ElementsAre("openat folder", "openat IDLSuffix.ini", "fstat IDLSuffix.ini",
                                          "read IDLSuffix.ini", "read IDLSuffix.ini"));
}

TEST_F(ALoad, ThatFailsAnywhereKeepsTheObjectFromEverWriting) {
  const Calls calls = callsOfALoad();
  for (std::size_t failing = 0; failing < calls.size(); ++failing) {
    for (const int error : {EIO, EACCES, EROFS, ENOMEM}) {
      SCOPED_TRACE(calls[failing] + ": " + strerror(error));
      log.clear();
      PosixSaveFile file(folder.path(), NAME, true);
      {
        CallRecorder recorded = recorder();
        recorded.failAt(failing, error);
        EXPECT_FALSE(file.FOpen());
      }
      expectOneLine(path(), error);

      prepare(file);
      CallRecorder recorded = recorder();
      EXPECT_FALSE(file.Flush());

      EXPECT_THAT(recorded.take(), IsEmpty());
      EXPECT_EQ(folder.contents(NAME), OLD);
      EXPECT_EQ(log.lines().size(), 2U);
    }
  }
}

TEST_F(ALoad, IsNotStoppedByASignal) {
  for (const std::size_t failing : {0U, 1U, 3U, 4U}) {  // all but fstat, which is never interrupted
    PosixSaveFile file(folder.path(), NAME, true);
    CallRecorder recorded = recorder();
    recorded.failAt(failing, EINTR);

    EXPECT_TRUE(file.FOpen()) << failing;

    EXPECT_EQ(recorded.take().size(), 6U);
    char bytes[20] = {};
    EXPECT_EQ(file.Read(bytes, sizeof bytes), 10);
    EXPECT_STREQ(bytes, OLD);
  }
}

TEST_F(ALoad, ReadsOnAfterAShortRead) {
  PosixSaveFile file(folder.path(), NAME, true);
  CallRecorder recorded = recorder();
  recorded.limitTransfers(3);

  EXPECT_TRUE(file.FOpen());

  EXPECT_EQ(recorded.take().size(), 3U + 5U);
  char bytes[20] = {};
  EXPECT_EQ(file.Read(bytes, sizeof bytes), 10);
  EXPECT_STREQ(bytes, OLD);
}

}  // namespace
