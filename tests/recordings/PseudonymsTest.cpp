// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <random>
#include <regex>
#include <set>

#include "SuffixRecord.h"
#include "tools/recording/Pseudonyms.h"
#include "tools/text/Utf8.h"

namespace {

using idl::tools::isUtf8;
using idl::tools::recording::Event;
using idl::tools::recording::Pseudonyms;
using testing::EndsWith;
using testing::HasSubstr;
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

// Bytes of other encodings had all stayed.
TEST(AName, ThatIsNoUtf8KeepsNoTwoNeighboursAboveAscii) {
  const std::vector<std::string> names = {
      "\xd5\xc5\xc8\xfd",              // GBK
      "\xc0\xee\xc3\xf7",              // GBK
      "\xc2\xb3\xd0\xa1\xc3\xf7",      // GBK, which begins as UTF-8 does
      "\xcd\xf5\xd0\xa1\xc3\xf7",      // GBK
      "\xb1\xe8\xbf\xb5\xc8\xf1",      // EUC-KR
      "\x83\x74\x83\x48\x83\x93",      // Shift-JIS
      "\xc4nne",                       // Latin-1
      "M\xfcller",                     // Latin-1
      "\xcf\xe0\xf0\xe8\xff",          // Windows-1251
      "\xe2\x80\x99\xff\xe2\x80\x99",  // UTF-8 all but one byte
  };
  constexpr int SALTS = 40;
  for (const std::string& name : names) {
    // Each byte may become itself by chance; what stays with all salts has stayed.
    std::string stayed(name.size(), 'x');
    for (int salt = 0; salt < SALTS; ++salt) {
      const std::string other = Pseudonyms("salt " + std::to_string(salt)).name(name);
      ASSERT_EQ(classesOf(other), classesOf(name));
      ASSERT_FALSE(isUtf8(other)) << testing::PrintToString(other);
      for (std::size_t k = 0; k < name.size(); ++k) {
        stayed[k] = other[k] == name[k] ? stayed[k] : '.';
      }
    }
    for (std::size_t k = 0; k < name.size(); ++k) {
      const bool isAscii = static_cast<unsigned char>(name[k]) < 0x80;
      const bool hasNeighbour = k > 0 && stayed[k - 1] == 'x';
      EXPECT_FALSE(stayed[k] == 'x' && (isAscii ? std::isalpha(name[k]) != 0 : hasNeighbour))
          << testing::PrintToString(name) << ' ' << stayed;
    }
  }
  EXPECT_NE(Pseudonyms(SALT).name("\xd5\xc5\xc8\xfd"), "\xd5\xc5\xc8\xfd");
}

TEST(AName, ThatIsNoUtf8AndWasCutIsStillTheBeginningOfTheWholeOne) {
  const Pseudonyms pseudonyms(SALT);
  const std::string whole = "\xcd\xf5\xd0\xa1\xc3\xf7\xb5\xc4\xca\xd6\xbb\xfa";

  for (std::size_t length = 2; length < whole.size(); ++length) {
    EXPECT_THAT(pseudonyms.name(whole), StartsWith(pseudonyms.name(whole.substr(0, length))));
  }
}

TEST(Names, OfTwoBytesDoNotBecomeEqual) {
  const Pseudonyms pseudonyms(SALT);
  std::set<std::string> names;

  for (unsigned first = 0x7F; first <= 0xFF; ++first) {
    for (unsigned second = 0x7F; second <= 0xFF; ++second) {
      const std::string text = {static_cast<char>(first), static_cast<char>(second)};
      const std::string name = pseudonyms.name(text);
      ASSERT_EQ(isUtf8(name), isUtf8(text)) << testing::PrintToString(text);
      ASSERT_EQ(classesOf(name), classesOf(text));
      names.insert(name);
    }
  }

  EXPECT_EQ(names.size(), 129U * 129U);
}

TEST(AName, KeepsTheNumberAtItsEnd) {
  const Pseudonyms pseudonyms(SALT);

  EXPECT_EQ(pseudonyms.name("iPhone 2"), pseudonyms.name("iPhone") + " 2");
  EXPECT_EQ(pseudonyms.name("iPhone 2 3"), pseudonyms.name("iPhone") + " 2 3");
  EXPECT_EQ(pseudonyms.name("Pixel7 33"), pseudonyms.name("Pixel7") + " 33");
  EXPECT_EQ(pseudonyms.name("Phone 030 2"), pseudonyms.name("Phone 030") + " 2");
  EXPECT_THAT(pseudonyms.name("Pixel7"), EndsWith("7"));
  EXPECT_THAT(pseudonyms.name("Phone 255"), EndsWith(" 255"));
  EXPECT_EQ(pseudonyms.name(""), "");
}

// Numbers of up to three digits had all stayed, and with them one of a telephone that is written in groups.
TEST(AName, LosesATelephoneNumber) {
  const Pseudonyms pseudonyms(SALT);

  for (const char* number : {"01701234567", "030 123 456 78", "030 123 456", "0170-123 45 67", "06 12 34 56 78",
                             "+49 30 12 34 5", "0 3 0 1 2 3 4", "112233"}) {
    EXPECT_THAT(pseudonyms.name(std::string("Anna ") + number), Not(HasSubstr(number)));
  }
  const std::string name = pseudonyms.name("Anna 030 123 456 78");
  EXPECT_THAT(name, EndsWith(" 78"));
  EXPECT_THAT(name, Not(HasSubstr("123")));
  EXPECT_THAT(name, Not(HasSubstr("456")));
}

TEST(AName, GetsNoNumberAtItsEndThatItDidNotHave) {
  const Pseudonyms pseudonyms(SALT);
  const auto isKept = [](const std::string& digits) { return digits.front() != '0' && std::stoul(digits) <= 255; };
  std::set<std::string> names;
  for (unsigned numbers = 10; numbers <= 1000; numbers *= 10) {
    for (unsigned number = 0; number < numbers; ++number) {
      const std::string digits = std::to_string(numbers + number).substr(1);

      const std::string name = pseudonyms.name("Phone " + digits);

      const std::string others = name.substr(name.size() - digits.size());
      ASSERT_EQ(isKept(others), isKept(digits)) << name;
      ASSERT_TRUE(others == digits || !isKept(digits)) << name;
      names.insert(name);
    }
  }
  EXPECT_EQ(names.size(), 1110U);
}

TEST(AName, OfHalfAMegabyteTakesNoTime) {
  const std::string name = Pseudonyms(SALT).name(std::string(1 << 19, 'x'));

  EXPECT_EQ(name.size(), std::size_t{1} << 19U);
}

TEST(AName, ThatWasCutIsStillTheBeginningOfTheWholeOne) {
  const Pseudonyms pseudonyms(SALT);

  EXPECT_THAT(pseudonyms.name("The telephone of somebody"), StartsWith(pseudonyms.name("The telephone of so")));
}

TEST(Names, StayWhatListsTellThemApartBy) {
  const Pseudonyms pseudonyms(SALT);
  const std::regex twoNumbers("[0-9] [0-9]+$");
  TextsByChance texts;
  std::map<std::string, std::string> nameOf;
  for (int k = 0; k < 3000; ++k) {
    const std::string text = texts.next();

    const std::string name = pseudonyms.name(text);

    ASSERT_EQ(classesOf(name), classesOf(text));
    ASSERT_EQ(isUtf8(name), isUtf8(text)) << testing::PrintToString(text);
    for (const char* number : {" 2", " 17", " 33"}) {
      if (!std::regex_search(text, twoNumbers)) {
        ASSERT_EQ(pseudonyms.name(text + number), name + number) << testing::PrintToString(text);
      }
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

class ASavedTable : public testing::Test {
 protected:
  ASavedTable() {
    put(0, {1, 4, "iPhone", 1});
    put(1, {1, 5, "iPhone", 2});
    put(2, {1, 6, "", 1});
    std::memset(mImage[3].name, 'x', sizeof(mImage[3].name));
    mImage[3].inUse = 1;
    std::memcpy(mImage[0].name + 10, "SECRET", 6);  // behind the end
    std::memcpy(mImage[5].name, "SECRET", 6);       // in a record that nobody reads
  }

  void put(std::size_t at, const SuffixRecord& record) { mImage.at(at) = record; }

  std::string bytes() const { return {reinterpret_cast<const char*>(mImage.data()), sizeof(mImage)}; }

  std::string other(const std::string& bytes) const {
    Event event;
    event.kind = Event::Kind::SAVED;
    event.saved.state = idl::tools::SavedTableCopy::State::READ;
    event.saved.bytes = bytes;
    return mPseudonyms.event(event).saved.bytes;
  }

  SuffixFileImage mImage = {};
  const Pseudonyms mPseudonyms{SALT};
};

TEST_F(ASavedTable, HasOtherNamesWithTheSameNumbers) {
  const std::string others = other(bytes());

  SuffixFileImage image = {};
  ASSERT_EQ(others.size(), sizeof(image));
  std::memcpy(image.data(), others.data(), sizeof(image));
  EXPECT_EQ(std::string(image[0].name), mPseudonyms.name("iPhone"));
  EXPECT_EQ(std::string(image[1].name), mPseudonyms.name("iPhone"));
  EXPECT_EQ(std::string(image[2].name), "");
  EXPECT_EQ(std::string(image[3].name, sizeof(image[3].name)), mPseudonyms.name(std::string(260, 'x')));
  for (std::size_t k = 0; k < image.size(); ++k) {
    EXPECT_EQ(image[k].inUse, mImage[k].inUse);
    EXPECT_EQ(image[k].btid, mImage[k].btid);
    EXPECT_EQ(image[k].suffix, mImage[k].suffix);
  }
  EXPECT_THAT(others, Not(HasSubstr("SECRET")));
}

TEST_F(ASavedTable, StaysAsLongAsItWas) {
  const std::string whole = other(bytes());
  for (std::size_t length = 0; length <= bytes().size() + 1; ++length) {
    std::string cut = bytes();
    cut.resize(length);

    ASSERT_EQ(other(cut).size(), length);
  }
  EXPECT_EQ(other(bytes() + 'x').substr(0, whole.size()), whole);
}

TEST(Salts, AreOthersEachTime) { EXPECT_NE(Pseudonyms().name("A telephone"), Pseudonyms().name("A telephone")); }

}  // namespace
