// SPDX-License-Identifier: Apache-2.0
// The three services' stand-ins, each against the bytes of its table, which are written down here once more.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/Client.h"
#include "simulator/CpPublisher.h"
#include "simulator/Heard.h"
#include "simulator/LockOfTheDead.h"
#include "simulator/SlotPublisher.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

using idl::bench::AapPhone;
using idl::bench::AapPublisher;
using idl::bench::BtPhone;
using idl::bench::BtPublisher;
using idl::bench::CpPhone;
using idl::bench::CpPublisher;
using idl::bench::CrashPoint;
using idl::bench::Texts;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string number(std::uint64_t value, unsigned width) { return RawSegment::littleEndian(value, width); }

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

std::string field(const std::string& text, std::size_t size) { return text + zeros(size - text.size()); }

struct Bluetooth {
  using Publisher = BtPublisher;

  static constexpr auto SOURCE = LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
  static constexpr char NAME[] = "BtPairedDeviceList";
  static constexpr unsigned NOTIFICATION = 0x42540001;
  static constexpr std::size_t SIZE = 1124;
  static constexpr std::size_t PAYLOAD = 4;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 112;
  static constexpr unsigned SLOTS = 10;
  static constexpr std::size_t NAME_OFFSET = 5;
  static constexpr std::size_t NAME_SIZE = 81;
  static constexpr std::size_t HALF = 5 + 2;  // of a phone named "Phone"

  static BtPhone phone(const std::string& name, unsigned id) {
    return {static_cast<std::uint8_t>(id), name, "00:00:5E:00:53:01", 0x01020304, 5, 6};
  }

  static BtPhone noPhone() { return {255, "No phone", ""}; }

  static std::string image(const std::string& name, unsigned id) {
    return zeros(4) + number(id, 1) + field(name, 81) + field("00:00:5E:00:53:01", 18) + number(0x01020304, 4) +
           number(5, 1) + number(6, 1) + zeros(2);
  }

  static std::string freeImage() { return zeros(4) + "\xFF" + zeros(81 + 18 + 4) + "\x01" + zeros(3); }

  static void show(BtPublisher& /*publisher*/, unsigned /*id*/) {}
};

struct AndroidAuto {
  using Publisher = AapPublisher;

  static constexpr auto SOURCE = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
  static constexpr char NAME[] = "AapDeviceList";
  static constexpr unsigned NOTIFICATION = 0x41410001;
  static constexpr std::size_t SIZE = 6292;
  static constexpr std::size_t PAYLOAD = 4;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 524;
  static constexpr unsigned SLOTS = 12;
  static constexpr std::size_t NAME_OFFSET = 5;
  static constexpr std::size_t NAME_SIZE = 257;
  static constexpr std::size_t HALF = 262 + 3;  // of a phone with the identifier "serial3"

  static AapPhone phone(const std::string& name, unsigned id) {
    return {"serial" + std::to_string(id), name, 7, 255, static_cast<std::int32_t>(id)};
  }

  static AapPhone noPhone() { return {"", "No phone"}; }

  static std::string image(const std::string& name, unsigned id) {
    return zeros(4) + number(7, 1) + field(name, 257) + field("serial" + std::to_string(id), 257) + "\xFF" +
           number(id, 4);
  }

  static std::string freeImage() { return zeros(4 + 1 + 257 + 257) + "\xFF" + zeros(4); }

  static void show(AapPublisher& /*publisher*/, unsigned /*id*/) {}
};

struct CarPlay {
  using Publisher = CpPublisher;

  static constexpr auto SOURCE = LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
  static constexpr char NAME[] = "LmSCarplayResource";
  static constexpr unsigned NOTIFICATION = 6;
  static constexpr std::size_t SIZE = 13736;
  static constexpr std::size_t PAYLOAD = 8;
  static constexpr std::size_t FIRST_SLOT = 1800;
  static constexpr std::size_t SLOT_SIZE = 296;
  static constexpr unsigned SLOTS = 11;
  static constexpr std::size_t NAME_OFFSET = 8;
  static constexpr std::size_t NAME_SIZE = 256;
  static constexpr std::size_t HALF = 8 + 2;  // of a phone named "Phone"

