// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/SavedTableCopy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "LmFramework/posix/SaveFileFolder.h"
#include "SuffixProvider.h"
#include "SysDataWrapper.h"
#include "tools/inspect/Descriptor.h"

namespace idl::tools {

// A person who looks at a unit means the unit's numbers, be they root's.
std::string savedTableFolder(const std::string& chosen) {
  if (!chosen.empty()) {
    return chosen;
  }
  const std::string systems = saveFileFolderOf(0);  // or what the environment says
  struct stat status = {};
  return ::stat(systems.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? systems : saveFileFolderOf(geteuid());
}

SavedTableCopy copySavedTable(const std::string& folder) {
  SavedTableCopy copy;
  copy.path = folder + '/' + SAVED_TABLE_FILE;
  const Descriptor file(::open(copy.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.isOpen() || fstat(file.get(), &status) != 0) {
    copy.error = errno;
    const bool isAbsent = copy.error == ENOENT || copy.error == ENOTDIR;
    copy.state = isAbsent ? SavedTableCopy::State::ABSENT : SavedTableCopy::State::UNREADABLE;
    return copy;
  }
  copy.size = static_cast<std::uint64_t>(status.st_size);
  copy.mode = status.st_mode & 07777;
  copy.owner = status.st_uid;
  copy.group = status.st_gid;
  if (!S_ISREG(status.st_mode)) {
    copy.state = SavedTableCopy::State::NOT_A_FILE;
    return copy;
  }
  copy.bytes.resize(sizeof(SuffixFileImage) + 1);
  copy.bytes.resize(readAt(file.get(), 0, copy.bytes.data(), copy.bytes.size()));
  copy.error = errno;
  copy.state = copy.error == 0 ? SavedTableCopy::State::READ : SavedTableCopy::State::UNREADABLE;
  return copy;
}

std::vector<LmSIntegratedDeviceListDef::DeviceInfo> savedEntries(const SavedTableCopy& copy) {
  SuffixFileImage image = {};
  std::memcpy(image.data(), copy.bytes.data(), std::min(sizeof(image), copy.bytes.size()));
  std::vector<LmSIntegratedDeviceListDef::DeviceInfo> entries;
  SysDataWrapper::takeEntries(image, entries);
  return entries;
}

bool wouldBeForgotten(const std::vector<LmSIntegratedDeviceListDef::DeviceInfo>& entries) {
  return !SuffixProvider(std::vector<LmSIntegratedDeviceListDef::DeviceInfo>()).checkSuffixTable(entries);
}

}  // namespace idl::tools
