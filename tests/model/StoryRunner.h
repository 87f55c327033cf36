// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_MODEL_STORYRUNNER_H
#define TESTS_MODEL_STORYRUNNER_H

#include <string>

#include "model/NaiveModel.h"
#include "model/Story.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"

namespace model {

/// Lets stories happen to the library and to the model, and compares after every step: the list, the result of every
/// call, the log, the saved file's bytes, and whether it was written at all.
///
/// To be run in a shared-memory folder of its own (scripts/private-shm). One at a time.
class StoryRunner {
 public:
  /// What differed first, and after which step; empty: nothing did.
  std::string run(const Story& story);
  std::string run(const NumberingStory& story);

  const Reached& reached() const { return mReached; }

 private:
  SaveFolder mFolder;
  LogCapture mLog;
  Reached mReached;
};

}  // namespace model

#endif