  static CpPhone phone(const std::string& name, unsigned id) { return {id, name, 0, true, 9}; }

  static CpPhone noPhone() { return {0, "No phone"}; }

  static std::string image(const std::string& name, unsigned id) {
    return number(id, 8) + field(name, 256) + number(0, 1) + number(1, 1) + number(9, 1) + zeros(2) + number(1, 1) +
           zeros(26);
  }

  static std::string freeImage() { return zeros(296); }

  static void show(CpPublisher& publisher, unsigned id) { publisher.setCurrentPhone(id); }
};

/// A stand-in that has written its empty table.
template <class Service>
class AStandIn : public SegmentTest {
 protected:
  using Publisher = typename Service::Publisher;
  using Phone = typename Publisher::Phone;

  AStandIn() { publisher.initialise(); }

  static Phone phone(const std::string& name = "Phone", unsigned id = 3) { return Service::phone(name, id); }

  static std::string objectName() { return std::string("/") + Service::NAME; }

  static std::string table() { return RawSegment(objectName()).all(); }

  static std::string slot(unsigned index) {
    return RawSegment(objectName()).bytes(Service::FIRST_SLOT + index * Service::SLOT_SIZE, Service::SLOT_SIZE);
  }

  static std::string nameField(unsigned index) { return slot(index).substr(Service::NAME_OFFSET, Service::NAME_SIZE); }

  void fill() {
    for (unsigned index = 0; index < Service::SLOTS; ++index) {
      publisher.put(index, phone("Phone " + std::to_string(index), index + 1));
    }
  }

  /// A process with a stand-in of its own, that dies there.
  static int dieAt(CrashPoint point, unsigned index, const Phone& phone) {
    return ChildProcess([&] {
             Publisher().crash(point, index, phone);
             return 1;
           })
        .wait();
  }

  bool takesItsLock(const std::function<void()>& action) { return takesTheLock(Service::NAME, action); }

  Publisher publisher;
};

struct ServiceNames {
  template <class Service>
  static std::string GetName(int /*index*/) {
    return Service::NAME;
  }
};

using Services = ::testing::Types<Bluetooth, AndroidAuto, CarPlay>;
TYPED_TEST_SUITE(AStandIn, Services, ServiceNames);

// --- What the table holds -------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, BeginsWithFreeSlots) {
  for (unsigned index = 0; index < TypeParam::SLOTS; ++index) {
    EXPECT_EQ(this->slot(index), TypeParam::freeImage()) << index;
    EXPECT_EQ(this->publisher.get(index), std::nullopt) << index;
  }
  EXPECT_THAT(this->publisher.phones(), IsEmpty());
  EXPECT_EQ(this->publisher.firstFree(), 0U);
}

TYPED_TEST(AStandIn, WritesAPhoneToItsSlotAndNowhereElse) {
  const std::string before = this->table();

  this->publisher.put(TypeParam::SLOTS - 1, this->phone("Phone", 3));

  std::string expected = before;
  expected.replace(TypeParam::FIRST_SLOT + (TypeParam::SLOTS - 1) * TypeParam::SLOT_SIZE, TypeParam::SLOT_SIZE,
                   TypeParam::image("Phone", 3));
  EXPECT_EQ(this->table(), expected);
}

TYPED_TEST(AStandIn, IsSeenByAClient) {
  this->publisher.put(2, this->phone("Phone", 3));
  TypeParam::show(this->publisher, 3);

  EXPECT_THAT(listedBy(TypeParam::SOURCE), ElementsAre("Phone"));
}

TYPED_TEST(AStandIn, ReadsAPhoneAsItWasPut) {
  this->publisher.put(1, this->phone("Phone", 3));

  EXPECT_EQ(this->publisher.get(1), this->phone("Phone", 3));
}

TYPED_TEST(AStandIn, ReadsAllPhonesByTheirSlots) {
  using Phones = std::map<unsigned, typename TypeParam::Publisher::Phone>;
  const Phones phones = {{0, this->phone("First", 3)}, {TypeParam::SLOTS - 1, this->phone("Last", 4)}};

  this->publisher.replaceAll(phones);

  EXPECT_EQ(this->publisher.phones(), phones);
}

