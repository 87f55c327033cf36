// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSINGLETON_H
#define LMFRAMEWORK_LMSINGLETON_H

#include <atomic>
#include <memory>

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmSingletonFinalizer.h"
#include "LmFramework/LmSync.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/LmUncopyable.h"

/// Base of a class that has one instance in a process, made at its first use and destroyed at exit.
///
///     class Clock : public LmSingleton<Clock> {
///       friend class LmSingleton<Clock>;
///       Clock();                    // only the template makes one
///      public:
///       virtual ~Clock();
///     };
///     Clock::getInstance()->...
///
/// One instance also where the executable and several shared libraries use it: a class that is part
/// of a library's interface says LM_SINGLETON_DECLARE in its header and LM_SINGLETON_DEFINE in one
/// source of the library that owns it; accessor, instance and class mutex then exist there alone,
/// however the library was loaded. A class without these is unique only as far as the compiler's
/// and the linker's template instances are (GCC marks them unique in the process, clang does not).
///
/// Class mutexes are constructed when the library that owns them is loaded, those of one source in
/// the order of their definitions.
template <class T>
class LM_FRAMEWORK_API LmSingleton : private LmUncopyable {
 public:
  /// The instance; made now if there is none. Any thread may call this, several at once: all get
  /// the same. The pointer stays valid until destroy().
  /// @throw whatever T's constructor throws; there is no instance then, and the next call tries again.
  [[gnu::noinline]] static T* getInstance() {
    T* instance = sInstance.load(std::memory_order_acquire);
    if (instance != nullptr) {
      return instance;
    }
    LmSyncGuard guard(sClassMutex);
    instance = sInstance.load(std::memory_order_relaxed);
    if (instance == nullptr) {
      std::unique_ptr<T> created(new T());
      LmSingletonFinalizer::addDestroyFunc(&LmSingleton<T>::destroy);
      instance = created.release();
      sInstance.store(instance, std::memory_order_release);
    }
    return instance;
  }

  /// Deletes the instance, if there is one; the next getInstance() makes a new one, also when T's
  /// destructor calls it. Nobody may use
  /// the instance any more: no lock is taken.
  [[gnu::noinline]] static void destroy() { delete sInstance.exchange(nullptr, std::memory_order_acq_rel); }

 protected:
  LmSingleton() = default;
  virtual ~LmSingleton() = default;

  static std::atomic<T*> sInstance;
  static LmSync sClassMutex;
};

template <class T>
std::atomic<T*> LmSingleton<T>::sInstance{nullptr};

template <class T>
LmSync LmSingleton<T>::sClassMutex;

/// In the header of a singleton that a shared library owns, behind the class, at global scope.
#define LM_SINGLETON_DECLARE(T)              \
  template <>                                \
  std::atomic<T*> LmSingleton<T>::sInstance; \
  template <>                                \
  LmSync LmSingleton<T>::sClassMutex;        \
  extern template class LmSingleton<T>

/// In exactly one source of the library that owns the singleton.
#define LM_SINGLETON_DEFINE(T)                        \
  template <>                                         \
  std::atomic<T*> LmSingleton<T>::sInstance{nullptr}; \
  template <>                                         \
  LmSync LmSingleton<T>::sClassMutex{};               \
  template class LmSingleton<T>

#endif
