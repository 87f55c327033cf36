// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>

#include "model/Generators.h"
#include "model/StoryRunner.h"

namespace {

// RapidCheck makes the stories, a hundred each unless RC_PARAMS asks for more ("max_success=1000 seed=3"), and prints
// the shortest one that it finds to fail.

TEST(AListOfAnyPhones, IsWhatTheModelSays) {
  model::StoryRunner runner;

  EXPECT_TRUE(rc::check([&runner](const model::Story& story) {
    const std::string difference = runner.run(story);
    RC_LOG() << difference << '\n';
    RC_ASSERT(difference.empty());
  }));

  EXPECT_GT(runner.reached().folded, 0U);
  EXPECT_GT(runner.reached().unknownPairing, 0U);
  EXPECT_GT(runner.reached().equalBluetoothIds, 0U);
  EXPECT_GT(runner.reached().carried, 0U);
  EXPECT_GT(runner.reached().clashes, 0U);
}

TEST(ANumberingOfAnyList, IsWhatTheModelSays) {
  model::StoryRunner runner;

  EXPECT_TRUE(rc::check([&runner](const model::NumberingStory& story) {
    const std::string difference = runner.run(story);
    RC_LOG() << difference << '\n';
    RC_ASSERT(difference.empty());
  }));

  EXPECT_GT(runner.reached().tooMany, 0U);
  EXPECT_GT(runner.reached().refused, 0U);
  EXPECT_GT(runner.reached().unnumbered, 0U);
}

}  // namespace
