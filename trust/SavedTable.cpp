// SPDX-License-Identifier: Apache-2.0
// Cuts the power in random saves: a table is replaced by another one, and states that the file system may then be in
// are loaded. Some are where the next save begins.
#include "saved/SavedTable.h"

#include <cinttypes>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
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
using saved_table::NAME;
using saved_table::Table;
using saved_table::told;

constexpr unsigned STATES_OF_A_SAVE = 50;
constexpr unsigned MAX_COMPLAINTS = 20;

class PowerCuts {
 public:
  explicit PowerCuts(Campaign& campaign) : mCampaign(campaign), mRandom(campaign.seed()) {}

  void run() {
    for (mState = {}; mCampaign.isClean() || mComplaints < MAX_COMPLAINTS;) {
      if (mStates >= mCampaign.count()) {
        break;
      }
      cutOneSave();
      mState = saved_table::below(4, mRandom) == 0 ? mState : FolderTree{};
    }
    mCampaign.note(std::to_string(mSaves) + " saves; old table " + std::to_string(mOld) + ", new " +
                   std::to_string(mNew) + ", lost " + std::to_string(mForgotten) + ", neither " +
                   std::to_string(mNeither));
  }

 private:
  /// From mState on, and leaves one of the states there.
  void cutOneSave() {
    const fs::path folder = mScratch / "own";
    buildTree(mScratch.path(), mState);
    if (mState.empty() && saved_table::below(8, mRandom) != 0) {
      saved_table::save(folder, saved_table::randomTable(mRandom));
    }
    const std::vector<std::string> oldTable = told(load(folder));
    const Table table = saved_table::randomTable(mRandom);
    FolderHistory history;
    {
      FolderRecording recording(mScratch.path());
      saved_table::save(folder, table);
      recording.returned();
      history = recording.history();
      if (!recording.isComplete()) {
        complain("the recording is not complete");
        return;
      }
    }
    const std::vector<std::string> newTable = saved_table::storedOf(table);
    ++mSaves;
    for (unsigned i = 0; i < STATES_OF_A_SAVE && mStates < mCampaign.count(); ++i) {
      const CrashStates::State state = CrashStates(history).any(mRandom);
      mState = state.tree;
      buildTree(mScratch.path(), mState);
      judge(told(load(folder)), oldTable, newTable, state.returned);
      mCampaign.tried();
      ++mStates;
    }
    if (!mLog.lines().empty()) {
      complain("logged: " + mLog.lines().front());
      mLog.clear();
    }
  }

  void judge(const std::vector<std::string>& found, const std::vector<std::string>& oldTable,
             const std::vector<std::string>& newTable, bool returned) {
    if (found == newTable) {
      ++mNew;
    } else if (found != oldTable) {
      ++mNeither;
      complain("neither the old table nor the new one");
    } else if (returned) {
      ++mForgotten;
      complain("the old table after the save had returned");
    } else {
      ++mOld;
    }
  }

  void complain(const std::string& text) {
    ++mComplaints;
    mCampaign.violation(text);
  }

  Campaign& mCampaign;
  std::mt19937_64 mRandom;
  const SaveFolder mScratch;
  LogCapture mLog;
  FolderTree mState;
  std::uint64_t mStates = 0;
  std::uint64_t mSaves = 0;
  std::uint64_t mOld = 0;
  std::uint64_t mNew = 0;
  std::uint64_t mForgotten = 0;
  std::uint64_t mNeither = 0;
  unsigned mComplaints = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("saved-table", "crash states loaded", argc, argv);
  PowerCuts(campaign).run();
  return campaign.finish();
}
