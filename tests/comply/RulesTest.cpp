// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "tools/comply/Rules.h"

namespace {

using idl::bench::AapPublisher;
using idl::bench::BtPublisher;
using idl::bench::CpPublisher;
using idl::bench::Texts;
using idl::tools::AAP_SOURCE;
using idl::tools::BT_SOURCE;
using idl::tools::copyTable;
using idl::tools::CP_SOURCE;
using idl::tools::Source;
using idl::tools::TableCopy;
using namespace idl::tools::comply;

Verdict verdict(Rule rule, const Source& source) { return judge(rule, source, copyTable(source)).verdict; }

TEST(ATableThatIsNotThere, IsNotJudged) {
  for (const Rule rule : RULES) {
    EXPECT_EQ(verdict(rule, BT_SOURCE), Verdict::UNKNOWN);
  }
}

template <class Publisher>
class AnEmptyTable : public testing::Test {
 protected:
  AnEmptyTable() { mPublisher.initialise(); }

  Publisher mPublisher;
};

using AnEmptyBluetoothTable = AnEmptyTable<BtPublisher>;
using AnEmptyCarPlayTable = AnEmptyTable<CpPublisher>;
using AnEmptyAndroidAutoTable = AnEmptyTable<AapPublisher>;

TEST_F(AnEmptyBluetoothTable, TellsNothingOfTextsAndIds) {
  EXPECT_EQ(verdict(Rule::ENDS_TEXTS, BT_SOURCE), Verdict::UNKNOWN);
  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, BT_SOURCE), Verdict::UNKNOWN);
  EXPECT_EQ(verdict(Rule::KEEPS_FREE_SLOTS_FREE, BT_SOURCE), Verdict::PASSED);
  EXPECT_EQ(verdict(Rule::KEEPS_SIZE_WORD, BT_SOURCE), Verdict::PASSED);
}

TEST_F(AnEmptyBluetoothTable, TellsNothingOfFreeSlotsOnceItIsFull) {
  for (unsigned slot = 0; slot < BtPublisher::SLOT_COUNT; ++slot) {
    mPublisher.put(slot, {static_cast<std::uint8_t>(slot), "Phone", ""});
  }

  EXPECT_EQ(verdict(Rule::KEEPS_FREE_SLOTS_FREE, BT_SOURCE), Verdict::UNKNOWN);
  EXPECT_EQ(verdict(Rule::ENDS_TEXTS, BT_SOURCE), Verdict::PASSED);
}

TEST_F(AnEmptyBluetoothTable, IsBrokenByATextWithoutAnEnd) {
  mPublisher.put(2, {3, "Phone", ""}, Texts::ENDLESS);

  const Judgement judgement = judge(Rule::ENDS_TEXTS, BT_SOURCE, copyTable(BT_SOURCE));

  EXPECT_EQ(judgement.verdict, Verdict::BROKEN);
  EXPECT_EQ(judgement.offence->at, 4 + 2 * 112 + 5);
  EXPECT_EQ(judgement.offence->bytes.substr(0, 10), "PhonePhone");
  EXPECT_EQ(judgement.offence->bytes.size(), 81U);
}

TEST_F(AnEmptyBluetoothTable, IsBrokenByASlotOfZeros) {
  mPublisher.writeRaw(BtPublisher::offsetOf(4), std::string(BtPublisher::SLOT_SIZE, '\0'));

  EXPECT_EQ(verdict(Rule::KEEPS_FREE_SLOTS_FREE, BT_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyBluetoothTable, IsUnwrittenWhereItIsOfZeros) {
  EXPECT_FALSE(isUnwritten(BT_SOURCE, copyTable(BT_SOURCE)));

  mPublisher.writeRaw(BtPublisher::offsetOf(0), std::string(BtPublisher::SLOT_COUNT * BtPublisher::SLOT_SIZE, '\0'));

  EXPECT_TRUE(isUnwritten(BT_SOURCE, copyTable(BT_SOURCE)));
}

TEST_F(AnEmptyBluetoothTable, IsBrokenByOneIdTwice) {
  mPublisher.put(0, {3, "Phone", ""});
  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, BT_SOURCE), Verdict::PASSED);

  mPublisher.put(1, {3, "Other", ""});

  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, BT_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyBluetoothTable, IsBrokenByAnotherSizeWord) {
  mPublisher.writeRaw(0, std::string(4, '\0'));

  const Judgement judgement = judge(Rule::KEEPS_SIZE_WORD, BT_SOURCE, copyTable(BT_SOURCE));

  EXPECT_EQ(judgement.verdict, Verdict::BROKEN);
  EXPECT_EQ(judgement.offence->bytes, std::string(4, '\0'));
}

TEST_F(AnEmptyBluetoothTable, IsBrokenByAnObjectThatIsTooShort) {
  mPublisher.resize(600);

  const Judgement judgement = judge(Rule::KEEPS_SIZE_WORD, BT_SOURCE, copyTable(BT_SOURCE));

  EXPECT_EQ(judgement.verdict, Verdict::BROKEN);
  EXPECT_EQ(judgement.offence->what, "The object has 600 bytes instead of 1124.");
  EXPECT_EQ(judgement.offence->bytes, std::string("\x60\4\0\0", 4));
  mPublisher.vanish();
}

TEST_F(AnEmptyCarPlayTable, IsUnwrittenWithTheDefaultsThatAnyClientWrites) {
  EXPECT_TRUE(isUnwritten(CP_SOURCE, copyTable(CP_SOURCE)));

  mPublisher.put(0, {7, "Phone", 0});

  EXPECT_FALSE(isUnwritten(CP_SOURCE, copyTable(CP_SOURCE)));
}

