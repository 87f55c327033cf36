// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/JUnit.h"

#include <algorithm>
#include <iterator>
#include <sstream>

#include "tools/text/Escape.h"

namespace idl::tools::scenario {

namespace {

std::string xmlEscaped(const std::string& text) {
  std::string escaped;
  for (const char character : text) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

std::string attribute(const std::string& text) { return xmlEscaped(printable(text)); }

/// Line by line: a colour would leave a control character behind, a line's end is none to escape.
std::string body(const std::string& text) {
  std::string lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) {
    lines += xmlEscaped(printable(line)) + '\n';
  }
  return lines;
}

std::string seconds(std::chrono::milliseconds duration) {
  const auto total = duration.count();
  return std::to_string(total / 1000) + '.' + std::to_string(1000 + total % 1000).substr(1);
}

bool isCase(const Step& step) {
  const bool wentWrong = step.outcome != Outcome::DONE && step.outcome != Outcome::SKIPPED;
  return wentWrong || isExpectation(step.kind) || step.kind == CommandKind::RANDOM;
}

std::string caseText(const std::string& file, const Step& step) {
  std::string text =
      "    <testcase classname=\"" + attribute(file) + "\" name=\"" +
      attribute(std::to_string(step.position.line) + ':' + std::to_string(step.position.column) + ' ' + step.text) +
      "\" time=\"" + seconds(step.took) + '"';
  if (step.outcome == Outcome::DONE) {
    return text + "/>\n";
  }
  if (step.outcome == Outcome::SKIPPED) {
    return text + "><skipped/></testcase>\n";
  }
  const char* const element = step.outcome == Outcome::FAILED ? "failure" : "error";
  return text + ">\n      <" + element + " message=\"" + attribute(step.why) + "\">" + body(step.details) + "</" +
         element + ">\n    </testcase>\n";
}

}  // namespace

std::string junitXml(const std::vector<RunResult>& results) {
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n";
  for (const RunResult& result : results) {
    std::vector<Step> cases;
    std::copy_if(result.steps.begin(), result.steps.end(), std::back_inserter(cases), isCase);
    const auto count = [&](auto predicate) {
      return '"' + std::to_string(std::count_if(cases.begin(), cases.end(), predicate)) + '"';
    };
    std::chrono::milliseconds took(0);
    for (const Step& step : result.steps) {
      took += step.took;
    }
    text +=
        "  <testsuite name=\"" + attribute(result.file) + "\" tests=\"" + std::to_string(cases.size()) +
        "\" failures=" + count([](const Step& step) { return step.outcome == Outcome::FAILED; }) + " errors=" +
        count([](const Step& step) { return step.outcome == Outcome::MISTAKE || step.outcome == Outcome::TROUBLE; }) +
        " skipped=" + count([](const Step& step) { return step.outcome == Outcome::SKIPPED; }) + " time=\"" +
        seconds(took) + "\">\n";
    for (const Step& step : cases) {
      text += caseText(result.file, step);
    }
    text += "  </testsuite>\n";
  }
  return text + "</testsuites>\n";
}

}  // namespace idl::tools::scenario
