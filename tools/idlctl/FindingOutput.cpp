// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/FindingOutput.h"

#include <algorithm>

#include "tools/text/JsonText.h"

namespace idl::tools {

void print(const std::vector<Finding>& findings, std::ostream& out, bool colour) {
  for (const Finding& finding : findings) {
    const char* begin = !colour ? "" : finding.isDamage ? "\x1b[31m" : "\x1b[33m";
    const char* end = colour ? "\x1b[0m" : "";
    out << begin << (finding.isDamage ? "damaged" : "suspicious") << end << " (" << finding.about << ", " << finding.id
        << "): " << finding.what << "\n    " << finding.advice << '\n';
  }
}

nlohmann::json jsonOf(const std::vector<Finding>& findings) {
  nlohmann::json array = nlohmann::json::array();
  for (const Finding& finding : findings) {
    nlohmann::json object;
    object["about"] = finding.about;
    object["id"] = finding.id;
    setText(object, "what", finding.what);
    setText(object, "advice", finding.advice);
    object["damage"] = finding.isDamage;
    array.push_back(object);
  }
  return array;
}

bool haveDamage(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.isDamage; });
}

}  // namespace idl::tools
