// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Phone.h"

namespace idl::tools::scenario {

namespace {

struct SourceFacts {
  const char* word;
  unsigned slots;
};

constexpr std::array<SourceFacts, 3> FACTS = {{{"bt", 10}, {"cp", 11}, {"aap", 12}}};

const SourceFacts& factsOf(Source source) { return FACTS.at(static_cast<std::size_t>(source)); }

}  // namespace

const char* wordOf(Source source) { return factsOf(source).word; }

std::optional<Source> sourceOf(std::string_view word) {
  for (const Source source : SOURCES) {
    if (word == wordOf(source)) {
      return source;
    }
  }
  return std::nullopt;
}

unsigned slotCount(Source source) { return factsOf(source).slots; }

}  // namespace idl::tools::scenario
