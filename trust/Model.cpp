// SPDX-License-Identifier: Apache-2.0
// Stories by chance happen to the library and to a naive model of it; after every refresh all that a client can see
// and the saved file's bytes must be the same. One in four is about the numbering alone.
// The first that fails is made as short as it goes, and ends the campaign.

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

#include "model/Generators.h"
#include "model/StoryRunner.h"
#include "trust/Campaign.h"

namespace {

constexpr int STORY_SIZE = 100;  // at which RapidCheck's ranges are whole
constexpr unsigned KINDS = 4;

/// Reports the shortest story like a failed one that RapidCheck comes by.
template <class AnyStory>
void report(Campaign& campaign, model::StoryRunner& runner, const rc::Shrinkable<AnyStory>& failed) {
  const auto shortest =
      rc::shrinkable::findLocalMin(failed, [&runner](const AnyStory& story) { return !runner.run(story).empty(); });
  std::ostringstream text;
  text << runner.run(shortest.first) << shortest.first;
  campaign.violation(text.str());
}

template <class AnyStory>
void tryOne(Campaign& campaign, model::StoryRunner& runner, const rc::Gen<AnyStory>& stories,
            const rc::Random& random) {
  const rc::Shrinkable<AnyStory> story = stories(random, STORY_SIZE);
  const std::uint64_t before = runner.reached().refreshes;
  const bool isGood = runner.run(story.value()).empty();
  campaign.tried(runner.reached().refreshes - before);
  if (!isGood) {
    report(campaign, runner, story);
  }
}

std::string percent(const char* what, std::uint64_t part, std::uint64_t whole) {
  char text[64];
  std::snprintf(text, sizeof text, "%s %.1f %%", what, 100.0 * static_cast<double>(part) / static_cast<double>(whole));
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("model", "refreshes compared", argc, argv);
  model::StoryRunner runner;
  const rc::Gen<model::Story> stories = model::stories();
  const rc::Gen<model::NumberingStory> numberingStories = model::numberingStories();
  rc::Random random(campaign.seed());
  const model::Reached& reached = runner.reached();
  std::uint64_t told = 0;
  while (reached.refreshes < campaign.count() && campaign.isClean()) {
    const rc::Random one = random.split();
    if (told++ % KINDS != 0) {
      tryOne(campaign, runner, stories, one);
    } else {
      tryOne(campaign, runner, numberingStories, one);
    }
  }
  const std::uint64_t all = reached.refreshes;
  campaign.note(
      std::to_string(told) + " stories; of the refreshes " + percent("folded", reached.folded, all) +
      percent(", equal ids", reached.equalBluetoothIds, all) + percent(", equal keys", reached.equalKeys, all) +
      percent(", unknown pairing", reached.unknownPairing, all) + percent(", equal names", reached.equalNames, all) +
      percent(", cut names", reached.cutNames, all) + percent(", numbers kept", reached.carried, all) +
      percent(", clash with another name", reached.clashes, all) +
      percent(", no number left", reached.unnumbered, all) + percent(", too many to save", reached.tooMany, all) +
      percent(", saved", reached.savings, all) + "; " + std::to_string(reached.loaded) +
      " starts with saved numbers, " + std::to_string(reached.refused) + " of them refused");
  return campaign.finish();
}
