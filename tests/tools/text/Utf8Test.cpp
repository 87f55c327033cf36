// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "tools/text/Utf8.h"

using idl::tools::appendUtf8;
using idl::tools::isUtf8;
using idl::tools::utf8At;

TEST(AText, IsReadCharacterByCharacter) {
  const std::string text = "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80";

  EXPECT_EQ(utf8At(text, 0).character, U'a');
  EXPECT_EQ(utf8At(text, 1).character, U'\u00e9');
  EXPECT_EQ(utf8At(text, 3).character, U'\u20ac');
  EXPECT_EQ(utf8At(text, 6).character, U'\U0001f600');
  EXPECT_EQ(utf8At(text, 6).length, 4U);
}

class BytesThatAreNoUtf8 : public testing::TestWithParam<std::string> {};

TEST_P(BytesThatAreNoUtf8, AreReadByteByByte) {
  const auto unit = utf8At(GetParam(), 0);

  EXPECT_FALSE(unit.isCharacter);
  EXPECT_EQ(unit.length, 1U);
  EXPECT_FALSE(isUtf8("good" + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(, BytesThatAreNoUtf8,
                         testing::Values("\xff", "\x80", "\xc3", "\xc3(", "\xe2\x82", "\xf0\x9f\x98",
                                         "\xc0\xaf",          // a slash, overlong
                                         "\xe0\x80\xaf",      // the same, longer still
                                         "\xed\xa0\x80",      // a surrogate
                                         "\xf4\x90\x80\x80",  // beyond the last character
                                         "\xf8\x88\x80\x80\x80"));

TEST(AText, MayHoldANul) {
  EXPECT_TRUE(isUtf8(std::string("a\0b", 3)));
  EXPECT_TRUE(utf8At(std::string("\0", 1), 0).isCharacter);
}

TEST(ACharacter, IsAppendedAsItIsRead) {
  for (const char32_t character : {U'\x01', U'a', U'\u00e9', U'\u20ac', U'\uffff', U'\U0010ffff'}) {
    std::string text;
    appendUtf8(text, character);

    const auto unit = utf8At(text, 0);
    EXPECT_EQ(unit.character, character);
    EXPECT_EQ(unit.length, text.size());
  }
}
