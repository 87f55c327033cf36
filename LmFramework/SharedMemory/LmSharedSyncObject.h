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
/// Between processes it is a word in the file "LmLock.NAME" in the shared-memory folder (mode 0660, made at the first
/// use, never removed), which up to 127 processes may use at once. While nobody else wants the lock, taking it and
/// giving it back make no system call, but for one fstat in 65 times.
///
/// A holder that dies, however it dies, gives the lock to the next one, with one log line; what it guards may be half
/// written. So does a program that is replaced by another one (exec). Whoever begins to wait looks at once, and then
/// every 50 ms, so the next one has the lock within 100 ms on a machine that lets it run; where others keep it from
/// running, that comes on top. What proves that the holder lives is a lock of the kernel's on its opening
/// of the file, no process id. A holder that is alive but stopped is waited for, however long, and named in the log
/// after a second and then every ten. After fork() the parent still holds what it held, the child does not. A thread
/// that ends while it holds the lock gives it up, with a log line.
///
/// What others do to the file neither crashes nor hangs anybody. Garbage in it is found by whoever locks next, logged
/// and repaired: the hold that it hits may lose its exclusion, the next one does not. Cut short, it is made whole
/// again, by way of a handler for SIGBUS, which passes on what is none of its business; a thread must not block that
/// signal while it locks, and a handler that is installed after the first lock() has to pass on to the one that was
/// there before. Removed, the file is made again, noticed after 64 uses at the latest, or 50 ms of waiting; until then
/// whoever opens the new one is not excluded. Uses are no time: a process that locks once a minute may stay with the
/// removed file for an hour.
///
/// What cannot be found out:
/// - Random bytes pass for a living holder once in 2^24 times, and then only if the process with that number uses the
///   lock. It is waited for until it locks itself, or ends.
/// - Four bytes that were written to mean something, such as zeros or the word of an earlier moment, are believed.
/// - A child that was made past fork(), by a bare system call, keeps its parent's opening of the file. A parent that
///   dies while it holds the lock counts as alive until such a child ends.
///
/// Where the file cannot be opened (permissions, no descriptors left), is of another version, or has all its places
/// taken, there is one log line, and the lock still excludes the threads of this process, but no other process; each
/// outermost lock() tries the file again.
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
