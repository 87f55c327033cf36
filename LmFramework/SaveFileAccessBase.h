// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SAVEFILEACCESSBASE_H
#define LMFRAMEWORK_SAVEFILEACCESSBASE_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

/// Opening and closing, common to all kinds of access to a save file.
class LM_FRAMEWORK_API SaveFileAccessBase : private LmUncopyable {
 public:
  virtual ~SaveFileAccessBase();

  /// Begins an access at offset 0.
  /// @return false when it failed.
  virtual bool FOpen() = 0;

  /// Ends it. @return false when it was not open.
  virtual bool FClose() = 0;
};

#endif
