// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <set>

#include "tools/recording/Pseudonyms.h"
#include "tools/text/Utf8.h"

namespace {

using idl::tools::isUtf8;
using idl::tools::recording::Pseudonyms;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

const std::string SALT = "0123456789abcdef";

// 'A' 'a' '0' for these classes, '^' and '<' for leading and following bytes of other characters; else the byte.
std::string classesOf(const std::string& text) {
  std::string classes;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    classes += std::isupper(byte) != 0   ? 'A'
               : std::islower(byte) != 0 ? 'a'
               : std::isdigit(byte) != 0 ? '0'
               : byte >= 0xC0            ? '^'
               : byte >= 0x80            ? '<'
                                         : character;
  }
  return classes;
}

class TextsByChance {
 public:
  std::string next() {
    static const std::vector<std::string> PARTS = {"a",
                                                   "b",
                                                   "Z",
                                                   "7",
                                                   "42",
                                                   "1234",
                                                   " ",
                                                   " 2",
                                                   " 255",
                                                   " 1000",
                                                   "'",
                                                   "\n",
                                                   "\x1b[2J",
                                                   "\xc3\xa9",
                                                   "\xff",
                                                   "\x80",
                                                   "\xe6",
                                                   "\xe6\x90\xba",
                                                   "\xf0\x9f\x98\x80",
                                                   "\xc2\x9b",
                                                   "\xed\x9f\xbf",
                                                   "\xe0\xa4\x85",
                                                   "\xf4\x8f\xbf\xbf",
                                                   "\xe2\x80\xae",
                                                   "iPhone"};
    std::string text;
    for (std::size_t left = mRandom() % 6; left > 0; --left) {
      text += PARTS[mRandom() % PARTS.size()];
    }
    return text;
  }

 private:
  std::mt19937 mRandom{7};
};

TEST(AName, BecomesAnotherOfTheSameClasses) {
  const Pseudonyms pseudonyms(SALT);

  const std::string name = pseudonyms.name("Anna's iPhone");

  EXPECT_NE(name, "Anna's iPhone");
  EXPECT_EQ(classesOf(name), classesOf("Anna's iPhone"));
  EXPECT_EQ(pseudonyms.name("Anna's iPhone"), name);
  EXPECT_NE(Pseudonyms("another salt 123").name("Anna's iPhone"), name);
}

TEST(AName, KeepsTheNumberAtItsEnd) {
  const Pseudonyms pseudonyms(SALT);

  EXPECT_EQ(pseudonyms.name("iPhone 2"), pseudonyms.name("iPhone") + " 2");
  EXPECT_EQ(pseudonyms.name("iPhone 2 3"), pseudonyms.name("iPhone") + " 2 3");
  EXPECT_EQ(pseudonyms.name("Pixel7 255"), pseudonyms.name("Pixel7") + " 255");
  EXPECT_THAT(pseudonyms.name("Pixel7"), EndsWith("7"));
  EXPECT_EQ(pseudonyms.name(""), "");
}

TEST(AName, LosesATelephoneNumber) {
  const Pseudonyms pseudonyms(SALT);

  EXPECT_THAT(pseudonyms.name("Anna 01701234567"), Not(EndsWith("01701234567")));
}

TEST(AName, ThatWasCutIsStillTheBeginningOfTheWholeOne) {
  const Pseudonyms pseudonyms(SALT);

  EXPECT_THAT(pseudonyms.name("The telephone of somebody"), StartsWith(pseudonyms.name("The telephone of so")));
}

TEST(Names, StayWhatListsTellThemApartBy) {
  const Pseudonyms pseudonyms(SALT);
  TextsByChance texts;
  std::map<std::string, std::string> nameOf;
  for (int k = 0; k < 3000; ++k) {
    const std::string text = texts.next();

    const std::string name = pseudonyms.name(text);

    ASSERT_EQ(classesOf(name), classesOf(text));
    ASSERT_EQ(isUtf8(name), isUtf8(text)) << testing::PrintToString(text);
    for (const char* number : {" 2", " 17", " 255"}) {
      ASSERT_EQ(pseudonyms.name(text + number), name + number);
    }
    nameOf[text] = name;
  }
  std::set<std::string> names;
  for (const auto& [text, name] : nameOf) {
    names.insert(name);
  }
  EXPECT_EQ(names.size(), nameOf.size());
}

TEST(Names, OfOneLetterDoNotBecomeEqual) {
  const Pseudonyms pseudonyms(SALT);
  std::set<std::string> names;

  for (char letter = 'a'; letter <= 'z'; ++letter) {
    names.insert(pseudonyms.name(std::string(1, letter)));
  }

  EXPECT_EQ(names.size(), 26U);
}

TEST(AnAddress, StaysOne) {
  const Pseudonyms pseudonyms(SALT);

  const std::string address = pseudonyms.address("00:00:5E:00:53:03");

  EXPECT_NE(address, "00:00:5E:00:53:03");
  EXPECT_EQ(address.find_first_not_of("0123456789ABCDEF:"), std::string::npos) << address;
  EXPECT_EQ(classesOf(address), classesOf("00:00:5E:00:53:03"));
}

TEST(AnIdentifierOfCarPlay, KeepsWhatItSaysOfUsbAndWhetherThereIsOne) {
  const Pseudonyms pseudonyms(SALT);
  constexpr std::uint64_t BIT = std::uint64_t{1} << 41U;
  std::set<std::uint64_t> others;

  for (std::uint64_t number = 1; number <= 2000; ++number) {
    const std::uint64_t identifier = number % 2 == 0 ? number | BIT : number;
    const std::uint64_t other = pseudonyms.cpDeviceId(identifier);
    ASSERT_NE(other, 0U);
    ASSERT_EQ(other & BIT, identifier & BIT);
    others.insert(other);
  }

  EXPECT_EQ(others.size(), 2000U);
  EXPECT_EQ(pseudonyms.cpDeviceId(0), 0U);
}

TEST(Salts, AreOthersEachTime) { EXPECT_NE(Pseudonyms().name("A telephone"), Pseudonyms().name("A telephone")); }

}  // namespace
