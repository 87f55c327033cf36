// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_SAVEDFILE_H
#define TOOLS_RECORDING_SAVEDFILE_H

#include <string>

#include "tools/inspect/SavedTableCopy.h"

namespace idl::tools::recording {

/// Puts the saved table into `folder`, which has none; nothing where there was none to be read.
/// @throw std::runtime_error when it cannot be written
void writeSaved(const std::string& folder, const SavedTableCopy& saved);

}  // namespace idl::tools::recording

#endif
