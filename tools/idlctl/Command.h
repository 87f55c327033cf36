// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_COMMAND_H
#define TOOLS_IDLCTL_COMMAND_H

#include <functional>
#include <ostream>

namespace idl::tools {

class Arguments;

/// What idlctl ends with.
enum ExitCode : int {
  EXIT_YES = 0,
  EXIT_NO = 1,           // the answer is no: something was found, an expectation failed
  EXIT_USAGE = 2,        // wrong arguments, or a scenario that cannot be read
  EXIT_CANNOT_OPEN = 3,  // something is not there, or not to be read
  EXIT_DAMAGED = 4,      // what was read is not what the format allows
  EXIT_TIMED_OUT = 124,
};

/// Where a command writes: data to `out`, messages to `err`.
struct Streams {
  std::ostream& out;
  std::ostream& err;
  bool colour = false;
};

/// What a command does once its arguments are known.
using Action = std::function<int(const Streams&)>;

/// A sub-command: `add` declares its arguments and what is done when it is chosen.
struct Command {
  const char* name;
  const char* summary;
  void (*add)(Arguments& arguments);
};

void addList(Arguments& arguments);
void addWatch(Arguments& arguments);
void addWait(Arguments& arguments);
void addDump(Arguments& arguments);
void addPublish(Arguments& arguments);
void addRun(Arguments& arguments);
void addRecord(Arguments& arguments);
void addReplay(Arguments& arguments);
void addComply(Arguments& arguments);
void addSuffixes(Arguments& arguments);
void addDoctor(Arguments& arguments);
void addExec(Arguments& arguments);
void addCompletion(Arguments& arguments);

}  // namespace idl::tools

#endif