TEST_F(AnEmptyCarPlayTable, IsUnwrittenWithItsOwnersWordBesideThem) {
  mPublisher.writeRaw(5120, "word");
  mPublisher.writeRaw(5124, "word");

  EXPECT_TRUE(isUnwritten(CP_SOURCE, copyTable(CP_SOURCE)));
}

TEST_F(AnEmptyCarPlayTable, HasFreeSlotsBesideAPhone) {
  mPublisher.put(0, {7, "Phone", 0});

  EXPECT_EQ(verdict(Rule::KEEPS_FREE_SLOTS_FREE, CP_SOURCE), Verdict::PASSED);
}

TEST_F(AnEmptyCarPlayTable, IsBrokenByASlotThatIsValidWithoutAnIdentifier) {
  mPublisher.put(2, {0, "Phone", 0});

  const Judgement judgement = judge(Rule::KEEPS_FREE_SLOTS_FREE, CP_SOURCE, copyTable(CP_SOURCE));

  EXPECT_EQ(judgement.verdict, Verdict::BROKEN);
  EXPECT_EQ(judgement.offence->at, CpPublisher::offsetOf(2));
}

TEST_F(AnEmptyCarPlayTable, IsBrokenByTheWordOfTheOtherTablesForNoBluetoothId) {
  mPublisher.put(0, {7, "Phone", 0});
  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, CP_SOURCE), Verdict::PASSED);

  mPublisher.put(0, {7, "Phone", 255});

  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, CP_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyCarPlayTable, MayHaveAPhoneWithoutAName) {
  mPublisher.put(0, {7, "", 0});

  for (const Rule rule : {Rule::ENDS_TEXTS, Rule::KEEPS_FREE_SLOTS_FREE, Rule::USES_IDS_IN_RANGE}) {
    EXPECT_EQ(verdict(rule, CP_SOURCE), Verdict::PASSED) << idOf(rule);
  }
}

TEST_F(AnEmptyCarPlayTable, IsBrokenByATextWithoutAnEnd) {
  mPublisher.put(0, {7, "Phone", 0}, Texts::ENDLESS);

  EXPECT_EQ(verdict(Rule::ENDS_TEXTS, CP_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyAndroidAutoTable, IsUnwrittenWhereItIsOfZeros) {
  EXPECT_FALSE(isUnwritten(AAP_SOURCE, copyTable(AAP_SOURCE)));

  mPublisher.writeRaw(AapPublisher::offsetOf(0), std::string(AapPublisher::SLOT_COUNT * AapPublisher::SLOT_SIZE, '\0'));

  EXPECT_TRUE(isUnwritten(AAP_SOURCE, copyTable(AAP_SOURCE)));
}

TEST_F(AnEmptyAndroidAutoTable, HasFreeSlotsOfZeros) {
  mPublisher.writeRaw(AapPublisher::offsetOf(0), std::string(AapPublisher::SLOT_SIZE, '\0'));

  EXPECT_EQ(verdict(Rule::KEEPS_FREE_SLOTS_FREE, AAP_SOURCE), Verdict::PASSED);
}

TEST_F(AnEmptyAndroidAutoTable, IsBrokenByAnythingInASlotWithoutAnIdentifier) {
  for (const auto& phone : {idl::bench::AapPhone{"", "Phone", 0, 255, 0}, idl::bench::AapPhone{"", "", 1, 255, 0},
                            idl::bench::AapPhone{"", "", 0, 3, 0}, idl::bench::AapPhone{"", "", 0, 255, 1}}) {
    mPublisher.put(1, phone);

    const Judgement judgement = judge(Rule::KEEPS_FREE_SLOTS_FREE, AAP_SOURCE, copyTable(AAP_SOURCE));

    EXPECT_EQ(judgement.verdict, Verdict::BROKEN);
    ASSERT_TRUE(judgement.offence);
    EXPECT_EQ(judgement.offence->at, AapPublisher::offsetOf(1));
  }
}

TEST_F(AnEmptyAndroidAutoTable, IsBrokenByAPortBelowZero) {
  mPublisher.put(0, {"id", "Phone", 0, 255, 1});
  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, AAP_SOURCE), Verdict::PASSED);

  mPublisher.put(0, {"id", "Phone", 0, 255, -1});

  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, AAP_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyAndroidAutoTable, IsBrokenByOneIdentifierTwice) {
  mPublisher.put(0, {"id", "Phone", 0, 255, 1});
  mPublisher.put(1, {"id", "Other", 0, 255, 2});

  EXPECT_EQ(verdict(Rule::USES_IDS_IN_RANGE, AAP_SOURCE), Verdict::BROKEN);
}

TEST_F(AnEmptyAndroidAutoTable, MayHaveAPhoneWithoutAName) {
  mPublisher.put(0, {"id", "", 0, 255, 0});

  for (const Rule rule : {Rule::ENDS_TEXTS, Rule::KEEPS_FREE_SLOTS_FREE, Rule::USES_IDS_IN_RANGE}) {
    EXPECT_EQ(verdict(rule, AAP_SOURCE), Verdict::PASSED) << idOf(rule);
  }
}

TEST_F(AnEmptyAndroidAutoTable, IsBrokenByAnIdentifierWithoutAnEnd) {
  mPublisher.put(0, {"id", "", 0, 255, 1}, Texts::ENDLESS);

  EXPECT_EQ(verdict(Rule::ENDS_TEXTS, AAP_SOURCE), Verdict::BROKEN);
}

}  // namespace
