// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_LOCKVIEW_H
#define TOOLS_INSPECT_LOCKVIEW_H

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace idl::tools {

/// What a named lock's file says, read without changing anything.
struct LockView {
  enum class State {
    ABSENT,
    UNREADABLE,  // `error` says why
    NOT_A_LOCK,  // no regular file
    NEW,         // made, and not used yet
    FREE,
    HELD,           // by a living process
    HELD_BY_DEAD,   // the next who locks it takes it over
    GARBAGE,        // the next who locks it repairs it
    OTHER_VERSION,  // of the format: this library leaves it alone
  };

  State state = State::ABSENT;
  int error = 0;
  std::uint32_t holder = 0;  // the process, in its own container, as it called itself; 0: not known
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
};

/// Looks at the lock of that bare name.
LockView viewLock(const std::string& name);

/// The name of the lock's object in the shared-memory folder.
std::string lockObjectOf(const std::string& name);

}  // namespace idl::tools

#endif
