// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/SavedFile.h"

#include <fstream>
#include <stdexcept>

namespace idl::tools::recording {

void writeSaved(const std::string& folder, const SavedTableCopy& saved) {
  if (!saved.isRead()) {
    return;
  }
  std::ofstream file(folder + '/' + SAVED_TABLE_FILE, std::ios::binary | std::ios::trunc);
  file.write(saved.bytes.data(), static_cast<std::streamsize>(saved.bytes.size()));
  file.close();
  if (!file) {
    throw std::runtime_error(folder + ": the saved table could not be written");
  }
}

}  // namespace idl::tools::recording
