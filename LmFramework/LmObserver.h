// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMOBSERVER_H
#define LMFRAMEWORK_LMOBSERVER_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmObserver_.h"

/// An observer that calls a member function of the object that it is bound to, which it borrows.
template <class T>
class LM_FRAMEWORK_API LmObserver : public LmObserver_ {
 public:
  using Function = unsigned (T::*)(unsigned id, void* data, unsigned size);

  LmObserver(T* target, Function function) : mTarget(target), mFunction(function) {}

  unsigned Update(unsigned id, void* data, unsigned size) override { return (mTarget->*mFunction)(id, data, size); }

 private:
  T* mTarget;
  Function mFunction;
};

#endif
