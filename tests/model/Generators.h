// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_MODEL_GENERATORS_H
#define TESTS_MODEL_GENERATORS_H

#include <rapidcheck.h>

#include "model/Story.h"

/// Stories by chance. Every value comes out of a small pool, so that phones meet: ids, ports and names that are equal,
/// a name that is what another one's number makes of it, names that differ only behind where a table cuts them, and the
/// values at the ends of each range.
namespace model {

rc::Gen<Story> stories();
rc::Gen<NumberingStory> numberingStories();

}  // namespace model

namespace rc {

template <>
struct Arbitrary<model::Story> {
  static Gen<model::Story> arbitrary() { return model::stories(); }
};

template <>
struct Arbitrary<model::NumberingStory> {
  static Gen<model::NumberingStory> arbitrary() { return model::numberingStories(); }
};

}  // namespace rc

#endif
