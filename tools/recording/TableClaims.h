// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_TABLECLAIMS_H
#define TOOLS_RECORDING_TABLECLAIMS_H

#include <filesystem>
#include <string>

#include "simulator/TableClaim.h"
#include "tools/inspect/Source.h"

namespace idl::tools::recording {

/// All tables and "FuncInfo" are this process's as long as this lives. The constructor throws as bench::TableClaim's
/// does, and then has none of them.
class TableClaims {
 private:
  const bench::TableClaim mBt{BT_SOURCE.segment};
  const bench::TableClaim mCp{CP_SOURCE.segment};
  const bench::TableClaim mAap{AAP_SOURCE.segment};
  const bench::TableClaim mFuncInfo{FUNC_INFO_SOURCE.segment};
};

/// Whether a stand-in has, or once had, that table: claims stay, as tables do.
inline bool wasEverClaimed(const Source& source) {
  std::error_code none;  // who may not look has no claim to see
  return std::filesystem::exists(std::string("/dev/shm/LmBench.") + source.segment, none);
}

}  // namespace idl::tools::recording

#endif
