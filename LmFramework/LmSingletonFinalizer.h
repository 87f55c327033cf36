// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSINGLETONFINALIZER_H
#define LMFRAMEWORK_LMSINGLETONFINALIZER_H

#include "LmFramework/LmFrameworkExport.h"

/// Destroys the process's singletons when the process exits.
///
/// Functions run in the reverse order of their registration, on the thread that calls exit(), and
/// before any object that was constructed before its function was registered is destroyed; a
/// singleton's class mutex is therefore still alive. Nothing runs at _exit(), abort() or a signal.
class LM_FRAMEWORK_API LmSingletonFinalizer {
 public:
  using DestroyFunc = void (*)();

  LmSingletonFinalizer() = delete;

  /// Registers `destroyFunc` to run once at exit. A function that is already waiting moves to the
  /// front, as though it had been registered only now. Any thread may call this.
  /// @throw std::bad_alloc and nothing is registered.
  static void addDestroyFunc(DestroyFunc destroyFunc);
};

#endif
