// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "tools/text/JsonText.h"

using idl::tools::decimal;
using idl::tools::jsonText;
using idl::tools::setText;

TEST(ANameInUtf8, GoesToJsonAsItIs) {
  nlohmann::json object;

  setText(object, "name", "T\xc3\xa9l \"a\"\n");

  EXPECT_EQ(object["name"], "T\xc3\xa9l \"a\"\n");
  EXPECT_FALSE(object.contains("nameHex"));
}

TEST(ANameThatIsNoUtf8, GoesToJsonWithAllItsBytesBeside) {
  nlohmann::json object;

  setText(object, "name", "a\xff\xc3z");

  EXPECT_EQ(object["name"], "a\xef\xbf\xbd\xef\xbf\xbdz");
  EXPECT_EQ(object["nameHex"], "61ffc37a");
}

TEST(ANameThatIsNoUtf8, LeavesNoBytesBehindWhenItIsReplaced) {
  nlohmann::json object;
  setText(object, "name", "\xff");

  setText(object, "name", "good");

  EXPECT_EQ(jsonText(object, -1), R"({"name":"good"})");
}

TEST(ANumberOf64Bits, IsAText) {
  EXPECT_EQ(decimal(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(decimal(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
}

TEST(AJsonText, HasItsKeysInOrderAndSteersNoTerminal) {
  nlohmann::json object;
  object["z"] = 1;
  object["a"] =
      "\xc2\x9b"
      "31m\xe2\x80\xae\x1b";

  const std::string text = jsonText(object, -1);

  EXPECT_EQ(text, "{\"a\":\"\\u009b31m\\u202e\\u001b\",\"z\":1}");
  EXPECT_EQ(nlohmann::json::parse(text), object);
}

TEST(AJsonText, IsIndented) {
  nlohmann::json object;
  object["a"] = 1;

  EXPECT_EQ(jsonText(object), "{\n  \"a\": 1\n}");
}
