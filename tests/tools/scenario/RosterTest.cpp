// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tools/scenario/Roster.h"

using idl::tools::scenario::Phone;
using idl::tools::scenario::Roster;
using idl::tools::scenario::ScenarioMistake;
using idl::tools::scenario::Source;
using idl::tools::scenario::SOURCES;
using testing::ElementsAre;
using testing::Key;

namespace {

Phone named(const std::string& name) {
  Phone phone;
  phone.name = name;
  return phone;
}

}  // namespace

TEST(ARoster, ListsPhonesInTheFirstFreeSlot) {
  Roster roster;
  roster.list(Source::BT, "anna", named("A"));
  roster.list(Source::BT, "ben", named("B"));
  roster.unlist(Source::BT, "anna");

  EXPECT_EQ(roster.list(Source::BT, "carl", named("C")).slot, 0U);
  EXPECT_EQ(roster.firstListed(Source::BT), "carl");
  EXPECT_EQ(roster.table(Source::BT).at(1).name, "B");
  EXPECT_TRUE(roster.table(Source::CP).empty());
}

TEST(ARoster, HasAsMuchRoomAsTheTables) {
  for (const Source source : SOURCES) {
    Roster roster;
    for (unsigned i = 0; i < idl::tools::scenario::slotCount(source); ++i) {
      roster.list(source, std::to_string(i), named("x"));
    }

    EXPECT_THROW(roster.list(source, "one-more", named("x")), ScenarioMistake);
    EXPECT_EQ(roster.listing(source, "one-more"), nullptr);
  }
}

TEST(ARoster, GivesOutTheLowestBluetoothId) {
  Roster roster;
  Phone first = named("a");
  first.btid = 1;
  Phone third = named("c");
  third.btid = 3;
  roster.add("a", first);
  roster.add("c", third);

  EXPECT_EQ(roster.freeBtid(), 2);
}

TEST(ARoster, RefusesWhatCannotBe) {
  Roster roster;
  roster.add("anna", named("A"));

  EXPECT_THROW(roster.add("anna", named("B")), ScenarioMistake);
  EXPECT_EQ(roster.phone("anna").name, "A");
  EXPECT_THROW(roster.phone("ben"), ScenarioMistake);
  EXPECT_THROW(roster.unlist(Source::BT, "anna"), ScenarioMistake);
}

TEST(ARoster, KeepsAListingOfAPhoneThatIsGone) {
  Roster roster;
  roster.add("anna", named("A"));
  roster.list(Source::AAP, "anna", named("A"));
  roster.remove("anna");

  EXPECT_FALSE(roster.has("anna"));
  EXPECT_THAT(roster.table(Source::AAP), ElementsAre(Key(0)));
  roster.unlistAll(Source::AAP);
  EXPECT_EQ(roster.firstListed(Source::AAP), std::nullopt);
}
