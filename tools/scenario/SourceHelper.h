// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_SOURCEHELPER_H
#define TOOLS_SCENARIO_SOURCEHELPER_H

#include <cstddef>
#include <cstdint>

#include "tools/scenario/Helper.h"
#include "tools/scenario/Phone.h"
#include "tools/scenario/Record.h"

namespace idl::tools::scenario {

/// What a stand-in is asked: the request's first number. What follows it is in brackets.
enum class SourceRequest : std::uint64_t {
  INITIALISE,
  PUT,          // slot, phone
  CLEAR,        // slot
  REPLACE_ALL,  // count, and as many slots and phones
  CURRENT,      // identifier; CarPlay's only
  CRASH,        // CrashMoment, slot, phone; there is no answer
  GARBAGE,      // seed
};

void addPhone(Record& record, const Phone& phone);

/// The stand-in for a service: it claims the source's table, attaches it as it is, and serves until the bench closes
/// its end. Answers hold nothing.
/// @throw std::runtime_error when it cannot begin.
void runSource(Source source, const BenchEnd& end);

/// The one that says whether the unit has Bluetooth: a request is one number, 0 or 1.
void runFuncInfo(const BenchEnd& end);

/// The name of the source's segment, and its whole size.
const char* segmentOf(Source source);
std::size_t segmentSize(Source source);

}  // namespace idl::tools::scenario

#endif