TYPED_TEST(AStandIn, ClearsASlotAndNoOther) {
  this->publisher.put(0, this->phone("Stays", 3));
  this->publisher.put(1, this->phone("Goes", 4));

  this->publisher.clear(1);

  EXPECT_EQ(this->slot(0), TypeParam::image("Stays", 3));
  EXPECT_EQ(this->slot(1), TypeParam::freeImage());
}

TYPED_TEST(AStandIn, ReplacesAllPhonesAtOnce) {
  this->publisher.put(0, this->phone("Goes", 3));

  this->publisher.replaceAll({{1, this->phone("Comes", 4)}});

  EXPECT_EQ(this->slot(0), TypeParam::freeImage());
  EXPECT_EQ(this->slot(1), TypeParam::image("Comes", 4));
}

TYPED_TEST(AStandIn, LeavesATableThatIsThereAsItIs) {
  this->publisher.put(1, this->phone("Phone", 3));
  const std::string before = this->table();

  const typename TypeParam::Publisher another;

  EXPECT_EQ(this->table(), before);
  EXPECT_EQ(another.get(1), this->phone("Phone", 3));
}

TYPED_TEST(AStandIn, KnowsWhereItsSlotsAre) {
  EXPECT_EQ(TypeParam::Publisher::offsetOf(0), std::size_t{TypeParam::FIRST_SLOT});
  EXPECT_EQ(TypeParam::Publisher::offsetOf(TypeParam::SLOTS - 1),
            TypeParam::FIRST_SLOT + (TypeParam::SLOTS - 1) * TypeParam::SLOT_SIZE);
}

TYPED_TEST(AStandIn, RefusesASlotBehindItsLast) {
  constexpr unsigned BEHIND = TypeParam::SLOTS;
  const std::string before = this->table();

  EXPECT_THROW(this->publisher.put(BEHIND, this->phone()), std::out_of_range);
  EXPECT_THROW(this->publisher.clear(BEHIND), std::out_of_range);
  EXPECT_THROW(this->publisher.replaceAll({{0, this->phone()}, {BEHIND, this->phone()}}), std::out_of_range);
  EXPECT_THROW(this->publisher.get(BEHIND), std::out_of_range);
  EXPECT_THROW(TypeParam::Publisher::offsetOf(BEHIND), std::out_of_range);
  EXPECT_THROW(this->publisher.crash(CrashPoint::LOCKED, BEHIND, this->phone()), std::out_of_range);

  EXPECT_EQ(this->table(), before);
}

// --- By name --------------------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, FindsTheFirstPhoneOfAName) {
  this->publisher.replaceAll({{2, this->phone("Tab", 3)}, {4, this->phone("Phone", 4)}, {6, this->phone("Phone", 5)}});

  EXPECT_EQ(this->publisher.find("Phone"), 4U);
  EXPECT_EQ(this->publisher.find("Phon"), std::nullopt);
  EXPECT_EQ(this->publisher.find("Phones"), std::nullopt);
}

TYPED_TEST(AStandIn, FindsNoPhoneInAFreeSlot) { EXPECT_EQ(this->publisher.find(""), std::nullopt); }

TYPED_TEST(AStandIn, FindsANameThatWasCut) {
  const std::string longName(TypeParam::NAME_SIZE + 1, 'x');
  this->publisher.put(5, this->phone(longName));

  EXPECT_EQ(this->publisher.find(longName), 5U);
  EXPECT_EQ(this->publisher.find(longName.substr(0, TypeParam::NAME_SIZE - 2)), std::nullopt);
}

TYPED_TEST(AStandIn, AddsAPhoneToTheFirstFreeSlot) {
  this->publisher.replaceAll({{0, this->phone("First", 3)}, {2, this->phone("Third", 4)}});

  EXPECT_EQ(this->publisher.add(this->phone("Second", 5)), 1U);
  EXPECT_EQ(this->publisher.add(this->phone("Fourth", 6)), 3U);

  EXPECT_EQ(this->slot(1), TypeParam::image("Second", 5));
  EXPECT_EQ(this->slot(3), TypeParam::image("Fourth", 6));
}

TYPED_TEST(AStandIn, AddsNothingToAFullTable) {
  this->fill();
  const std::string before = this->table();

  EXPECT_EQ(this->publisher.firstFree(), std::nullopt);
  EXPECT_THROW(this->publisher.add(this->phone("One too many", 100)), std::runtime_error);

  EXPECT_EQ(this->table(), before);
}

