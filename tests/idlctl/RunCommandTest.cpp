// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "idlctl/Invocation.h"
#include "support/SaveFolder.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

/// Several scenarios of which not all can be played.
class ARun : public testing::Test {
 protected:
  std::string fileOf(const std::string& name, const std::string& content) const {
    std::string path = mFolder.path() / name;
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    return path;
  }

  std::string junit() const {
    std::ifstream file(junitFile());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  std::string junitFile() const { return mFolder.path() / "results.xml"; }

  const SaveFolder mFolder;
  const std::string mGood = fileOf("good.scn", "expect list count=0\n");
};

TEST_F(ARun, TellsItsResultsOfWhatItCouldNotUnderstand) {
  const std::string bad = fileOf("bad.scn", "wait 1s\n  phne add anna\nwait\n");

  const Invocation run({"run", bad, mGood, "--junit", junitFile()});

  EXPECT_EQ(run.exitCode(), 2);
  EXPECT_THAT(run.err(), AllOf(HasSubstr("bad.scn:2:3: "), HasSubstr("bad.scn:3:1: ")));
  EXPECT_THAT(run.out(), HasSubstr("good.scn: 1 commands, all as expected"));
  EXPECT_THAT(junit(),
              AllOf(HasSubstr("bad.scn\" tests=\"2\" failures=\"0\" errors=\"2\""), HasSubstr("name=\"2:3 "),
                    HasSubstr("did you mean"), HasSubstr("good.scn\" tests=\"1\" failures=\"0\" errors=\"0\"")));
}

TEST_F(ARun, GoesOnBehindWhatItCannotRead) {
  const Invocation run({"run", "/nowhere/at-all.scn", mFolder.path(), mGood, "--junit", junitFile()});

  EXPECT_EQ(run.exitCode(), 3);
  EXPECT_THAT(run.err(), AllOf(HasSubstr("/nowhere/at-all.scn: No such file"), HasSubstr("Is a directory")));
  EXPECT_THAT(run.out(), HasSubstr("good.scn: 1 commands, all as expected"));
  EXPECT_THAT(junit(), AllOf(HasSubstr("at-all.scn\" tests=\"1\" failures=\"0\" errors=\"1\""),
                             HasSubstr("Is a directory"), HasSubstr("good.scn\" tests=\"1\"")));
}

TEST_F(ARun, CannotBeSteppedByTheInputThatItIsReadFrom) {
  const Invocation run({"run", mGood, "-", "--step"});

  EXPECT_EQ(run.exitCode(), 2);
  EXPECT_THAT(run.err(), HasSubstr("--step"));
  EXPECT_EQ(run.out(), "");
}

}  // namespace
