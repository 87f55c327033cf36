// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_TOOLS_SCENARIO_PAGE_H
#define TESTS_TOOLS_SCENARIO_PAGE_H

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// docs/scenarios.md, as it is; empty where it cannot be read.
inline std::string page() {
  std::ifstream file(SCENARIO_PAGE, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The scenarios that the page has as examples.
inline std::vector<std::string> scenariosOf(const std::string& text) {
  static const std::string BEGIN = "```scenario\n";
  std::vector<std::string> found;
  for (std::size_t at = text.find(BEGIN); at != std::string::npos; at = text.find(BEGIN, at)) {
    at += BEGIN.size();
    found.push_back(text.substr(at, text.find("```", at) - at));
  }
  return found;
}

#endif
