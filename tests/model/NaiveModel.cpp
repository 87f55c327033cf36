// SPDX-License-Identifier: Apache-2.0
#include "model/NaiveModel.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

namespace model {

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;

constexpr std::uint8_t NOT_PAIRED = 255;
constexpr std::size_t RECORD_COUNT = 10;
constexpr std::size_t RECORD_SIZE = 263;
constexpr std::size_t IMAGE_SIZE = RECORD_COUNT * RECORD_SIZE;
constexpr std::size_t NAME_OFFSET = 2;
constexpr std::size_t NAME_SIZE = 260;
constexpr std::size_t SUFFIX_OFFSET = 262;

template <std::size_t Size>
void fill(char (&field)[Size], const std::string& text) {
  std::memset(field, 0, Size);
  std::memcpy(field, text.data(), std::min(text.size(), Size - 1));
}

bool hasTwoEqual(std::vector<std::string> names) {
  std::sort(names.begin(), names.end());
  return std::adjacent_find(names.begin(), names.end()) != names.end();
}

/// `part` in the order of `seen` from `first` on, as far as each of `seen` is one of `part`.
Devices inOrderOf(const Devices& seen, std::size_t first, Devices part) {
  Devices ordered;
  for (std::size_t i = first; i < seen.size() && !part.empty(); ++i) {
    const auto found = std::find_if(part.begin(), part.end(),
                                    [&](const IntegratedDevice& device) { return isEqual(device, seen[i], false); });
    if (found == part.end()) {
      break;
    }
    ordered.push_back(*found);
    part.erase(found);
  }
  ordered.insert(ordered.end(), part.begin(), part.end());
  return ordered;
}

}  // namespace

bool isEqual(const IntegratedDevice& a, const IntegratedDevice& b, bool named) {
  if (named && (a.name != b.name || a.suffix != b.suffix)) {
    return false;
  }
  return a.type == b.type && a.btid == b.btid && a.port == b.port && a.session == b.session &&
         a.cpDeviceId == b.cpDeviceId && a.aapId == b.aapId &&  //
         a.btDevice.id == b.btDevice.id && std::memcmp(a.btDevice.name, b.btDevice.name, sizeof a.btDevice.name) == 0 &&
         std::memcmp(a.btDevice.address, b.btDevice.address, sizeof a.btDevice.address) == 0 &&
         a.btDevice.info == b.btDevice.info && a.btDevice.flag1 == b.btDevice.flag1 &&
         a.btDevice.flag2 == b.btDevice.flag2 &&  //
         std::memcmp(&a.cpDevice, &b.cpDevice, sizeof a.cpDevice) == 0 && a.aapDevice.session == b.aapDevice.session &&
         std::memcmp(a.aapDevice.name, b.aapDevice.name, sizeof a.aapDevice.name) == 0 &&
         std::memcmp(a.aapDevice.id, b.aapDevice.id, sizeof a.aapDevice.id) == 0 &&
         a.aapDevice.btid == b.aapDevice.btid && a.aapDevice.port == b.aapDevice.port;
}

std::string textOf(const IntegratedDevice& device) {
  const std::string name = device.name.size() <= 40 ? device.name : std::to_string(device.name.size()) + " bytes";
  return "type " + std::to_string(static_cast<int>(device.type)) + " btid " + std::to_string(device.btid) + " port " +
         std::to_string(device.port) + " session " + std::to_string(device.session) + " cp " +
         std::to_string(device.cpDeviceId) + " aap " + std::to_string(device.aapId.size()) + " number " +
         std::to_string(device.suffix) + " \"" + name + '"';
}

// --- Numbers ----------------------------------------------------------------------------------------------------

void Numbers::restart(const std::optional<std::string>& file) {
  mStarted = false;
  mFormat = Format::BUILT_IN;
  mTable.clear();
  mImage.assign(IMAGE_SIZE, '\0');
  mFile = file;
}

bool Numbers::setFormat(Format format, std::vector<std::string>& log) {
  if (!mStarted) {
    mFormat = format;
  }
  if (mFormat == Format::BUILT_IN) {
    log.emplace_back("failed.");
    return false;
  }
  return true;
}

