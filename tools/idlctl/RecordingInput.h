// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_RECORDINGINPUT_H
#define TOOLS_IDLCTL_RECORDINGINPUT_H

#include <functional>
#include <string>

#include "tools/idlctl/Command.h"
#include "tools/recording/RecordingReader.h"

namespace idl::tools {

/// Opens a recording, `-` being standard input, and has `use` read it. Says what is wrong with it, and where it ends
/// too early if `use` has read it to its end.
/// @return what `use` returns, or the exit code for a recording that cannot be opened or read
int readRecording(const std::string& file, const Streams& streams,
                  const std::function<int(recording::RecordingReader&)>& use);

}  // namespace idl::tools

#endif