TYPED_TEST(AStandIn, AddsNoPhoneThatWouldLeaveItsSlotFree) {
  const std::string before = this->table();

  EXPECT_THROW(this->publisher.add(TypeParam::noPhone()), std::invalid_argument);

  EXPECT_EQ(this->table(), before);
}

TYPED_TEST(AStandIn, RemovesAPhoneByItsName) {
  this->publisher.replaceAll({{1, this->phone("Goes", 3)}, {2, this->phone("Stays", 4)}});

  this->publisher.remove("Goes");

  EXPECT_EQ(this->slot(1), TypeParam::freeImage());
  EXPECT_EQ(this->slot(2), TypeParam::image("Stays", 4));
}

TYPED_TEST(AStandIn, ChangesAPhoneByItsName) {
  this->publisher.replaceAll({{1, this->phone("Before", 3)}, {2, this->phone("Stays", 4)}});

  this->publisher.change("Before", [](auto& phone) {
    EXPECT_EQ(phone, TypeParam::phone("Before", 3));
    phone = TypeParam::phone("After", 5);
  });

  EXPECT_EQ(this->slot(1), TypeParam::image("After", 5));
  EXPECT_EQ(this->slot(2), TypeParam::image("Stays", 4));
}

TYPED_TEST(AStandIn, KeepsItsTableWhenAChangeIsBrokenOff) {
  this->publisher.put(1, this->phone("Phone", 3));
  const std::string before = this->table();

  EXPECT_THROW(this->publisher.change("Phone",
                                      [](auto& phone) {
                                        phone.name = "Other";
                                        throw std::invalid_argument("no");
                                      }),
               std::invalid_argument);

  EXPECT_EQ(this->table(), before);
}

TYPED_TEST(AStandIn, RefusesANameThatNobodyHas) {
  this->publisher.put(1, this->phone("Phone", 3));
  const std::string before = this->table();

  EXPECT_THROW(this->publisher.remove("Tab"), std::out_of_range);
  EXPECT_THROW(this->publisher.change("Tab", [](auto& /*phone*/) { FAIL(); }), std::out_of_range);

  EXPECT_EQ(this->table(), before);
}

// --- Texts ----------------------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, WritesANameThatJustFitsWhole) {
  const std::string name(TypeParam::NAME_SIZE - 1, 'x');

  this->publisher.put(0, this->phone(name));

  EXPECT_EQ(this->nameField(0), name + '\0');
  EXPECT_EQ(this->publisher.get(0), this->phone(name));
}

TYPED_TEST(AStandIn, CutsANameThatIsTooLong) {
  for (const std::size_t length : {TypeParam::NAME_SIZE, TypeParam::NAME_SIZE + 1, std::size_t{1000}}) {
    this->publisher.put(0, this->phone(std::string(length, 'x')));

    EXPECT_EQ(this->nameField(0), std::string(TypeParam::NAME_SIZE - 1, 'x') + '\0') << length;
  }
}

TYPED_TEST(AStandIn, WritesANameUpToItsFirstNul) {
  this->publisher.put(0, this->phone(std::string("Pho\0ne", 6)));

  EXPECT_EQ(this->nameField(0), field("Pho", TypeParam::NAME_SIZE));
}

TYPED_TEST(AStandIn, WritesTextsWithoutAnEndWhenAsked) {
  std::string endless;
  while (endless.size() < TypeParam::NAME_SIZE) {
    endless += "Phone";
  }
  endless.resize(TypeParam::NAME_SIZE);

  this->publisher.put(0, this->phone("Phone", 3), Texts::ENDLESS);
  TypeParam::show(this->publisher, 3);

  EXPECT_EQ(this->nameField(0), endless);
  const auto found = this->publisher.get(0);
  EXPECT_EQ(found ? found->name : "none", endless);
  EXPECT_THAT(listedBy(TypeParam::SOURCE), ElementsAre(endless));
}

TYPED_TEST(AStandIn, LeavesAnEmptyTextEmpty) {
  this->publisher.put(0, this->phone("", 3), Texts::ENDLESS);

  EXPECT_EQ(this->nameField(0), zeros(TypeParam::NAME_SIZE));
}

