// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "LmFramework/LmString.h"

namespace {

static_assert(LmString::EN_CP_UTF8 == 32);

constexpr int UNKNOWN_CODE_PAGE = 7;

TEST(ANewString, IsEmpty) { EXPECT_STREQ(LmString().ToCHAR(32), ""); }

TEST(ANewString, CountsNullAsEmpty) { EXPECT_STREQ(LmString(nullptr, 32).ToCHAR(32), ""); }

TEST(ANewString, KeepsACopyOfItsText) {
  char text[] = "/";
  const LmString string(text, LmString::EN_CP_UTF8);

  text[0] = 'x';

  EXPECT_STREQ(string.ToCHAR(LmString::EN_CP_UTF8), "/");
}

TEST(AString, TakesOnTextsAndStrings) {
  LmString string("/", 32);

  LmString& result = (string += "BtPaired") += LmString("DeviceList", 32);

  EXPECT_EQ(&result, &string);
  EXPECT_STREQ(string.ToCHAR(32), "/BtPairedDeviceList");
}

TEST(AString, TakesOnItself) {
  LmString string("ab", 32);

  string += string;

  EXPECT_STREQ(string.ToCHAR(32), "abab");
}

TEST(AString, StaysAsItIsWhenNothingIsAdded) {
  LmString string("/", 32);

  string += static_cast<const char*>(nullptr);
  string += "";
  string += LmString();

  EXPECT_STREQ(string.ToCHAR(32), "/");
}

TEST(AString, GivesEveryByteBackInEveryCodePage) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }

  EXPECT_EQ(LmString(bytes.c_str(), 32).ToCHAR(32), bytes);
  EXPECT_EQ(LmString(bytes.c_str(), UNKNOWN_CODE_PAGE).ToCHAR(UNKNOWN_CODE_PAGE), bytes);
}

TEST(AString, IsCopiedWhole) {
  LmString original("one", 32);
  const LmString copy = original;

  original += "two";

  EXPECT_STREQ(copy.ToCHAR(32), "one");
}

}  // namespace