Numbers::Record Numbers::recordAt(const std::string& image, std::size_t index) {
  const std::string bytes = image.substr(index * RECORD_SIZE, RECORD_SIZE);
  const std::string name = bytes.substr(NAME_OFFSET, NAME_SIZE);
  return {static_cast<std::uint8_t>(bytes[0]), static_cast<std::uint8_t>(bytes[1]), name.substr(0, name.find('\0')),
          static_cast<std::uint8_t>(bytes[SUFFIX_OFFSET])};
}

void Numbers::start(std::vector<std::string>& log) {
  if (mStarted) {
    return;
  }
  mStarted = true;
  if (mFile) {
    mImage.replace(0, std::min(mFile->size(), IMAGE_SIZE), mFile->substr(0, IMAGE_SIZE));
  }
  std::set<std::string> shown;
  for (std::size_t i = 0; i < RECORD_COUNT && recordAt(mImage, i).inUse != 0; ++i) {
    const Record record = recordAt(mImage, i);
    mTable.push_back({record.name, record.btid, 0, record.suffix});
    shown.insert(displayed(record.name, record.suffix));
  }
  mReached->loaded += mTable.empty() ? 0U : 1U;
  if (shown.size() != mTable.size()) {
    log.emplace_back("mSuffixTable is invalid.");
    mTable.clear();
    ++mReached->refused;
  }
}

std::string Numbers::displayed(const std::string& name, std::uint8_t suffix) const {
  if (const FormatFunction format = functionOf(mFormat)) {
    return format(name, suffix);
  }
  return suffix == 0 || suffix == 1 ? name : name + " " + std::to_string(suffix);
}

void Numbers::carryOver(const std::vector<Entry>& old) {
  for (const Entry& before : old) {
    if (before.btid == NOT_PAIRED) {
      continue;
    }
    for (Entry& entry : mTable) {
      if (entry.btid == before.btid) {
        if (entry.name == before.name) {
          entry.suffix = before.suffix;
        }
        break;  // only the first counts
      }
    }
  }
  for (const Entry& before : old) {
    if (before.port == 0) {
      continue;
    }
    for (Entry& entry : mTable) {
      if (entry.port == before.port) {
        if (entry.name == before.name) {
          entry.suffix = before.suffix;
        }
        break;
      }
    }
  }
}

void Numbers::assign() {
  bool clashed = false;
  bool isUnnumbered = false;
  for (std::size_t i = 0; i < mTable.size(); ++i) {
    if (mTable[i].suffix != 0) {
      continue;
    }
    for (std::size_t k = 1; k <= mTable.size() && mTable[i].suffix == 0; ++k) {
      const std::string candidate = displayed(mTable[i].name, static_cast<std::uint8_t>(k));
      bool isFree = true;
      for (std::size_t j = 0; j < mTable.size() && isFree; ++j) {
        if (j != i && mTable[j].suffix != 0 && displayed(mTable[j].name, mTable[j].suffix) == candidate) {
          isFree = false;
          clashed = clashed || mTable[j].name != mTable[i].name;
        }
      }
      if (isFree) {
        mTable[i].suffix = static_cast<std::uint8_t>(k);
      }
    }
    isUnnumbered = isUnnumbered || mTable[i].suffix == 0;
  }
  mReached->clashes += clashed ? 1U : 0U;
  mReached->unnumbered += isUnnumbered ? 1U : 0U;
}

void Numbers::save(std::vector<std::string>& log) {
  std::vector<Entry> paired;
  for (const Entry& entry : mTable) {
    if (entry.btid != NOT_PAIRED) {
      paired.push_back(entry);
    }
  }
  if (paired.size() > RECORD_COUNT) {
    log.push_back("lBtSuffixTable size over. size=" + std::to_string(paired.size()));
    ++mReached->tooMany;
    return;
  }
  std::string image(IMAGE_SIZE, '\0');
  for (std::size_t i = 0; i < paired.size(); ++i) {
    const std::string name = paired[i].name.substr(0, NAME_SIZE - 1);
    image[i * RECORD_SIZE] = 1;
    image[i * RECORD_SIZE + 1] = static_cast<char>(paired[i].btid);
    image.replace(i * RECORD_SIZE + NAME_OFFSET, name.size(), name);
    image[i * RECORD_SIZE + SUFFIX_OFFSET] = static_cast<char>(paired[i].suffix);
  }
  bool isSame = true;
  for (std::size_t i = 0; i < RECORD_COUNT; ++i) {
    isSame = isSame && recordAt(image, i) == recordAt(mImage, i);
  }
  if (isSame) {
    return;
  }
  mImage = image;
  // What stood behind the ten records stays: the file is written over, not cut.
  mFile = image + (mFile && mFile->size() > IMAGE_SIZE ? mFile->substr(IMAGE_SIZE) : "");
  ++mWrites;
  ++mReached->savings;
}

