// SPDX-License-Identifier: Apache-2.0
#include "SysDataWrapper.h"

#include <algorithm>
#include <cstring>

#include "FixedText.h"
#include "IntegratedDeviceList/idl.h"
#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SaveFileAccess.h"
#include "SysDataFactory.h"
#include "SysDataIDLSuffix.h"

using LmSIntegratedDeviceListDef::DeviceInfo;

namespace {

constexpr std::uint8_t IN_USE = 1;

// The last byte of a stored name stays zero, so that it always ends.
std::size_t storedSize(const std::string& name) { return std::min(name.size(), sizeof(SuffixRecord::name) - 1); }

SuffixRecord toRecord(const DeviceInfo& entry) {
  SuffixRecord record = {};
  record.inUse = IN_USE;
  record.btid = entry.btid;
  std::memcpy(record.name, entry.name.data(), storedSize(entry.name));
  record.suffix = entry.suffix;
  return record;
}

DeviceInfo toEntry(const SuffixRecord& record) {
  DeviceInfo entry;
  entry.name = fixedText(record.name);
  entry.btid = record.btid;
  entry.suffix = record.suffix;
  return entry;
}

// Whether toRecord(entry) would be equal to `record`: names up to their first NUL.
bool holds(const SuffixRecord& record, const DeviceInfo& entry) {
  return record.inUse == IN_USE && record.btid == entry.btid && record.suffix == entry.suffix &&
         fixedText(record.name) ==
             std::string_view(entry.name.data(), strnlen(entry.name.data(), storedSize(entry.name)));
}

bool isEmpty(const SuffixRecord& record) {
  return record.inUse == 0 && record.btid == 0 && record.name[0] == '\0' && record.suffix == 0;
}

SuffixFileImage imageOf(const std::vector<DeviceInfo>& table) {
  SuffixFileImage image = {};
  auto record = image.begin();
  for (const DeviceInfo& entry : table) {
    if (idl::isBtPaired(entry)) {
      *record = toRecord(entry);
      ++record;
    }
  }
  return image;
}

// Runs `transfer` on the opened suffix file. The access object stays in its factory, back at the file's start.
template <class Transfer>
void accessFile(Transfer transfer) {
  LmSyncGuard guard(SysDataIDLSuffix::getInstance()->getMutex());
  SysDataFactory* factory = SysDataFactory::getInstance();
  SaveFileAccess* access = factory->getIDLSuffixAccess();
  if (access == nullptr) {
    return;  // a file service that has nothing to give: as though the file were missing
  }
  // The results are the file service's to report: there is nothing to do about them here.
  access->FOpen();
  try {
    transfer(*access);
  } catch (...) {
    access->FClose();
    throw;
  }
  access->FClose();
}

}  // namespace

SysDataWrapper::SysDataWrapper() : image{} {}

SysDataWrapper::~SysDataWrapper() = default;

void SysDataWrapper::save(const std::vector<DeviceInfo>& table) {
  std::size_t count = 0;
  bool isStored = true;
  for (const DeviceInfo& entry : table) {
    if (!idl::isBtPaired(entry)) {
      continue;
    }
    isStored = isStored && count < image.size() && holds(image[count], entry);
    ++count;
  }
  if (count > image.size()) {
    LmDbgOutput::DbgPrint("src/Public/IntegratedDeviceList/private/SysDataWrapper", "save", 69, 1,
                          "lBtSuffixTable size over. size=%d\n", static_cast<int>(count));
    return;
  }
  if (isStored && std::all_of(image.begin() + static_cast<std::ptrdiff_t>(count), image.end(), isEmpty)) {
    return;
  }
  const SuffixFileImage last = image;
  image = imageOf(table);  // before the file, so that a failed write is not tried again until the table changes
  try {
    accessFile([this](SaveFileAccess& access) {
      access.Write(image.data(), sizeof(image));
      access.Seek(0, 0);
      access.Flush();
    });
  } catch (...) {
    image = last;
    throw;
  }
}

void SysDataWrapper::load(std::vector<DeviceInfo>& table) {
  accessFile([this](SaveFileAccess& access) {
    access.Read(image.data(), sizeof(image));
    access.Seek(0, 0);
  });
  takeEntries(image, table);
}

void SysDataWrapper::takeEntries(const SuffixFileImage& image, std::vector<DeviceInfo>& table) {
  table.clear();
  for (const SuffixRecord& record : image) {
    if (record.inUse == 0) {
      break;
    }
    table.push_back(toEntry(record));
  }
}
