// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SHAREDMEMORY_LMSHAREDSYNCOBJECT_H
#define LMFRAMEWORK_SHAREDMEMORY_LMSHAREDSYNCOBJECT_H

#include <memory>

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmUncopyable.h"

class NamedLock;

/// A lock between processes, found by its name. It guards the shared-memory segment of the same name.
///
/// Who holds it is a thread, and for that thread it is re-entrant. Exclusion and re-entrancy go by the
/// name: two objects of one name in one process are one lock.
///
/// Between processes it is an advisory lock on the file "LmLock.NAME" in the shared-memory folder
/// (mode 0664, made at the first use, never removed). The kernel gives it on when its holder dies; the
/// next one takes it with one log line, and what it guards may be half written. A holder that is alive
/// but stopped is waited for. After fork() the parent still holds what it held, the child does not.
/// A thread must give the lock back before it ends.
///
/// What others do to the file neither crashes nor hangs anybody: garbage in it looks like a holder that died, and
/// removed, it loses its exclusion for the hold in progress only.
///
/// Where the file cannot be opened (permissions, no descriptors left) there is one log line, and the lock
/// still excludes the threads of this process, but no other process; each outermost lock() tries
/// the file again.
class LM_FRAMEWORK_API LmSharedSyncObject : private LmUncopyable {
 public:
  /// `name` is the bare name, without a slash, at most 200 bytes; copied. Does not wait.
  /// @throw std::bad_alloc
  explicit LmSharedSyncObject(const char* name);

  /// Gives nothing back: no thread may hold the lock through this object alone.
  virtual ~LmSharedSyncObject();

  /// Waits without a limit until the calling thread holds the lock; counts when it does already.
  /// @return true when other processes are excluded too, false when only this one's threads are. It has to
  ///         be given back in both cases.
  virtual bool lock() const;

  /// Gives back one lock(). @return false, and nothing happens, when the calling thread does not hold it.
  virtual bool unlock() const;

 private:
  const std::shared_ptr<NamedLock> mLock;
};

#endif