void Numbers::number(Devices& list, std::vector<std::string>& log) {
  if (!mStarted) {
    log.emplace_back("not started.");
    return;
  }
  const std::vector<Entry> old = std::exchange(mTable, {});
  std::vector<std::string> names;
  for (const IntegratedDevice& device : list) {
    mTable.push_back({device.name, device.btid, device.port, 0});
    names.push_back(device.name);
  }
  carryOver(old);
  const auto hasNumber = [](const Entry& entry) { return entry.suffix != 0; };
  mReached->carried += std::any_of(mTable.begin(), mTable.end(), hasNumber) ? 1U : 0U;
  mReached->equalNames += hasTwoEqual(names) ? 1U : 0U;
  assign();
  for (std::size_t i = 0; i < list.size(); ++i) {
    list[i].suffix = mTable[i].suffix;
    list[i].name = displayed(mTable[i].name, mTable[i].suffix);
  }
  save(log);
}

// --- The whole list ---------------------------------------------------------------------------------------------

void NaiveModel::restart(const Restart& restart) {
  mNumbers.restart(fileAfter(restart, mNumbers.file()));
  for (Devices* list : {&mBtPaired, &mCpPaired, &mCpUsb, &mAapPaired, &mAapUsb, &mUsbPart, &mPairedPart}) {
    list->clear();
  }
  mHasMerged = false;
  mStarted = false;
  mInitialised = restart.isInitialised;
  mAwaitsBluetooth = restart.awaitsBluetooth;
  setFormat(restart.format);
}

void NaiveModel::refresh(int type) {
  mHasMerged = false;
  if (!mInitialised) {
    mLog.emplace_back("not initialized.");
    return;
  }
  switch (type) {
    case DEVICE_TYPE_BT:
      readBluetooth();
      mAwaitsBluetooth = false;
      break;
    case DEVICE_TYPE_CARPLAY:
      readCarPlay();
      break;
    case DEVICE_TYPE_AAP:
      readAndroid();
      break;
    default:
      return;
  }
  if (!mStarted && !mAwaitsBluetooth) {
    mNumbers.start(mLog);
    mStarted = true;
  }
  if (mStarted) {
    merge();
    mHasMerged = true;
  }
}

bool NaiveModel::ask() {
  if (!mInitialised) {
    mLog.emplace_back("not initialized.");
  }
  return mStarted;
}

void NaiveModel::file(const IntegratedDevice& device, Devices& paired, Devices& usb) {
  if (device.btid != NOT_PAIRED) {
    paired.push_back(device);
  } else if (device.port > 0) {
    usb.push_back(device);
  }
}

void NaiveModel::readBluetooth() {
  mBtPaired.clear();
  for (const std::optional<BtPhone>& phone : mBt) {
    if (!phone || phone->id == NOT_PAIRED) {
      continue;
    }
    IntegratedDevice device;
    device.btDevice.id = phone->id;
    fill(device.btDevice.name, phone->name);
    fill(device.btDevice.address, phone->address);
    device.btDevice.info = phone->info;
    device.btDevice.flag1 = phone->flag1;
    device.btDevice.flag2 = phone->flag2;
    device.type = DEVICE_TYPE_BT;
    device.name = device.btDevice.name;
    device.btid = phone->id;
    mBtPaired.push_back(device);
  }
}

void NaiveModel::readCarPlay() {
  mCpPaired.clear();
  mCpUsb.clear();
  for (const std::optional<CpPhone>& phone : mCp) {
    if (!phone || phone->valid == 0 || phone->identifier == 0) {
      continue;
    }
    IntegratedDevice device;
    device.cpDevice.identifier = phone->identifier;
    fill(device.cpDevice.name, phone->name);
    device.cpDevice.btid = phone->btid;
    device.cpDevice.inSession = phone->inSession;
    device.cpDevice.session = phone->session;
    device.cpDevice.valid = phone->valid;
    std::memset(device.cpDevice.reserved1, phone->reserved, sizeof device.cpDevice.reserved1);
    std::memset(device.cpDevice.reserved2, phone->reserved, sizeof device.cpDevice.reserved2);
    device.type = DEVICE_TYPE_CARPLAY;
    device.name = device.cpDevice.name;
    device.btid = phone->btid == 0 ? NOT_PAIRED : phone->btid;
    const bool isAttached = ((mCurrentPhone >> 32) & (1U << 9)) != 0;
    device.port = phone->identifier == mCurrentPhone || isAttached ? 1 : 0;
    device.session = phone->inSession != 0 ? 1 : phone->session;
    device.cpDeviceId = phone->identifier;
    file(device, mCpPaired, mCpUsb);
  }
}

