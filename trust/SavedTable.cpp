// SPDX-License-Identifier: Apache-2.0
// Cuts the power in random saves: a table is replaced by another one, and states that the file system may then be in
// are loaded, each once. Some are where the next save begins.
#include "saved/SavedTable.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "saved/CrashStates.h"
#include "saved/FolderRecording.h"
#include "saved/RandomTables.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"
#include "trust/Campaign.h"

namespace {

namespace fs = std::filesystem;
using saved_table::load;
using saved_table::Table;
using saved_table::told;

constexpr char FOLDER[] = "own";
constexpr unsigned DRAWS_OF_A_SAVE = 100;
constexpr unsigned MAX_FRUITLESS_SAVES = 1000;  // in a row; a few are, where the table stays as it was

/// What is in the saved file; nothing where there is none.
std::optional<std::string> savedBytes(const FolderTree& tree) {
  const auto found = tree.find(std::string(FOLDER) + "/" + saved_table::NAME);
  return found != tree.end() ? found->second : std::nullopt;
}

std::size_t fingerprint(const CrashStates::State& state) {
  std::string text(state.returned ? "returned" : "");
  for (const auto& [name, bytes] : state.tree) {
    text += '\0' + name + '\0' + bytes.value_or("folder") + '\0';
  }
  return std::hash<std::string>()(text);
}

/// A table as a file's bytes and as what is loaded.
struct Saved {
  std::optional<std::string> bytes;
  std::vector<std::string> table;

  bool operator==(const Saved& other) const { return bytes == other.bytes && table == other.table; }
};

class PowerCuts {
 public:
  explicit PowerCuts(Campaign& campaign) : mCampaign(campaign), mRandom(campaign.seed()) {}

  void run() {
    unsigned fruitless = 0;
    while (!isDone()) {
      const std::size_t before = mSeen.size();
      cutOneSave();
      fruitless = mSeen.size() == before ? fruitless + 1 : 0;
      if (fruitless > MAX_FRUITLESS_SAVES) {
        mCampaign.violation("nothing is saved any more");
        break;
      }
      mState = saved_table::below(4, mRandom) == 0 ? mState : FolderTree{};
    }
    mCampaign.tried(mSeen.size());
    mCampaign.note("no two the same; " + std::to_string(mSaves) + " saves; old table " + std::to_string(mOld) +
                   ", new " + std::to_string(mNew) + ", lost " + std::to_string(mForgotten) + ", neither " +
                   std::to_string(mNeither));
  }

 private:
  bool isDone() const { return mSeen.size() >= mCampaign.count() || mCampaign.hasEnough(); }

  Saved saved() const { return {savedBytes(readTree(mScratch.path())), told(load(mScratch / FOLDER))}; }

  /// From mState on, and leaves one of the states there.
  void cutOneSave() {
    const fs::path folder = mScratch / FOLDER;
    buildTree(mScratch.path(), mState);
    if (mState.empty() && saved_table::below(8, mRandom) != 0) {
      saved_table::save(folder, saved_table::randomTable(mRandom));
    }
    const Saved before = saved();
    const Table table = saved_table::randomTable(mRandom);
    FolderHistory history;
    {
      FolderRecording recording(mScratch.path());
      saved_table::save(folder, table);
      if (recording.history().steps.empty()) {
        return;  // the table is the old one
      }
      recording.returned();
      history = recording.history();
      if (!recording.isComplete()) {
        mCampaign.violation("the recording is not complete");
        return;
      }
    }
    ++mSaves;
    const Saved after = saved();
    if (!after.bytes || after.table != saved_table::storedOf(table) ||
        saved_table::meaningOf(*after.bytes) != after.table) {
      mCampaign.violation("another table was saved");
    }
    cutThePower(CrashStates(history), before, after);
    if (!mLog.lines().empty()) {
      mCampaign.violation("logged: " + mLog.lines().front());
      mLog.clear();
    }
  }

  void cutThePower(const CrashStates& states, const Saved& before, const Saved& after) {
    std::set<std::pair<FolderTree, bool>> seen;  // in this save: the next one may be allowed other tables there
    for (unsigned i = 0; i < DRAWS_OF_A_SAVE && !isDone(); ++i) {
      const CrashStates::State state = states.any(mRandom);
      if (!seen.emplace(state.tree, state.returned).second) {
        continue;
      }
      mState = state.tree;
      buildTree(mScratch.path(), mState);
      judge({savedBytes(mState), told(load(mScratch / FOLDER))}, before, after, state.returned);
      mSeen.insert(fingerprint(state));
    }
  }

  /// The bytes too: those of an empty table are zeros, which is what a file that was cut is read as.
  void judge(const Saved& found, const Saved& before, const Saved& after, bool returned) {
    if (found == after) {
      ++mNew;
    } else if (!(found == before)) {
      ++mNeither;
      mCampaign.violation("neither the old table nor the new one");
    } else if (returned) {
      ++mForgotten;
      mCampaign.violation("the old table after the save had returned");
    } else {
      ++mOld;
    }
  }

  Campaign& mCampaign;
  std::mt19937_64 mRandom;
  const SaveFolder mScratch;
  LogCapture mLog;
  FolderTree mState;
  std::unordered_set<std::size_t> mSeen;  // fingerprints, of all saves
  std::uint64_t mSaves = 0;
  std::uint64_t mOld = 0;
  std::uint64_t mNew = 0;
  std::uint64_t mForgotten = 0;
  std::uint64_t mNeither = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("saved-table", "distinct crash states loaded", argc, argv);
  PowerCuts(campaign).run();
  return campaign.finish();
}
