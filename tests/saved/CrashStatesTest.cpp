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
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
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

/// What states there were, and how many of them were wrong.
struct Verdict {
  std::set<std::string> kinds;
  std::size_t neither = 0;    // another table than the old one and the new one
  std::size_t forgotten = 0;  // the old one, though the save had said that it was done
};

/// A folder's table, as its bytes and as it is loaded. An empty one's bytes are zeros, which is what is read of a file
/// that was cut or has lost its blocks.
struct Saved {
  std::optional<std::string> bytes;
  std::vector<std::string> table;

  bool operator==(const Saved& other) const { return bytes == other.bytes && table == other.table; }
};

struct APowerCut : testing::Test {
  APowerCut() {
    fs::create_directory(recorded());
    fs::create_directory(cut());
  }

  fs::path recorded() const { return scratch / "recorded"; }
  fs::path cut() const { return scratch / "cut"; }

  static Saved savedIn(const fs::path& root, const std::string& below) {
    const FolderTree tree = readTree(root);
    const auto found = tree.find(fs::path(below) / NAME);
    return {found != tree.end() ? found->second : std::nullopt, told(load(root / below))};
  }

  /// "new, returned", or what there is beside the saved file, such as "old, part of a temporary".
  static std::string kindOf(const CrashStates::State& state, const Saved& found, const Saved& before,
                            const Saved& after) {
    std::set<std::string> besides;  // in this order, whatever their names
    for (const auto& [path, bytes] : state.tree) {
      const std::string name = fs::path(path).filename();
      if (name == LEFT_OVER) {
        besides.insert(", left-over");
      } else if (bytes && name != NAME) {
        besides.insert(bytes == after.bytes ? ", whole temporary" : ", part of a temporary");
      }
    }
    std::string kind = found == after ? "new" : found == before ? "old" : "neither";
    for (const std::string& one : besides) {
      kind += one;
    }
    return kind + (state.returned ? ", returned" : "");
  }

  /// Records a save into the folder `below` (of a name from the recorded one), and looks at every state that may be
  /// left.
  Verdict judge(const std::string& below, const Table& newTable, const std::function<void()>& save) {
    const Saved before = savedIn(recorded(), below);
    FolderRecording recording(recorded());
    save();
    recording.returned();
    EXPECT_TRUE(recording.isComplete());
    const Saved after = savedIn(recorded(), below);
    EXPECT_EQ(after.table, told(newTable)) << "without a power cut";

    Verdict verdict;
    CrashStates(recording.history()).each([&](const CrashStates::State& state) {
      buildTree(cut(), state.tree);
      const Saved found = savedIn(cut(), below);
      const std::string kind = kindOf(state, found, before, after);
      verdict.kinds.insert(kind);
      verdict.neither += !(found == after) && !(found == before) ? 1U : 0U;
      verdict.forgotten += !(found == after) && found == before && state.returned ? 1U : 0U;
      if (mVisit) {
        mVisit(kind);
      }
    });
    return verdict;
  }

  Verdict judgeTheLibrary(const Table& newTable, const std::string& below = "") {
    return judge(below, newTable, [&] { saved_table::save(recorded() / below, newTable); });
  }

  /// @param kinds  those that there have to be, and no others
  void expectSafe(const Verdict& verdict, const std::set<std::string>& kinds) {
    EXPECT_EQ(verdict.kinds, kinds);
    EXPECT_EQ(verdict.neither, 0U);
    EXPECT_EQ(verdict.forgotten, 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
  }

  const SaveFolder scratch;
  const LogCapture log;
  std::function<void(const std::string& kind)> mVisit;
};

/// What a save may leave that makes a temporary file and has nothing to clean up. Where there was no table, the old one
/// is none.
const std::set<std::string> KINDS = {"old", "old, part of a temporary", "old, whole temporary", "new", "new, returned"};

TEST_F(APowerCut, InTheFirstSaveLeavesNoTableOrTheNewOne) {
  expectSafe(judgeTheLibrary(phones(10, "Phone ", 1)), KINDS);
}

TEST_F(APowerCut, InTheFirstSaveLeavesNoTableOrTheNewOneWhereTheFolderIsMissingToo) {
  expectSafe(judgeTheLibrary(phones(3, "Phone ", 1), "state/own"), KINDS);
}

TEST_F(APowerCut, InASaveLeavesTheOldTableOrTheNewOne) {
  saved_table::save(recorded(), phones(10, "Old ", 1));

  expectSafe(judgeTheLibrary(phones(10, "New ", 101)), KINDS);
}

TEST_F(APowerCut, InASaveThatForgetsAllPhonesLeavesTheOldTableOrNone) {
  saved_table::save(recorded(), phones(10, "Old ", 1));

  expectSafe(judgeTheLibrary({}), KINDS);
}

TEST_F(APowerCut, InASaveThatCleansUpLeavesTheOldTableOrTheNewOne) {
  saved_table::save(recorded(), phones(2, "Old ", 1));
  std::ofstream(recorded() / LEFT_OVER) << "half written";

  std::set<std::string> kinds = KINDS;
  kinds.insert(
      {"old, left-over", "old, left-over, part of a temporary", "old, left-over, whole temporary", "new, left-over"});

  expectSafe(judgeTheLibrary(phones(3, "New ", 1)), kinds);
}

TEST_F(APowerCut, LeavesAFolderThatTheNextSaveTidies) {
  saved_table::save(recorded(), phones(10, "Old ", 1));
  std::set<std::string> tidied;
  std::size_t visited = 0;
  mVisit = [&](const std::string& kind) {
    if (!tidied.insert(kind).second && visited++ % 4 != 0) {
      return;  // the others differ from these in their bytes alone, and each takes a save
    }
    saved_table::save(cut(), phones(1, "Later ", 7));
    ASSERT_EQ(told(load(cut())), told(phones(1, "Later ", 7)));
    const FolderTree tree = readTree(cut());
    ASSERT_EQ(tree.size(), 1U) << kind;
    ASSERT_EQ(tree.begin()->first, NAME) << kind;
  };

  expectSafe(judgeTheLibrary(phones(10, "New ", 101)), KINDS);

  EXPECT_EQ(tidied, KINDS);
}

TEST_F(APowerCut, ByChanceLeavesEachKindAndManyStates) {
  saved_table::save(recorded(), phones(10, "Old ", 1));
  const Saved before = savedIn(recorded(), "");
  FolderRecording recording(recorded());
  saved_table::save(recorded(), phones(10, "New ", 101));
  recording.returned();
  const Saved after = savedIn(recorded(), "");
  std::mt19937_64 random(1);

  std::set<std::pair<FolderTree, bool>> distinct;
  std::set<std::string> kinds;
  for (int i = 0; i < 1000; ++i) {
    const CrashStates::State state = CrashStates(recording.history()).any(random);
    if (distinct.emplace(state.tree, state.returned).second) {
      buildTree(cut(), state.tree);
      kinds.insert(kindOf(state, savedIn(cut(), ""), before, after));
    }
  }

  EXPECT_GE(distinct.size(), 300U);
  EXPECT_EQ(kinds, KINDS);
}

// --- what is watched for is seen

/// A save written by hand, in any order and with any of its precautions left out.
struct ACarelessSave : APowerCut {
  enum Action { WRITE_ASIDE, WRITE_IN_PLACE, SYNC_FILE, REMOVE_OLD, RENAME, SYNC_FOLDER };