void NaiveModel::readAndroid() {
  mAapPaired.clear();
  mAapUsb.clear();
  for (const std::optional<AapPhone>& phone : mAap) {
    if (!phone || phone->id.empty()) {
      continue;
    }
    IntegratedDevice device;
    device.aapDevice.session = phone->session;
    fill(device.aapDevice.name, phone->name);
    fill(device.aapDevice.id, phone->id);
    device.aapDevice.btid = phone->btid;
    device.aapDevice.port = phone->port;
    device.type = DEVICE_TYPE_AAP;
    device.name = device.aapDevice.name;
    device.btid = phone->btid;
    device.port = phone->port;
    device.session = phone->session;
    device.aapId = device.aapDevice.id;
    file(device, mAapPaired, mAapUsb);
  }
}

void NaiveModel::fold(const Devices& source, Devices& unmatched) {
  for (const IntegratedDevice& device : source) {
    bool isFound = false;
    for (std::size_t i = 0; i < mPairedPart.size() && !isFound; ++i) {
      IntegratedDevice& target = mPairedPart[i];
      if (target.btid == device.btid) {
        isFound = true;
        target.type = device.type;
        target.name = device.name;
        target.port = device.port;
        target.session = device.session;
        target.cpDeviceId = device.cpDeviceId;
        target.aapId = device.aapId;
        if (device.type == DEVICE_TYPE_CARPLAY) {
          target.cpDevice = device.cpDevice;
        } else {
          target.aapDevice = device.aapDevice;
        }
      }
    }
    if (!isFound) {
      unmatched.push_back(device);
    }
  }
}

void NaiveModel::merge() {
  mPairedPart = mBtPaired;
  Devices unmatched;
  fold(mCpPaired, unmatched);
  fold(mAapPaired, unmatched);
  mReached->folded += mCpPaired.size() + mAapPaired.size() > unmatched.size() ? 1U : 0U;
  mUsbPart = mCpUsb;
  mUsbPart.insert(mUsbPart.end(), mAapUsb.begin(), mAapUsb.end());
  const std::size_t known = mUsbPart.size();
  for (IntegratedDevice& device : unmatched) {
    if (device.port != 0) {
      device.btid = NOT_PAIRED;
      mUsbPart.push_back(device);
    }
  }
  mReached->unknownPairing += mUsbPart.size() > known ? 1U : 0U;
  ++mReached->refreshes;
}

Devices NaiveModel::number(const Devices& seen) {
  Devices list = inOrderOf(seen, 0, mUsbPart);
  const Devices paired = inOrderOf(seen, list.size(), mPairedPart);
  // Where the order seen is not by key, it is put right, which shows as a difference.
  std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.port < b.port; });
  Devices sorted = paired;
  std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.btid < b.btid; });
  bool areKeysEqual = false;
  bool areIdsEqual = false;
  bool isCut = false;
  for (std::size_t i = 1; i < list.size(); ++i) {
    areKeysEqual = areKeysEqual || list[i].port == list[i - 1].port;
  }
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    areIdsEqual = areIdsEqual || sorted[i].btid == sorted[i - 1].btid;
  }
  list.insert(list.end(), sorted.begin(), sorted.end());
  for (const IntegratedDevice& device : list) {
    isCut = isCut || (device.type == DEVICE_TYPE_BT ? device.name.size() == 80 : device.name.size() >= 255);
  }
  mReached->equalKeys += areKeysEqual || areIdsEqual ? 1U : 0U;
  mReached->equalBluetoothIds += areIdsEqual ? 1U : 0U;
  mReached->cutNames += isCut ? 1U : 0U;
  mNumbers.number(list, mLog);
  return list;
}

std::vector<std::string> NaiveModel::takeLog() { return std::exchange(mLog, {}); }

}  // namespace model
