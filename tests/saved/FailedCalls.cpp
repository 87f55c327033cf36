// SPDX-License-Identifier: Apache-2.0
#include "saved/FailedCalls.h"

#include <string.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "framework/CallRecorder.h"
#include "support/LogCapture.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"

namespace {

namespace fs = std::filesystem;
using Calls = std::vector<std::string>;

constexpr char TEMPORARY[] = ".IDLSuffix.ini.";

/// The folder within the scratch folder, so that it can be missing.
constexpr char FOLDER[] = "own";

/// The library's life in a process, from its first use to its exit.
class Life {
 public:
  Life() { mList->initialize(); }

  ~Life() {
    LmSIntegratedDeviceList::destroy();
    SaveFolder::letGo();
  }

  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  Calls refresh() {
    mList->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
    std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> list;
    mList->getDeviceList(list);
    Calls texts;
    texts.reserve(list.size());
    for (const auto& device : list) {
      texts.push_back(saved_table::told(device.btid, device.name, device.suffix));
    }
    return texts;
  }

 private:
  LmSIntegratedDeviceList* const mList = LmSIntegratedDeviceList::getInstance();
};

void publish(const FailedCalls::Refresh& phones, BtTable& table) {
  for (unsigned slot = 0; slot < 10; ++slot) {
    table.clear(slot);
  }
  unsigned slot = 0;
  for (const FailedCalls::Phone& phone : phones) {
    table.phone(slot++, phone.id, phone.name);
  }
}

bool isTemporary(const std::string& name) { return name.compare(0, sizeof TEMPORARY - 1, TEMPORARY) == 0; }

std::size_t temporariesIn(const fs::path& folder) {
  if (!fs::exists(folder)) {
    return 0;
  }
  const auto isOne = [](const fs::directory_entry& entry) { return isTemporary(entry.path().filename()); };
  return static_cast<std::size_t>(std::count_if(fs::directory_iterator(folder), {}, isOne));
}

/// What a call is about; empty for whatever is not in the folder.
std::string label(const fs::path& folder, const std::string& path) {
  const std::string name = fs::path(path).filename();
  if (isTemporary(name)) {
    return "temporary";
  }
  if (path == folder) {
    return "folder";
  }
  const bool isIn = path == saved_table::NAME || path == "." || fs::path(path).parent_path() == folder;
  return isIn ? name : "";
}

bool isRetried(const std::string& call) {
  const std::string name = call.substr(0, call.find(' '));
  return name == "openat" || name == "flock" || name == "read" || name == "write" || name == "fsync";
}

/// What a failing call belongs to: each of them begins with the opening of the folder.
enum class Phase { LOAD, OPENING, SAVING };

Phase phaseOf(const Calls& calls, std::size_t index, bool isFirst) {
  auto openings = std::count(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(index) + 1, "openat folder");
  openings += isFirst ? 0 : 1;
  return openings == 1 ? Phase::LOAD : openings == 2 ? Phase::OPENING : Phase::SAVING;
}

std::string asImage(std::string bytes) {
  bytes.resize(saved_table::SIZE, '\0');
  return bytes;
}

}  // namespace

FailedCalls::FailedCalls(Story story)
    : mStory(std::move(story)), mPlain(tell(mStory.stored, {})), mWithoutStored(tell({}, {})) {}

FailedCalls::Telling FailedCalls::tell(const saved_table::Table& stored, const Plan& plan) const {
  const SaveFolder scratch;
  const fs::path folder = scratch / FOLDER;
  BtTable table;
  if (!stored.empty()) {
    saved_table::save(folder, stored);
  }
  setenv("LM_SAVE_FILE_DIR", folder.c_str(), 1);
  SaveFolder::letGo();
  LogCapture log;
  Telling telling;
  telling.files.push_back(scratch.contents(std::string(FOLDER) + "/" + saved_table::NAME));
  Life life;
  for (std::size_t i = 0; i < mStory.refreshes.size(); ++i) {
    publish(mStory.refreshes[i], table);
    log.clear();
    CallRecorder calls([&](const std::string& path) { return label(folder, path); });
    calls.onlyLabelled();
    const auto failure = plan.find(i);
    if (failure != plan.end()) {
      calls.failAt(failure->second.index, failure->second.error);
      calls.limitTransfers(failure->second.limit);
    }
    telling.lists.push_back(life.refresh());
    telling.calls.push_back(calls.take());
    telling.lines.push_back(log.lines());
    telling.temporaries.push_back(temporariesIn(folder));
    telling.files.push_back(scratch.contents(std::string(FOLDER) + "/" + saved_table::NAME));
  }
  return telling;
}

std::vector<std::string> FailedCalls::complaintsAbout(const Plan& plan) {
  const Telling told = tell(mStory.stored, plan);
  std::vector<std::string> complaints;
  mFailed = 0;
  const Telling* right = &mPlain;
  std::string file = told.files[0];
  bool mayWrite = true;
  bool mayLeaveOne = false;
  for (std::size_t i = 0; i < told.lists.size(); ++i) {
    const auto found = plan.find(i);
    const Failure failure = found != plan.end() ? found->second : Failure{};
    const Calls& calls = told.calls[i];
    const bool happened = failure.index < calls.size();
    const std::string call = happened ? calls[failure.index] : "";
    const bool counts = happened && !(failure.error == EINTR && isRetried(call));
    const Phase phase = happened ? phaseOf(calls, failure.index, i == 0) : Phase::LOAD;
    mFailed += happened ? 1U : 0U;
    const std::string where = "refresh " + std::to_string(i) + (happened ? ", " + call + ": " : ": ");

    std::size_t lines = counts ? 1 : 0;
    if (counts && phase == Phase::LOAD) {
      right = &mWithoutStored;
      mayWrite = false;
    }
    const bool isAttempted = asImage(right->files[i + 1]) != asImage(right->files[i]);
    if (counts && phase == Phase::OPENING) {
      mayWrite = false;
    } else if (isAttempted && !mayWrite) {
      ++lines;  // that it may not
    } else if (isAttempted) {
      const bool isSaved = !counts || call == "openat ." || call == "fsync folder";
      file = isSaved ? right->files[i + 1] : file;
    }

    mayLeaveOne = mayLeaveOne || call == "unlinkat temporary";
    if (told.temporaries[i] != 0 && !mayLeaveOne) {
      complaints.push_back(where + "a temporary file is left");
    }
    if (told.lists[i] != right->lists[i]) {
      complaints.push_back(where + "the list is wrong");
    }
    if (told.files[i + 1] != file) {
      complaints.push_back(where + "the file is wrong");
    }
    if (told.lines[i].size() != lines) {
      complaints.push_back(where + std::to_string(told.lines[i].size()) + " log lines instead of " +
                           std::to_string(lines));
    } else if (counts && (told.lines[i][0].find(std::string("/own/") + saved_table::NAME) == std::string::npos ||
                          told.lines[i][0].find(strerror(failure.error)) == std::string::npos)) {
      complaints.push_back(where + "which file or why is not in " + told.lines[i][0]);
    }
  }
  return complaints;
}
