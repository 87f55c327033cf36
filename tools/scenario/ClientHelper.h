// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_CLIENTHELPER_H
#define TOOLS_SCENARIO_CLIENTHELPER_H

#include <cstdint>
#include <string>

#include "tools/scenario/Bench.h"
#include "tools/scenario/Expectation.h"
#include "tools/scenario/Helper.h"
#include "tools/scenario/Record.h"

namespace idl::tools::scenario {

/// What the client is asked: the request's first number. What follows it is in brackets.
enum class ClientRequest : std::uint64_t {
  LIST,     // the answer is for takeList()
  REFRESH,  // source
  SETTLE,   // source, count: waits until that source has told of so many changes since the start, and was refreshed
};

/// A client with the library's own list, which keeps its numbers in `saveFolder`. It listens, refreshes all three
/// sources unless it is told not to, answers once without being asked, and serves until the bench closes its end.
/// @throw std::runtime_error when it cannot begin.
void runClient(const ClientOptions& options, const std::string& saveFolder, const BenchEnd& end);

MaybeList takeList(Record& answer);

}  // namespace idl::tools::scenario

#endif