// --- Lock and notifications -----------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, WritesUnderTheLock) {
  auto& table = this->publisher;

  EXPECT_TRUE(this->takesItsLock([&] { table.initialise(); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.put(0, this->phone("Phone", 3)); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.add(this->phone("Tab", 4)); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.change("Tab", [](auto& phone) { phone.name = "Pad"; }); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.remove("Pad"); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.clear(0); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.replaceAll({}); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.writeGarbage(1); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.writeRaw(4, "x"); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.resize(TypeParam::SIZE); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.replaceImage("x", TypeParam::SIZE); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.putUntold(0, this->phone("Phone", 3)); }));
  EXPECT_TRUE(this->takesItsLock([&] { table.comeBack(); }));
}

TYPED_TEST(AStandIn, ReadsUnderTheLock) {
  EXPECT_TRUE(this->takesItsLock([this] { this->publisher.get(0); }));
  EXPECT_TRUE(this->takesItsLock([this] { this->publisher.phones(); }));
  EXPECT_TRUE(this->takesItsLock([this] { this->publisher.find("Phone"); }));
  EXPECT_TRUE(this->takesItsLock([this] { this->publisher.firstFree(); }));
}

TYPED_TEST(AStandIn, TellsOfEveryChangeOnceAndByItsNumber) {
  Heard heard(TypeParam::NOTIFICATION);

  EXPECT_EQ(this->publisher.put(0, this->phone("Phone", 3)), 1U);
  this->publisher.add(this->phone("Tab", 4));
  EXPECT_EQ(this->publisher.change("Tab", [](auto& phone) { phone.name = "Pad"; }), 3U);
  EXPECT_EQ(this->publisher.remove("Pad"), 4U);
  EXPECT_EQ(this->publisher.clear(0), 5U);
  EXPECT_EQ(this->publisher.replaceAll({}), 6U);
  EXPECT_EQ(this->publisher.writeGarbage(1), 7U);
  EXPECT_EQ(this->publisher.writeRaw(4, "x"), 8U);
  EXPECT_EQ(this->publisher.resize(TypeParam::SIZE), 9U);
  EXPECT_EQ(this->publisher.comeBack(), 10U);

  EXPECT_THAT(heard.soFar(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TYPED_TEST(AStandIn, TellsNobodyOfItsStartOrItsEndOrOfLooking) {
  Heard heard(TypeParam::NOTIFICATION);

  typename TypeParam::Publisher another;
  another.initialise();
  another.get(0);
  another.phones();
  another.find("Phone");
  another.firstFree();
  another.vanish();

  EXPECT_THAT(heard.soFar(), IsEmpty());
}

TYPED_TEST(AStandIn, TellsNobodyOfWhatItRefuses) {
  this->fill();
  Heard heard(TypeParam::NOTIFICATION);

  EXPECT_ANY_THROW(this->publisher.put(TypeParam::SLOTS, this->phone()));
  EXPECT_ANY_THROW(this->publisher.clear(TypeParam::SLOTS));
  EXPECT_ANY_THROW(this->publisher.replaceAll({{TypeParam::SLOTS, this->phone()}}));
  EXPECT_ANY_THROW(this->publisher.add(this->phone("One too many", 100)));
  EXPECT_ANY_THROW(this->publisher.remove("Nobody"));
  EXPECT_ANY_THROW(this->publisher.change("Nobody", [](auto& /*phone*/) {}));
  EXPECT_ANY_THROW(this->publisher.writeRaw(TypeParam::SIZE, "x"));

  EXPECT_THAT(heard.soFar(), IsEmpty());
}

// --- Deaths ---------------------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, DiesWithTheLockAndNothingWritten) {
  const std::string before = this->table();

  EXPECT_EQ(this->dieAt(CrashPoint::LOCKED, 1, this->phone("Phone", 3)), -SIGKILL);
  const LogCapture log;
  this->publisher.put(2, this->phone("Next", 4));

  EXPECT_EQ(locksOfTheDead(log), 1U);
  std::string expected = before;
  expected.replace(TypeParam::FIRST_SLOT + 2 * TypeParam::SLOT_SIZE, TypeParam::SLOT_SIZE, TypeParam::image("Next", 4));
  EXPECT_EQ(this->table(), expected);
}

TYPED_TEST(AStandIn, DiesWithTheLockHalfWayThroughTheRecord) {
  EXPECT_EQ(this->dieAt(CrashPoint::HALF_WRITTEN, 1, this->phone("Phone", 3)), -SIGKILL);
  const LogCapture log;
  this->publisher.put(2, this->phone("Next", 4));

  EXPECT_EQ(locksOfTheDead(log), 1U);
  EXPECT_EQ(this->slot(1),
            TypeParam::image("Phone", 3).substr(0, TypeParam::HALF) + TypeParam::freeImage().substr(TypeParam::HALF));
  EXPECT_EQ(this->slot(2), TypeParam::image("Next", 4));
}

TYPED_TEST(AStandIn, DiesWithTheRecordWrittenAndNobodyTold) {
  Heard heard(TypeParam::NOTIFICATION);

  EXPECT_EQ(this->dieAt(CrashPoint::BEFORE_NOTIFY, 1, this->phone("Phone", 3)), -SIGKILL);
  const LogCapture log;
  const auto phone = this->publisher.get(1);

  EXPECT_EQ(locksOfTheDead(log), 0U);
  EXPECT_EQ(phone, this->phone("Phone", 3));
  EXPECT_EQ(this->slot(1), TypeParam::image("Phone", 3));
  EXPECT_THAT(heard.soFar(), IsEmpty());
}

// --- Damage ---------------------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, FillsItsPayloadWithGarbage) {
  this->publisher.writeGarbage(1);

  const std::string payload = this->table().substr(TypeParam::PAYLOAD);
  EXPECT_EQ(this->table().substr(0, 4), number(TypeParam::SIZE - TypeParam::PAYLOAD, 4));
  for (const std::size_t begin : {std::size_t{0}, payload.size() / 2, payload.size() - 100}) {
    const std::string part = payload.substr(begin, 100);
    EXPECT_GT(std::set<char>(part.begin(), part.end()).size(), 50U) << begin;
  }
  listedBy(TypeParam::SOURCE);  // what it lists is its own business, as long as it lives
}

TYPED_TEST(AStandIn, WritesTheSameGarbageForTheSameSeed) {
  this->publisher.writeGarbage(1);
  const std::string first = this->table();
  this->publisher.writeGarbage(2);
  const std::string second = this->table();
  this->publisher.writeGarbage(1);

  EXPECT_NE(second, first);
  EXPECT_EQ(this->table(), first);
}

TYPED_TEST(AStandIn, WritesTheSameGarbageOnEveryMachine) {
  this->publisher.writeGarbage(5489);

  EXPECT_EQ(this->table().substr(TypeParam::PAYLOAD, 5), "\x5C\xF6\xEE\x79\x2C");
}

TYPED_TEST(AStandIn, WritesBytesAnywhere) {
  const std::string before = this->table();

  this->publisher.writeRaw(0, "\x01\x02");
  this->publisher.writeRaw(TypeParam::SIZE - 3, "end");

  std::string expected = before;
  expected.replace(0, 2, "\x01\x02");
  expected.replace(TypeParam::SIZE - 3, 3, "end");
  EXPECT_EQ(this->table(), expected);
}

TYPED_TEST(AStandIn, BecomesAWholeImage) {
  this->publisher.replaceImage(std::string(TypeParam::SIZE, 'x'), TypeParam::SIZE + 3);
  EXPECT_EQ(this->table(), std::string(TypeParam::SIZE, 'x') + std::string(3, '\0'));

  this->publisher.replaceImage("short", 5);

  EXPECT_EQ(this->table(), "short");
}

TYPED_TEST(AStandIn, MayTellNobodyOrTakeNoLock) {
  Heard heard(TypeParam::NOTIFICATION);

  this->publisher.putUntold(0, this->phone("Phone", 3));
  EXPECT_FALSE(this->takesItsLock([this] { this->publisher.putUnlocked(1, this->phone("Other", 4)); }));

  EXPECT_THAT(heard.soFar(), ElementsAre(1));
  EXPECT_EQ(this->publisher.find("Phone"), 0U);
  EXPECT_EQ(this->publisher.find("Other"), 1U);
}

TYPED_TEST(AStandIn, WritesNoBytesBehindItsEnd) {
  const LogCapture log;  // the segment says that it is too small
  const std::string before = this->table();

  EXPECT_THROW(this->publisher.writeRaw(TypeParam::SIZE - 2, "end"), std::runtime_error);

  EXPECT_EQ(this->table(), before);
}

TYPED_TEST(AStandIn, CutsItsTableShort) {
  const LogCapture log;
  this->publisher.put(0, this->phone("Inside", 3));
  this->publisher.put(1, this->phone("Outside", 4));
  TypeParam::show(this->publisher, 3);

  this->publisher.resize(TypeParam::FIRST_SLOT + TypeParam::SLOT_SIZE);

  EXPECT_EQ(RawSegment(this->objectName()).size(), TypeParam::FIRST_SLOT + TypeParam::SLOT_SIZE);
  EXPECT_EQ(this->publisher.get(0), this->phone("Inside", 3));
  EXPECT_THROW(this->publisher.get(1), std::runtime_error);
  EXPECT_THROW(this->publisher.phones(), std::runtime_error);
  EXPECT_THROW(this->publisher.put(1, this->phone()), std::runtime_error);
  EXPECT_THROW(this->publisher.writeGarbage(1), std::runtime_error);
  EXPECT_THAT(listedBy(TypeParam::SOURCE), ElementsAre("Inside"));
}

TYPED_TEST(AStandIn, LengthensItsTableWithZeros) {
  this->publisher.put(0, this->phone("Phone", 3));
  this->publisher.resize(TypeParam::FIRST_SLOT + TypeParam::SLOT_SIZE);

  this->publisher.resize(TypeParam::SIZE + 10);

  EXPECT_EQ(this->table().size(), TypeParam::SIZE + 10);
  EXPECT_EQ(this->slot(0), TypeParam::image("Phone", 3));
  EXPECT_EQ(this->slot(1), zeros(TypeParam::SLOT_SIZE));
  this->publisher.put(1, this->phone("Tab", 4));
  EXPECT_EQ(this->slot(1), TypeParam::image("Tab", 4));
}

// --- Going and coming back ------------------------------------------------------------------------------------------

TYPED_TEST(AStandIn, TakesItsTableAway) {
  this->publisher.vanish();
  EXPECT_FALSE(RawSegment::exists(this->objectName()));

  EXPECT_NO_THROW(this->publisher.vanish());
  EXPECT_NO_THROW(this->publisher.put(0, this->phone()));
  EXPECT_THROW(this->publisher.resize(TypeParam::SIZE), std::runtime_error);
  EXPECT_FALSE(RawSegment::exists(this->objectName()));
}

TYPED_TEST(AStandIn, ComesBackWithAnEmptyTable) {
  const std::string empty = this->table();
  this->publisher.put(0, this->phone("Before", 3));
  this->publisher.vanish();

  this->publisher.comeBack();

  EXPECT_EQ(this->table(), empty);
  EXPECT_EQ(RawSegment(this->objectName()).mode(), 0664U);
  EXPECT_THAT(this->publisher.phones(), IsEmpty());
  EXPECT_EQ(this->mappings(this->objectName()), 1U);
  EXPECT_EQ(this->descriptors(this->objectName()), 1U);
}

TYPED_TEST(AStandIn, WritesToItsNewTableWhenItHasComeBack) {
  this->publisher.vanish();
  this->publisher.comeBack();

  this->publisher.put(1, this->phone("Phone", 3));
  TypeParam::show(this->publisher, 3);

  EXPECT_EQ(this->slot(1), TypeParam::image("Phone", 3));
  EXPECT_THAT(listedBy(TypeParam::SOURCE), ElementsAre("Phone"));
}

TYPED_TEST(AStandIn, TakesOverATableThatSomebodyElseHasMade) {
  this->publisher.vanish();
  typename TypeParam::Publisher another;
  another.put(0, this->phone("Another's", 3));

  this->publisher.comeBack();
  this->publisher.put(1, this->phone("Phone", 4));

  EXPECT_EQ(another.get(0), std::nullopt);
  EXPECT_EQ(another.get(1), this->phone("Phone", 4));
}

}  // namespace
