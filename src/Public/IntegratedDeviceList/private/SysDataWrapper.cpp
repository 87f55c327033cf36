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

SuffixRecord toRecord(const DeviceInfo& entry) {
  SuffixRecord record = {};
  record.inUse = IN_USE;
  record.btid = entry.btid;
  // The last byte stays zero, so that the stored name always ends.
  std::memcpy(record.name, entry.name.data(), std::min(entry.name.size(), sizeof(record.name) - 1));
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

bool isEqual(const SuffixRecord& a, const SuffixRecord& b) {
  return a.inUse == b.inUse && a.btid == b.btid && fixedText(a.name) == fixedText(b.name) && a.suffix == b.suffix;
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
  SuffixFileImage next = {};
  std::size_t count = 0;
  for (const DeviceInfo& entry : table) {
    if (!idl::isBtPaired(entry)) {
      continue;
    }
    if (count < next.size()) {
      next[count] = toRecord(entry);
    }
    ++count;
  }
  if (count > next.size()) {
    LmDbgOutput::DbgPrint("src/Public/IntegratedDeviceList/private/SysDataWrapper", "save", 69, 1,
                          "lBtSuffixTable size over. size=%d\n", static_cast<int>(count));
    return;
  }
  if (std::equal(next.begin(), next.end(), image.begin(), isEqual)) {
    return;
  }
  const SuffixFileImage last = image;
  image = next;  // before the file, so that a failed write is not tried again until the table changes
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
