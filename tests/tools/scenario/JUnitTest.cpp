// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/scenario/JUnit.h"

using idl::tools::scenario::CommandKind;
using idl::tools::scenario::junitXml;
using idl::tools::scenario::Outcome;
using idl::tools::scenario::RunResult;
using idl::tools::scenario::Step;
using testing::HasSubstr;
using testing::Not;

namespace {

Step step(CommandKind kind, const std::string& text, Outcome outcome) {
  Step step;
  step.kind = kind;
  step.text = text;
  step.outcome = outcome;
  return step;
}

RunResult resultOf(const std::string& file, const std::vector<Step>& steps) {
  RunResult result;
  result.file = file;
  result.steps = steps;
  return result;
}

}  // namespace

TEST(AJUnitDocument, HasACaseForEachExpectationAndForWhatWentWrong) {
  Step failed = step(CommandKind::EXPECT_LIST, "expect list \"A\"", Outcome::FAILED);
  failed.position = {3, 7};
  failed.why = "no row is like this";
  failed.details = "expected:\nrow  name\n";
  failed.took = std::chrono::milliseconds(2050);
  Step wait = step(CommandKind::WAIT, "wait 1s", Outcome::DONE);
  wait.took = std::chrono::milliseconds(1000);

  const std::string xml =
      junitXml({resultOf("a.scn", {wait, step(CommandKind::EXPECT_NO, "expect no", Outcome::DONE), failed,
                                   step(CommandKind::EXPECT_NO, "expect no B", Outcome::SKIPPED),
                                   step(CommandKind::CLIENT_KILL, "client kill", Outcome::SKIPPED)})});

  EXPECT_EQ(xml,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<testsuites>\n"
            "  <testsuite name=\"a.scn\" tests=\"3\" failures=\"1\" errors=\"0\" skipped=\"1\" time=\"3.050\">\n"
            "    <testcase classname=\"a.scn\" name=\"1:1 expect no\" time=\"0.000\"/>\n"
            "    <testcase classname=\"a.scn\" name=\"3:7 expect list &quot;A&quot;\" time=\"2.050\">\n"
            "      <failure message=\"no row is like this\">expected:\nrow  name\n</failure>\n"
            "    </testcase>\n"
            "    <testcase classname=\"a.scn\" name=\"1:1 expect no B\" time=\"0.000\"><skipped/></testcase>\n"
            "  </testsuite>\n"
            "</testsuites>\n");
}

TEST(AJUnitDocument, TellsMistakesAndTroubleAsErrors) {
  Step mistake = step(CommandKind::CLIENT_KILL, "client kill", Outcome::MISTAKE);
  mistake.why = "the client is not running";

  const std::string xml =
      junitXml({resultOf("a", {mistake}), resultOf("b", {step(CommandKind::WAIT, "wait 1s", Outcome::TROUBLE)})});

  EXPECT_THAT(xml, HasSubstr("<testsuite name=\"a\" tests=\"1\" failures=\"0\" errors=\"1\" skipped=\"0\""));
  EXPECT_THAT(xml, HasSubstr("<error message=\"the client is not running\">"));
  EXPECT_THAT(xml, HasSubstr("<testsuite name=\"b\" tests=\"1\" failures=\"0\" errors=\"1\" skipped=\"0\""));
}

TEST(AJUnitDocument, IsLegalWhateverANameHolds) {
  Step failed = step(CommandKind::EXPECT_LIST, "expect list <&>\"'\x01\xff\xef\xbf\xbf", Outcome::FAILED);
  failed.why = "]]> \x1b[0m";
  failed.details = "\x1b[1mrow\x1b[0m\n\xff\n";

  const std::string xml = junitXml({resultOf("\x02.scn", {failed})});

  EXPECT_THAT(xml, HasSubstr("name=\"1:1 expect list &lt;&amp;&gt;&quot;'\\x01\\xff\\u{ffff}\""));
  EXPECT_THAT(xml, HasSubstr("message=\"]]&gt; \\x1b[0m\""));
  EXPECT_THAT(xml, HasSubstr("\\x1b[1mrow\\x1b[0m\n\\xff\n"));
  EXPECT_THAT(xml, Not(HasSubstr("\x1b")));
  EXPECT_THAT(xml, Not(HasSubstr("\x01")));
}

TEST(AJUnitDocument, MayBeEmpty) {
  EXPECT_EQ(junitXml({}), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n</testsuites>\n");
}
