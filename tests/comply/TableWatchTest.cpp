// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "simulator/CpPublisher.h"
#include "tools/comply/TableWatch.h"

namespace {

using idl::bench::CpPublisher;
using idl::tools::CP_SOURCE;
using namespace idl::tools::comply;

TEST(AWatchThatIsStoppedSoonAfterAChange, DoesNotSayThatMessagesWereMissed) {
  CpPublisher service;
  service.initialise();
  TableWatch watch(CP_SOURCE, std::nullopt);
  watch.sample();

  service.putUntold(0, {7, "Phone", 3});
  watch.sample();

  ASSERT_TRUE(watch.isChangePending());
  EXPECT_EQ(watch.findingOf(Rule::NOTIFIES).verdict, Verdict::UNKNOWN);
  EXPECT_EQ(watch.findingOf(Rule::NOTIFIES).why, "It was stopped before somebody had to be told of the change.");
}

TEST(AWatch, SaysNoMoreThatNobodyHasWrittenTheTableOnceSomebodyHas) {
  CpPublisher service;
  service.initialise();
  TableWatch watch(CP_SOURCE, std::nullopt);
  watch.sample();
  ASSERT_EQ(watch.findingOf(Rule::ENDS_TEXTS).why, "Nobody has written the table yet.");

  service.setCurrentPhone(7);
  watch.sample();

  EXPECT_EQ(watch.findingOf(Rule::ENDS_TEXTS).why, "No phone was seen in the table.");
  EXPECT_EQ(watch.findingOf(Rule::KEEPS_SIZE_WORD).verdict, Verdict::PASSED);
}

}  // namespace
