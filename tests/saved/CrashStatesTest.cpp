// SPDX-License-Identifier: Apache-2.0
// What a power cut in a save leaves, in whatever order the file system wrote: the old table or the new one. And that
// a save with any of its precautions left out is found out.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "saved/CrashStates.h"
#include "saved/FolderRecording.h"
#include "saved/SavedTable.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"

namespace {

namespace fs = std::filesystem;
using saved_table::load;
using saved_table::NAME;
using saved_table::phone;
using saved_table::Table;
using saved_table::told;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char LEFT_OVER[] = ".IDLSuffix.ini.abc123";

Table phones(unsigned count, const std::string& name, unsigned firstSuffix) {
  Table table;
  for (unsigned i = 0; i < count; ++i) {
    table.push_back(phone(20 + i, name + std::to_string(i), firstSuffix + i));
  }
  return table;
}

/// How many states there were, and how many of them were wrong.
struct Verdict {
  std::size_t states = 0;
  std::size_t neither = 0;    // another table than the old one and the new one
  std::size_t forgotten = 0;  // the old one, though the save had said that it was done
};

struct APowerCut : testing::Test {
  APowerCut() {
    fs::create_directory(recorded());
    fs::create_directory(cut());
  }

  fs::path recorded() const { return scratch / "recorded"; }
  fs::path cut() const { return scratch / "cut"; }

  /// Records a save into the folder `below` (of a name from the recorded one), and looks at every state that may be
  /// left.
  Verdict judge(const std::string& below, const Table& newTable, const std::function<void()>& save) {
    const std::vector<std::string> before = told(load(recorded() / below));
    FolderRecording recording(recorded());
    save();
    recording.returned();
    EXPECT_TRUE(recording.isComplete());
    EXPECT_EQ(told(load(recorded() / below)), told(newTable)) << "without a power cut";

    Verdict verdict;
    CrashStates(recording.history()).each([&](const CrashStates::State& state) {
      ++verdict.states;
      buildTree(cut(), state.tree);
      const std::vector<std::string> found = told(load(cut() / below));
      const bool isNew = found == told(newTable);
      verdict.neither += !isNew && found != before ? 1U : 0U;
      verdict.forgotten += !isNew && found == before && state.returned ? 1U : 0U;
      if (mVisit) {
        mVisit();
      }
    });
    return verdict;
  }

  Verdict judgeTheLibrary(const Table& newTable, const std::string& below = "") {
    return judge(below, newTable, [&] { saved_table::save(recorded() / below, newTable); });
  }

  void expectSafe(const Verdict& verdict, std::size_t states) {
    EXPECT_GE(verdict.states, states);
    EXPECT_EQ(verdict.neither, 0U);
    EXPECT_EQ(verdict.forgotten, 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
  }

  const SaveFolder scratch;
  const LogCapture log;
  std::function<void()> mVisit;
};

TEST_F(APowerCut, InTheFirstSaveLeavesNoTableOrTheNewOne) {
  expectSafe(judgeTheLibrary(phones(10, "Phone ", 1)), 2000);
}

TEST_F(APowerCut, InTheFirstSaveLeavesNoTableOrTheNewOneWhereTheFolderIsMissingToo) {
  expectSafe(judgeTheLibrary(phones(3, "Phone ", 1), "state/own"), 2000);
}

TEST_F(APowerCut, InASaveLeavesTheOldTableOrTheNewOne) {
  saved_table::save(recorded(), phones(10, "Old ", 1));

  expectSafe(judgeTheLibrary(phones(10, "New ", 101)), 2000);
}

TEST_F(APowerCut, InASaveThatForgetsAllPhonesLeavesTheOldTableOrNone) {
  saved_table::save(recorded(), phones(10, "Old ", 1));

  expectSafe(judgeTheLibrary({}), 2000);
}

TEST_F(APowerCut, InASaveThatCleansUpLeavesTheOldTableOrTheNewOne) {
  saved_table::save(recorded(), phones(2, "Old ", 1));
  std::ofstream(recorded() / LEFT_OVER) << "half written";

  expectSafe(judgeTheLibrary(phones(3, "New ", 1)), 2000);
}

TEST_F(APowerCut, LeavesAFolderThatTheNextSaveTidies) {
  saved_table::save(recorded(), phones(10, "Old ", 1));
  std::size_t visited = 0;
  std::size_t untidy = 0;
  mVisit = [&] {
    if (visited++ % 4 != 0) {
      return;  // the others differ from these in their bytes alone, and each takes a save
    }
    untidy += readTree(cut()).size() > 1 ? 1U : 0U;
    saved_table::save(cut(), phones(1, "Later ", 7));
    ASSERT_EQ(told(load(cut())), told(phones(1, "Later ", 7)));
    const FolderTree tree = readTree(cut());
    ASSERT_EQ(tree.size(), 1U);
    ASSERT_EQ(tree.begin()->first, NAME);
  };

  expectSafe(judgeTheLibrary(phones(10, "New ", 101)), 2000);

  EXPECT_GE(untidy, 500U);
}

TEST_F(APowerCut, IsAsThoroughByChance) {
  saved_table::save(recorded(), phones(10, "Old ", 1));
  FolderRecording recording(recorded());
  saved_table::save(recorded(), phones(10, "New ", 101));
  recording.returned();
  std::mt19937_64 random(1);

  std::size_t oldOnes = 0;
  std::size_t newOnes = 0;
  for (int i = 0; i < 1000; ++i) {
    const CrashStates::State state = CrashStates(recording.history()).any(random);
    buildTree(cut(), state.tree);
    const std::vector<std::string> found = told(load(cut()));
    oldOnes += found == told(phones(10, "Old ", 1)) && !state.returned ? 1U : 0U;
    newOnes += found == told(phones(10, "New ", 101)) ? 1U : 0U;
  }

  EXPECT_EQ(oldOnes + newOnes, 1000U);
  EXPECT_GT(oldOnes, 100U);
  EXPECT_GT(newOnes, 100U);
}

// --- what is watched for is seen

/// A save written by hand, with any of its precautions left out.
struct ACarelessSave : APowerCut {
  struct Care {
    bool syncsItsFile = true;
    bool syncsItsFolder = true;
    bool writesAside = true;
  };

