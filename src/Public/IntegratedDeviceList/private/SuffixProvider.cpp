// SPDX-License-Identifier: Apache-2.0
#include "SuffixProvider.h"

#include <algorithm>
#include <set>

#include "Decisions.h"
#include "IntegratedDeviceList/idl.h"
#include "LmFramework/LmDbgOutput.h"
#include "SysDataWrapper.h"

namespace {

constexpr char FILE_NAME[] = "src/Public/IntegratedDeviceList/private/SuffixProvider";
constexpr int LOG_TAG = 1;

constexpr std::uint8_t NO_SUFFIX = 0;
constexpr std::uint8_t FIRST_VISIBLE_SUFFIX = 2;  // of the built-in format
constexpr std::size_t MAX_SUFFIX = 255;

using LmSIntegratedDeviceListDef::DeviceInfo;

// Of equal keys the first entry of `table` counts, even where a later one has the name.
template <class Value>
void takeOverNumber(const DeviceInfo& old, std::vector<DeviceInfo>& table, Value DeviceInfo::*key,
                    Decisions::Key keyName) {
  const auto entry =
      std::find_if(table.begin(), table.end(), [&](const DeviceInfo& candidate) { return candidate.*key == old.*key; });
  if (entry == table.end()) {
    return;
  }
  const bool isKept = entry->name == old.name;
  if (isKept) {
    entry->suffix = old.suffix;
  }
  Decisions::heard([&](Decisions& listener) {
    const auto index = static_cast<std::size_t>(entry - table.begin());
    isKept ? listener.numberKept(index, old, keyName) : listener.renamed(index, old, keyName);
  });
}

}  // namespace

SuffixProvider::SuffixProvider() : mStarted(false), mSysData(new SysDataWrapper), mFormat(nullptr) {}

SuffixProvider::SuffixProvider(const std::vector<DeviceInfo>& saved)
    : mStarted(false), mSuffixTable(saved), mSysData(nullptr), mFormat(nullptr) {}

SuffixProvider::~SuffixProvider() {
  delete mSysData;
  mSysData = nullptr;
}

bool SuffixProvider::setFormat(NameFormatFunc format) {
  if (!mStarted) {
    mFormat = format;
  }
  if (mFormat == nullptr) {
    LmDbgOutput::DbgPrint(FILE_NAME, "setFormat", __LINE__, LOG_TAG, "failed.\n");
    return false;
  }
  return true;
}

void SuffixProvider::start() {
  if (mStarted) {
    return;
  }
  if (mSysData != nullptr) {
    mSysData->load(mSuffixTable);
  }
  const bool isValid = checkSuffixTable(mSuffixTable);
  Decisions::heard([&](Decisions& listener) { listener.numbersLoaded(mSuffixTable.size(), !isValid); });
  if (!isValid) {
    LmDbgOutput::DbgPrint(FILE_NAME, "start", __LINE__, LOG_TAG, "mSuffixTable is invalid.\n");
    mSuffixTable.clear();
  }
  mStarted = true;
}

void SuffixProvider::appendSuffix(std::vector<IntegratedDevice>& list) {
  if (!mStarted) {
    LmDbgOutput::DbgPrint(FILE_NAME, "appendSuffix", __LINE__, LOG_TAG, "not started.\n");
    return;
  }
  Decisions::heard([](Decisions& listener) { listener.numberingBegins(); });
  std::vector<DeviceInfo> lastTable = takeOverNumbers(list);
  mSuffixTable.swap(lastTable);
  try {
    assignSuffixNumber();
    applySuffix(list);
    if (mSysData != nullptr) {
      mSysData->save(mSuffixTable);
    }
  } catch (...) {
    mSuffixTable.swap(lastTable);
    throw;
  }
}

void SuffixProvider::updateSuffixTable(const std::vector<IntegratedDevice>& list) {
  mSuffixTable = takeOverNumbers(list);
}

void SuffixProvider::assignSuffixNumber() {
  std::vector<std::string> takenNames;
  takenNames.reserve(mSuffixTable.size());
  for (const DeviceInfo& entry : mSuffixTable) {
    if (entry.suffix != NO_SUFFIX) {
      takenNames.push_back(makeSuffixedName(entry));
    }
  }
  const std::size_t candidates = std::min(mSuffixTable.size(), MAX_SUFFIX);
  for (std::size_t i = 0; i < mSuffixTable.size(); ++i) {
    DeviceInfo& entry = mSuffixTable[i];
    if (entry.suffix != NO_SUFFIX) {
      continue;
    }
    for (std::size_t k = 1; entry.suffix == NO_SUFFIX && k <= candidates; ++k) {
      const auto suffix = static_cast<std::uint8_t>(k);
      std::string candidate = makeSuffixedName(entry.name, suffix);
      if (std::find(takenNames.begin(), takenNames.end(), candidate) == takenNames.end()) {
        takenNames.push_back(std::move(candidate));
        entry.suffix = suffix;
      } else {
        Decisions::heard([&](Decisions& listener) { listener.numberTaken(i, suffix, candidate); });
      }
    }
    Decisions::heard([&](Decisions& listener) {
      entry.suffix != NO_SUFFIX ? listener.numberGiven(i, entry.suffix) : listener.noNumberLeft(i);
    });
  }
}

void SuffixProvider::applySuffix(std::vector<IntegratedDevice>& list) {
  if (list.size() != mSuffixTable.size()) {
    return;
  }
  for (std::size_t i = 0; i < list.size(); ++i) {
    list[i].suffix = mSuffixTable[i].suffix;
    list[i].name = makeSuffixedName(list[i]);
  }
}

std::string SuffixProvider::makeSuffixedName(const std::string& name, unsigned char suffix) {
  if (mFormat != nullptr) {
    return mFormat(name, suffix);
  }
  if (suffix < FIRST_VISIBLE_SUFFIX) {
    return name;
  }
  return name + " " + std::to_string(suffix);
}

std::string SuffixProvider::makeSuffixedName(const DeviceInfo& info) {
  return makeSuffixedName(info.name, info.suffix);
}

bool SuffixProvider::checkSuffixTable(const std::vector<DeviceInfo>& table) {
  std::set<std::string> names;
  for (const DeviceInfo& entry : table) {
    names.insert(makeSuffixedName(entry));
  }
  return names.size() == table.size();
}

// The USB pass comes second: where both reach the same entry, its number stays.
std::vector<DeviceInfo> SuffixProvider::takeOverNumbers(const std::vector<IntegratedDevice>& list) const {
  std::vector<DeviceInfo> table(list.begin(), list.end());
  for (const DeviceInfo& old : mSuffixTable) {
    if (idl::isBtPaired(old)) {
      takeOverNumber(old, table, &DeviceInfo::btid, Decisions::Key::BTID);
    }
  }
  for (const DeviceInfo& old : mSuffixTable) {
    if (idl::isUsbConnected(old)) {
      takeOverNumber(old, table, &DeviceInfo::port, Decisions::Key::PORT);
    }
  }
  return table;
}
