// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_SAVEDTABLECOPY_H
#define TOOLS_INSPECT_SAVEDTABLECOPY_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

namespace idl::tools {

/// The name of the file of saved numbers, in whichever folder.
constexpr char SAVED_TABLE_FILE[] = "IDLSuffix.ini";

/// The file of saved numbers as it is now; read without changing anything.
struct SavedTableCopy {
  enum class State {
    ABSENT,
    UNREADABLE,  // `error` says why
    NOT_A_FILE,
    READ,
  };

  std::string path;
  State state = State::ABSENT;
  int error = 0;
  std::string bytes;  // at most one more than a whole file has
  std::uint64_t size = 0;
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;

  bool isRead() const { return state == State::READ; }
};

/// `chosen`, if it is not empty; else what LM_SAVE_FILE_DIR says, else the system's folder where it exists, else the
/// one in which this user's library would have its saved numbers.
std::string savedTableFolder(const std::string& chosen);

/// Reads the saved table in `folder`.
SavedTableCopy copySavedTable(const std::string& folder);

/// The entries that the library loads from these bytes.
std::vector<LmSIntegratedDeviceListDef::DeviceInfo> savedEntries(const SavedTableCopy& copy);

/// Whether the library would forget all entries, because two of them would be displayed alike.
bool wouldBeForgotten(const std::vector<LmSIntegratedDeviceListDef::DeviceInfo>& entries);

}  // namespace idl::tools

#endif
