// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMOBSERVERBASE_H
#define LMFRAMEWORK_LMOBSERVERBASE_H

#include "LmFramework/LmFrameworkExport.h"

/// Whoever is told of a change. LmObserver<T> binds it to a member function.
class LM_FRAMEWORK_API LmObserver_ {
 public:
  virtual ~LmObserver_();

  /// @param id    what changed
  /// @param data  valid during the call only; null when `size` is 0. Aligned for any scalar type.
  /// @param size  of the data, in bytes
  /// @return      for the notifying side; its meaning is theirs.
  virtual unsigned Update(unsigned id, void* data, unsigned size) = 0;
};

#endif