  ACarelessSave() {
    saved_table::save(recorded(), oldTable);
    saved_table::save(scratch.path(), newTable);
    bytes = scratch.contents(NAME);
  }

  Verdict judgeWith(const Care& care) {
    return judge("", newTable, [&] { saveWith(care); });
  }

  void saveWith(const Care& care) const {
    const fs::path temporary = recorded() / LEFT_OVER;
    const fs::path path = care.writesAside ? temporary : recorded() / NAME;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
    ASSERT_GE(file, 0);
    ASSERT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    if (care.syncsItsFile) {
      ASSERT_EQ(fsync(file), 0);
    }
    close(file);
    if (care.writesAside) {
      ASSERT_EQ(rename(temporary.c_str(), (recorded() / NAME).c_str()), 0);
    }
    if (care.syncsItsFolder) {
      const int folder = open(recorded().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      ASSERT_EQ(fsync(folder), 0);
      close(folder);
    }
  }

  const Table oldTable = phones(10, "Old ", 1);
  const Table newTable = phones(10, "New ", 101);
  std::string bytes;
};

TEST_F(ACarelessSave, IsNoneWithAllPrecautions) { expectSafe(judgeWith({}), 2000); }

TEST_F(ACarelessSave, WithoutSyncOfItsFileMayLeaveAnything) {
  Care care;
  care.syncsItsFile = false;

  EXPECT_GT(judgeWith(care).neither, 1000U);
}

TEST_F(ACarelessSave, WithoutSyncOfItsFolderMayBeForgotten) {
  Care care;
  care.syncsItsFolder = false;

  const Verdict verdict = judgeWith(care);

  EXPECT_EQ(verdict.neither, 0U);
  EXPECT_GT(verdict.forgotten, 0U);
}

TEST_F(ACarelessSave, InPlaceMayLeaveAnything) {
  Care care;
  care.writesAside = false;

  EXPECT_GT(judgeWith(care).neither, 1000U);
}

// --- in the way

struct ASave : APowerCut {};

TEST_F(ASave, DoesNotFollowALinkThatIsWhereItsTemporaryFileIsToBe) {
  saved_table::save(recorded(), phones(1, "Old ", 1));
  std::ofstream(scratch / "precious") << "precious";
  std::vector<fs::path> links;
  FolderRecording recording(recorded());
  recording.beforeCreating([&](const fs::path& path) {
    if (links.empty()) {
      fs::create_symlink(scratch / "precious", path);
      links.push_back(path);
    }
  });

  saved_table::save(recorded(), phones(1, "New ", 1));

  ASSERT_EQ(links.size(), 1U);
  EXPECT_TRUE(fs::is_symlink(links[0]));
  EXPECT_EQ(scratch.contents("precious"), "precious");
  EXPECT_EQ(told(load(recorded())), told(phones(1, "New ", 1)));
}

// --- the recorder

struct AFolderRecording : APowerCut {};

TEST_F(AFolderRecording, IsNotCompleteWhenSomethingWasDoneByAnotherCall) {
  std::ofstream(recorded() / NAME) << "old";
  const FolderRecording recording(recorded());
  EXPECT_TRUE(recording.isComplete());

  std::ofstream(recorded() / NAME) << "new";  // the C++ library's calls are not caught

  EXPECT_FALSE(recording.isComplete());
}

TEST_F(AFolderRecording, HasTheStepsOfASaveInTheirOrder) {
  FolderRecording recording(recorded());
  saved_table::save(recorded(), phones(1, "Phone ", 1));
  recording.returned();

  std::vector<FolderHistory::Kind> kinds;
  for (const FolderHistory::Step& step : recording.history().steps) {
    kinds.push_back(step.kind);
  }
  using Kind = FolderHistory::Kind;
  EXPECT_THAT(kinds, ElementsAre(Kind::ENTER, Kind::WRITE, Kind::SYNC, Kind::MOVE, Kind::SYNC, Kind::RETURNED));
}

}  // namespace
