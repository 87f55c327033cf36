// SPDX-License-Identifier: Apache-2.0
// Lets system calls of the saved table's file fail, in random stories of the whole library.
#include "saved/FailedCalls.h"

#include <cerrno>
#include <cstdint>
#include <iterator>
#include <random>
#include <set>
#include <string>

#include "saved/RandomTables.h"
#include "trust/Campaign.h"

namespace {

using saved_table::below;

constexpr unsigned PLANS_OF_A_STORY = 20;
constexpr std::size_t MAX_CALLS = 22;  // of a refresh

const char* const NAMES[] = {"Phone", "Tab", "", "Phone 2"};
constexpr int ERRORS[] = {EIO, ENOSPC, EACCES, EINTR, EROFS, ENOMEM, EDQUOT, EPERM};

/// Up to six phones of few names, by their ids.
FailedCalls::Refresh anyRefresh(std::mt19937_64& random) {
  FailedCalls::Refresh phones;
  std::set<unsigned> ids;
  for (std::size_t left = below(7, random); left > 0; --left) {
    ids.insert(static_cast<unsigned>(below(8, random)));
  }
  for (const unsigned id : ids) {
    phones.push_back({id, NAMES[below(std::size(NAMES), random)]});
  }
  return phones;
}

FailedCalls::Story anyStory(std::mt19937_64& random) {
  FailedCalls::Story story;
  unsigned suffix = 1;
  for (const FailedCalls::Phone& phone : anyRefresh(random)) {
    suffix += 1 + static_cast<unsigned>(below(3, random));
    story.stored.push_back(saved_table::phone(phone.id, phone.name, suffix));
  }
  for (std::size_t left = 2 + below(4, random); left > 0; --left) {
    story.refreshes.push_back(anyRefresh(random));
  }
  return story;
}

FailedCalls::Plan anyPlan(std::size_t refreshes, std::mt19937_64& random) {
  FailedCalls::Plan plan;
  for (std::size_t refresh = 0; refresh < refreshes; ++refresh) {
    FailedCalls::Failure failure;
    if (below(2, random) == 0) {
      failure.index = below(MAX_CALLS, random);
      failure.error = ERRORS[below(std::size(ERRORS), random)];
    }
    if (below(4, random) == 0) {
      failure.limit = 1 + below(3000, random);
    }
    plan[refresh] = failure;
  }
  return plan;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("failed-calls", "calls failed", argc, argv);
  std::mt19937_64 random(campaign.seed());
  std::uint64_t tried = 0;
  std::uint64_t stories = 0;
  const std::uint64_t maxStories = 10 + campaign.count();
  while (tried < campaign.count() && stories < maxStories && !campaign.hasEnough()) {
    const FailedCalls::Story story = anyStory(random);
    FailedCalls calls(story);
    ++stories;
    for (unsigned i = 0; i < PLANS_OF_A_STORY && tried < campaign.count() && !campaign.hasEnough(); ++i) {
      for (const std::string& complaint : calls.complaintsAbout(anyPlan(story.refreshes.size(), random))) {
        campaign.violation(complaint);
      }
      tried += calls.failed();
    }
  }
  campaign.tried(tried);
  if (stories == maxStories) {
    campaign.violation("hardly a call is caught that could fail");
  }
  campaign.note(std::to_string(stories) + " stories");
  return campaign.finish();
}
