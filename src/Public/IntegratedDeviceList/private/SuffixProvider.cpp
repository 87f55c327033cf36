// SPDX-License-Identifier: Apache-2.0
#include "SuffixProvider.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <iterator>
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
  takeOverNumbers(list, mOtherTable);
  mSuffixTable.swap(mOtherTable);
  try {
    assignSuffixNumber();
    applySuffix(list);
    if (mSysData != nullptr) {
      mSysData->save(mSuffixTable);
    }
  } catch (...) {
    mSuffixTable.swap(mOtherTable);
    throw;
  }
}

void SuffixProvider::updateSuffixTable(const std::vector<IntegratedDevice>& list) {
  takeOverNumbers(list, mOtherTable);
  mSuffixTable.swap(mOtherTable);
}

void SuffixProvider::assignSuffixNumber() {
  const auto hasNumber = [](const DeviceInfo& entry) { return entry.suffix != NO_SUFFIX; };
  if (std::all_of(mSuffixTable.begin(), mSuffixTable.end(), hasNumber)) {
    return;
  }
  mShownNames.resize(mSuffixTable.size());
  for (std::size_t i = 0; i < mSuffixTable.size(); ++i) {
    const DeviceInfo& entry = mSuffixTable[i];
    mShownNames[i].isTaken = hasNumber(entry);
    if (mShownNames[i].isTaken) {
      show(entry.name, entry.suffix, mShownNames[i]);
    }
  }
  const std::size_t candidates = std::min(mSuffixTable.size(), MAX_SUFFIX);
  const DeviceInfo* last = nullptr;  // the last entry that a number was searched for
  std::size_t next = 1;              // behind those that were tried for it: all of them are taken now
  for (std::size_t i = 0; i < mSuffixTable.size(); ++i) {
    DeviceInfo& entry = mSuffixTable[i];
    if (entry.suffix != NO_SUFFIX) {
      continue;
    }
    // A listener is told of each number that an entry cannot have.
    if (last == nullptr || last->name != entry.name || Decisions::isHeard()) {
      next = 1;
    }
    for (; entry.suffix == NO_SUFFIX && next <= candidates; ++next) {
      const auto suffix = static_cast<std::uint8_t>(next);
      show(entry.name, suffix, mShownNames[i]);
      if (!isTaken(mShownNames[i])) {
        mShownNames[i].isTaken = true;
        entry.suffix = suffix;
      } else {
        Decisions::heard([&](Decisions& listener) { listener.numberTaken(i, suffix, mShownNames[i].text); });
      }
    }
    last = &entry;
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
    show(list[i].name, list[i].suffix, list[i].name);
  }
}

std::string SuffixProvider::makeSuffixedName(const std::string& name, unsigned char suffix) {
  std::string shown;
  show(name, suffix, shown);
  return shown;
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
void SuffixProvider::takeOverNumbers(const std::vector<IntegratedDevice>& list, std::vector<DeviceInfo>& table) const {
  table.assign(list.begin(), list.end());
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
}

// `shown` may be `name` itself.
void SuffixProvider::show(const std::string& name, unsigned char suffix, std::string& shown) {
  if (mFormat != nullptr) {
    shown = mFormat(name, suffix);
    return;
  }
  shown = name;
  if (suffix >= FIRST_VISIBLE_SUFFIX) {
    char behind[] = {' ', '2', '5', '5'};
    const char* const end = std::to_chars(&behind[1], std::end(behind), suffix).ptr;
    shown.append(behind, static_cast<std::size_t>(end - behind));
  }
}

void SuffixProvider::show(const std::string& name, unsigned char suffix, ShownName& shown) {
  show(name, suffix, shown.text);
  shown.hash = std::hash<std::string>()(shown.text);
}

bool SuffixProvider::isTaken(const ShownName& name) const {
  return std::any_of(mShownNames.begin(), mShownNames.end(), [&](const ShownName& other) {
    return other.isTaken && other.hash == name.hash && other.text == name.text;
  });
}