  ACarelessSave() { saved_table::save(recorded(), phones(10, "Old ", 1)); }

  Verdict judgeOf(const std::vector<Action>& actions, const Table& newTable = phones(10, "New ", 101)) {
    saved_table::save(scratch.path(), phones(1, "Neither ", 1));  // so that none is saved too
    saved_table::save(scratch.path(), newTable);
    bytes = scratch.contents(NAME);
    return judge("", newTable, [&] {
      int file = -1;
      for (const Action action : actions) {
        perform(action, file);
      }
      close(file);
    });
  }

  void perform(Action action, int& file) const {
    const fs::path temporary = recorded() / LEFT_OVER;
    const fs::path path = recorded() / NAME;
    switch (action) {
      case WRITE_ASIDE:
      case WRITE_IN_PLACE:
        file = open((action == WRITE_ASIDE ? temporary : path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
        ASSERT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        break;
      case SYNC_FILE:
        ASSERT_EQ(fsync(file), 0);
        break;
      case REMOVE_OLD:
        ASSERT_EQ(unlink(path.c_str()), 0);
        break;
      case RENAME:
        ASSERT_EQ(rename(temporary.c_str(), path.c_str()), 0);
        break;
      case SYNC_FOLDER: {
        const int folder = open(recorded().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ASSERT_EQ(fsync(folder), 0);
        close(folder);
      }
    }
  }

  std::string bytes;
};

TEST_F(ACarelessSave, IsNoneWithAllPrecautions) {
  // Its temporary file has the name of a left-over.
  expectSafe(judgeOf({WRITE_ASIDE, SYNC_FILE, RENAME, SYNC_FOLDER}), {"old", "old, left-over", "new", "new, returned"});
}

TEST_F(ACarelessSave, WithoutSyncOfItsFileMayLeaveAnything) {
  EXPECT_GT(judgeOf({WRITE_ASIDE, RENAME, SYNC_FOLDER}).neither, 1000U);
}

TEST_F(ACarelessSave, WithoutSyncOfItsFileIsSeenWhereTheNewTableIsEmptyToo) {
  EXPECT_GT(judgeOf({WRITE_ASIDE, RENAME, SYNC_FOLDER}, {}).neither, 1000U);
}

TEST_F(ACarelessSave, ThatSyncsItsFileAfterTheRenameMayLeaveAnything) {
  EXPECT_GT(judgeOf({WRITE_ASIDE, RENAME, SYNC_FILE, SYNC_FOLDER}).neither, 1000U);
}

TEST_F(ACarelessSave, WithoutSyncOfItsFolderMayBeForgotten) {
  const Verdict verdict = judgeOf({WRITE_ASIDE, SYNC_FILE, RENAME});

  EXPECT_EQ(verdict.neither, 0U);
  EXPECT_GT(verdict.forgotten, 0U);
}

TEST_F(ACarelessSave, ThatSyncsItsFolderBeforeTheRenameMayBeForgotten) {
  const Verdict verdict = judgeOf({WRITE_ASIDE, SYNC_FILE, SYNC_FOLDER, RENAME});

  EXPECT_EQ(verdict.neither, 0U);
  EXPECT_GT(verdict.forgotten, 0U);
}

TEST_F(ACarelessSave, ThatRemovesTheOldFileFirstMayLeaveNoTable) {
  EXPECT_GT(judgeOf({WRITE_ASIDE, SYNC_FILE, REMOVE_OLD, RENAME, SYNC_FOLDER}).neither, 0U);
}

TEST_F(ACarelessSave, InPlaceMayLeaveAnything) {
  EXPECT_GT(judgeOf({WRITE_IN_PLACE, SYNC_FILE, SYNC_FOLDER}).neither, 1000U);
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
