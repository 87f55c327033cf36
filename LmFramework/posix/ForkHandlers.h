// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_FORKHANDLERS_H
#define LMFRAMEWORK_POSIX_FORKHANDLERS_H

/// Sees to it that fork() leaves the child a port that works: everything of the port that must not be forked in the
/// middle of a change is held still in the order of locks (notifier, named locks, their pages, shared
/// files, observers, log).
/// Whoever has such state calls this before it makes any. Any thread, any number of times.
void installForkHandlers();

#endif
