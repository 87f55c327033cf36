// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_DBGOUTPUTFORK_H
#define LMFRAMEWORK_POSIX_DBGOUTPUTFORK_H

// The log's part in fork(): its mutex is held across it, so that the child does not inherit one that another thread was
// just using. The log is the last in the order of locks, so its handler prepares last and is undone first.

void forkPrepareLog();
void forkParentLog();
void forkChildLog();

#endif
