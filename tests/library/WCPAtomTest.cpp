// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "IntegratedDeviceList/WCPAtom.h"
#include "support/RawSegment.h"

namespace {

using cps_def::WCPAtom;
using ::testing::Each;

static_assert(sizeof(WCPAtom) == 296 && alignof(WCPAtom) == 8);
static_assert(std::is_trivially_copyable_v<WCPAtom> && !std::is_polymorphic_v<WCPAtom>);

// A record in which every byte differs from its neighbours.
std::string countingBytes() {
  std::string bytes;
  for (unsigned i = 0; i < 296; ++i) {
    bytes += static_cast<char>(static_cast<unsigned char>(i * 7 + 3));
  }
  return bytes;
}

std::string bytesOf(const WCPAtom& atom) { return {reinterpret_cast<const char*>(&atom), sizeof(atom)}; }

TEST(AWCPAtom, IsReadFromItsBytes) {
  std::string bytes(296, '\0');
  bytes.replace(0, 8, RawSegment::littleEndian(0x1122334455667788, 8));
  bytes.replace(8, 5, "Phone");
  bytes[264] = 1;
  bytes[265] = 2;
  bytes[266] = 3;
  bytes[267] = 4;
  bytes[268] = 5;
  bytes[269] = 6;
  bytes[270] = 7;
  bytes[295] = 8;
  WCPAtom atom;

  std::memcpy(&atom, bytes.data(), bytes.size());

  EXPECT_EQ(atom.identifier, 0x1122334455667788U);
  EXPECT_STREQ(atom.name, "Phone");
  EXPECT_EQ(atom.btid, 1);
  EXPECT_EQ(atom.inSession, 2);
  EXPECT_EQ(atom.session, 3);
  EXPECT_EQ(atom.reserved1[0], 4);
  EXPECT_EQ(atom.reserved1[1], 5);
  EXPECT_EQ(atom.valid, 6);
  EXPECT_EQ(atom.reserved2[0], 7);
  EXPECT_EQ(atom.reserved2[25], 8);
}

TEST(AWCPAtom, CarriesAllItsBytesAlongInACopy) {
  const std::string bytes = countingBytes();
  WCPAtom atom;
  std::memcpy(&atom, bytes.data(), bytes.size());

  WCPAtom copy = {};
  copy = atom;

  EXPECT_EQ(bytesOf(copy), bytes);
}

TEST(AWCPAtom, IsAllZeroWhenValueInitialised) {
  const WCPAtom atom = {};

  EXPECT_THAT(bytesOf(atom), Each('\0'));
}

}  // namespace
