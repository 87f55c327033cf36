// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_FINDINGOUTPUT_H
#define TOOLS_IDLCTL_FINDINGOUTPUT_H

#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

#include "tools/inspect/Findings.h"

namespace idl::tools {

/// One paragraph for each finding.
void print(const std::vector<Finding>& findings, std::ostream& out, bool colour);

nlohmann::json jsonOf(const std::vector<Finding>& findings);

bool haveDamage(const std::vector<Finding>& findings);

}  // namespace idl::tools

#endif
