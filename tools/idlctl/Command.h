// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_COMMAND_H
#define TOOLS_IDLCTL_COMMAND_H

#include <functional>
#include <ostream>

namespace CLI {
class App;
}

namespace idl::tools {

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

/// A sub-command: `add` puts it into `app`; if it is chosen, it puts what is to be done into `action`.
struct Command {
  const char* name;
  const char* summary;
  void (*add)(CLI::App& app, Action& action);
};

void addList(CLI::App& app, Action& action);
void addWatch(CLI::App& app, Action& action);
void addWait(CLI::App& app, Action& action);
void addDump(CLI::App& app, Action& action);
void addPublish(CLI::App& app, Action& action);
void addRun(CLI::App& app, Action& action);
void addRecord(CLI::App& app, Action& action);
void addReplay(CLI::App& app, Action& action);
void addComply(CLI::App& app, Action& action);
void addSuffixes(CLI::App& app, Action& action);
void addDoctor(CLI::App& app, Action& action);
void addExec(CLI::App& app, Action& action);
void addCompletion(CLI::App& app, Action& action);

}  // namespace idl::tools

#endif
