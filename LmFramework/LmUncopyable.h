// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMUNCOPYABLE_H
#define LMFRAMEWORK_LMUNCOPYABLE_H

#include "LmFramework/LmFrameworkExport.h"

/// Base of whatever owns something that must not be owned twice.
class LM_FRAMEWORK_API LmUncopyable {
 public:
  LmUncopyable(const LmUncopyable&) = delete;
  LmUncopyable& operator=(const LmUncopyable&) = delete;

 protected:
  LmUncopyable() = default;
  ~LmUncopyable() = default;
};

#endif
