// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_COMMANDLINE_H
#define TOOLS_IDLCTL_COMMANDLINE_H

// What a command's own file takes to add its arguments. No other header includes CLI11, which takes seconds to compile.
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/idlctl/Command.h"

namespace idl::tools {

/// Has `run(options, streams)` done when `app` is chosen.
template <class Options>
void onChosen(CLI::App& app, Action& action, const std::shared_ptr<Options>& options,
              int (*run)(const Options&, const Streams&)) {
  app.callback(
      [&action, options, run] { action = [options, run](const Streams& streams) { return run(*options, streams); }; });
}

}  // namespace idl::tools

#endif
