// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>

#include "tools/recording/KeyedHash.h"

namespace {

using idl::tools::recording::KeyedHash;
using idl::tools::recording::sipHash;

constexpr std::uint64_t KEYS[2] = {0x0706050403020100, 0x0f0e0d0c0b0a0908};

std::string bytesUpTo(int end) {
  std::string bytes;
  for (char byte = 0; byte < end; ++byte) {
    bytes += byte;
  }
  return bytes;
}

TEST(SipHash, GivesTheNumbersOfItsAuthors) {
  EXPECT_EQ(sipHash(KEYS, ""), 0x726fdb47dd0e0e31U);
  EXPECT_EQ(sipHash(KEYS, bytesUpTo(1)), 0x74f839c593dc67fdU);
  EXPECT_EQ(sipHash(KEYS, bytesUpTo(8)), 0x93f5f5799a932462U);
  EXPECT_EQ(sipHash(KEYS, bytesUpTo(15)), 0xa129ca6149be45e5U);
}

TEST(AKeyedHash, HangsOnKeyWordAndBytes) {
  const std::uint64_t number = KeyedHash("key", "word", "bytes").next();

  EXPECT_EQ(KeyedHash("key", "word", "bytes").next(), number);
  EXPECT_NE(KeyedHash("kex", "word", "bytes").next(), number);
  EXPECT_NE(KeyedHash("key", "wore", "bytes").next(), number);
  EXPECT_NE(KeyedHash("key", "word", "byter").next(), number);
}

}  // namespace
