// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_JUNIT_H
#define TOOLS_SCENARIO_JUNIT_H

#include <string>
#include <vector>

#include "tools/scenario/Runner.h"

namespace idl::tools::scenario {

/// The results as a JUnit XML document: a suite for each run; in it a case for each expectation, for each `random`, and
/// for any other command that went wrong. Names are escaped as printable() does, so every byte of it is legal XML.
std::string junitXml(const std::vector<RunResult>& results);

}  // namespace idl::tools::scenario

#endif
