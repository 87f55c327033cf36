// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SIMULATOR_LOCKOFTHEDEAD_H
#define TESTS_SIMULATOR_LOCKOFTHEDEAD_H

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <string>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"

/// How many lines tell that a lock was got from a holder who had died.
inline std::size_t locksOfTheDead(const LogCapture& log) {
  return log.count("died, what it guards may be half written");
}

/// Whether `action` takes the lock `name`: a holder dies before, and who comes next is told.
inline bool takesTheLock(const std::string& name, const std::function<void()>& action) {
  const int end = ChildProcess([&name] {
                    const LmSharedSyncObject lock(name.c_str());
                    lock.lock();
                    kill(getpid(), SIGKILL);
                    return 1;
                  }).wait();
  EXPECT_EQ(end, -SIGKILL);
  const LogCapture log;
  action();
  return locksOfTheDead(log) == 1;
}

#endif
