// SPDX-License-Identifier: Apache-2.0
// The examples of docs/scenarios.md come out as it says.
#include <gtest/gtest.h>

#include "tools/scenario/Page.h"
#include "tools/scenario/ProcessBench.h"
#include "tools/scenario/Runner.h"

TEST(ThePageOnScenarios, HasExamplesThatComeOutAsItSays) {
  for (const std::string& example : scenariosOf(page())) {
    idl::tools::scenario::ProcessBench bench;

    const auto result = idl::tools::scenario::Runner(bench, {}).run(
        "example", idl::tools::scenario::Parser("example").parse(example).commands);

    EXPECT_EQ(result.report(), "");
  }
}
