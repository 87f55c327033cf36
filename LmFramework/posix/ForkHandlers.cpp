// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/ForkHandlers.h"

#include <pthread.h>

#include "LmFramework/posix/DbgOutputFork.h"
#include "LmFramework/posix/LockPage.h"
#include "LmFramework/posix/NamedLock.h"
#include "LmFramework/posix/NotifierHub.h"
#include "LmFramework/posix/ObserverList.h"
#include "LmFramework/posix/SharedFile.h"

namespace {

// One registration for all: handlers that each part registered for itself would run in the order in which the parts
// happened to be used first.
void prepare() {
  NotifierHub::prepareFork();
  NamedLock::prepareFork();
  LockPage::prepareFork();
  SharedFile::prepareFork();
  ObserverList::prepareFork();
  forkPrepareLog();
}

void parent() {
  forkParentLog();
  ObserverList::parentAfterFork();
  SharedFile::parentAfterFork();
  LockPage::parentAfterFork();
  NamedLock::parentAfterFork();
  NotifierHub::parentAfterFork();
}

void child() {
  forkChildLog();
  ObserverList::childAfterFork();
  SharedFile::childAfterFork();
  LockPage::childAfterFork();
  NamedLock::childAfterFork();
  NotifierHub::childAfterFork();
}

// Without memory for a registration fork() is as it was; the port works on in this process.
void install() { static_cast<void>(pthread_atfork(&prepare, &parent, &child)); }

}  // namespace

void installForkHandlers() {
  static pthread_once_t once = PTHREAD_ONCE_INIT;  // unlike a static's initialisation, it survives a fork in its midst
  pthread_once(&once, &install);
}
