// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_TABLECLAIMS_H
#define TOOLS_RECORDING_TABLECLAIMS_H

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

}  // namespace idl::tools::recording

#endif
