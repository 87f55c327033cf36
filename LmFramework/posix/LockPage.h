// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_LOCKPAGE_H
#define LMFRAMEWORK_POSIX_LOCKPAGE_H

#include <atomic>
#include <cstddef>

#include "LmFramework/LmUncopyable.h"

struct LockFilePage;

/// The mapping of a lock's file. Used by one thread at a time.
///
/// Somebody may cut the file to nothing at any time, and a load or store is a SIGBUS then. With the first mapping the
/// port installs a handler for that signal, which puts a page of zeros in the place of a page of ours that is gone, and
/// has it marked as lost; every other bus error goes to the handler that was there before. So a thread that uses a lock
/// must not block SIGBUS, and a program that installs a handler of its own later has to pass on to the former one what
/// it does not know.
///
/// The former handler runs with its own signals blocked, and interrupted as it wanted to be (SA_NODEFER); what else it
/// asked for does not apply, and it is not taken out after the first time (SA_RESETHAND). A program that installs it
/// again after the first lock() has two handlers that pass on to each other; after some rounds the process is killed by
/// the signal, as it is where nobody handles it.
///
/// fork() unmaps the page in the child.
class LockPage : private LmUncopyable {
 public:
  /// @throw std::bad_alloc
  LockPage();
  ~LockPage();

  /// Maps the file's first page; nothing must be mapped.
  /// @return 0 or an error number
  int map(int descriptor);

  /// Does nothing when nothing is mapped.
  void unmap();

  /// Null while nothing is mapped.
  LockFilePage* get() const { return mEntry->page.load(std::memory_order_relaxed); }

  /// Whether the file was cut off under the mapping: what is there now are zeros of this process alone, and what was
  /// written there has gone nowhere. Asked after an access, it tells about that one.
  bool isLost() const {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    return mEntry->isLost.load(std::memory_order_relaxed);
  }

  // For the fork handlers: nothing is mapped or unmapped between the first call and one of the others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  // What the signal handler finds its pages by. Never deleted: it may be just looking.
  struct Entry {
    std::atomic<LockFilePage*> page{nullptr};
    std::atomic<bool> isLost{false};
    bool isUsed = true;  // guarded by the mutex of all pages
    Entry* next = nullptr;
  };

  static Entry* newEntry();
  static void handleBusErrors();
  friend struct LockPageSignals;

  static std::atomic<Entry*> sEntries;

  Entry* const mEntry;
};

#endif
