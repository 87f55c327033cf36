// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <system_error>
#include <vector>

#include "IntegratedDeviceList/idl.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using ::testing::ElementsAre;

IntegratedDevice device(std::uint8_t btid, std::int32_t port) {
  IntegratedDevice made;
  made.btid = btid;
  made.port = port;
  return made;
}

DeviceInfo info(std::uint8_t btid, std::int32_t port) { return static_cast<const DeviceInfo&>(device(btid, port)); }

/// What a function writes to descriptor 1.
template <class Function>
std::string printedBy(const Function& function) {
  std::fflush(stdout);
  std::FILE* const file = std::tmpfile();
  const int saved = dup(STDOUT_FILENO);
  if (file == nullptr || saved < 0 || dup2(fileno(file), STDOUT_FILENO) < 0) {
    throw std::system_error(errno, std::generic_category(), "standard output cannot be caught");
  }
  function();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string text;
  std::rewind(file);
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
    text += static_cast<char>(byte);
  }
  std::fclose(file);
  return text;
}

TEST(IsBtPaired, IsFalseForExactly255) {
  for (unsigned btid = 0; btid <= 255; ++btid) {
    const auto byte = static_cast<std::uint8_t>(btid);

    EXPECT_EQ(idl::isBtPaired(device(byte, 0)), btid != 255) << btid;
    EXPECT_EQ(idl::isBtPaired(info(byte, 0)), btid != 255) << btid;
  }
}

TEST(IsBtPaired, TakesTheId254ForPaired) {
  EXPECT_TRUE(idl::isBtPaired(device(254, 0)));
  EXPECT_TRUE(idl::isBtPaired(info(254, 0)));
}

TEST(IsUsbConnected, IsTrueForAnyPortButZero) {
  for (const std::int32_t port : {1, 2, 65536, INT32_MAX, -1, -65536, INT32_MIN}) {
    EXPECT_TRUE(idl::isUsbConnected(device(255, port))) << port;
    EXPECT_TRUE(idl::isUsbConnected(info(255, port))) << port;
  }
  EXPECT_FALSE(idl::isUsbConnected(device(3, 0)));
  EXPECT_FALSE(idl::isUsbConnected(info(3, 0)));
}

TEST(IsUsbConnected, TakesThePortMinusOneForConnected) { EXPECT_TRUE(idl::isUsbConnected(device(255, -1))); }

TEST(IsUsbConnectedOnly, IsTrueWhenConnectedAndNotPaired) {
  EXPECT_TRUE(idl::isUsbConnectedOnly(device(255, 1)));
  EXPECT_TRUE(idl::isUsbConnectedOnly(info(255, 1)));
  EXPECT_TRUE(idl::isUsbConnectedOnly(device(255, -1)));
  EXPECT_TRUE(idl::isUsbConnectedOnly(info(255, INT32_MIN)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(device(255, 0)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(info(255, 0)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(device(0, 0)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(info(0, 0)));
}

TEST(IsUsbConnectedOnly, IsFalseWhenPairedAndConnected) {
  EXPECT_FALSE(idl::isUsbConnectedOnly(device(0, 1)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(info(0, 1)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(device(254, -1)));
  EXPECT_FALSE(idl::isUsbConnectedOnly(info(254, -1)));
}

TEST(IsAapDevice, IsTrueForTheTypeTwoAlone) {
  for (const std::int32_t type : {0, 1, 2, 3, 258, -1, INT32_MIN}) {
    IntegratedDevice record = device(3, 4);
    record.type = static_cast<DeviceType>(type);
    const DeviceInfo& header = record;

    EXPECT_EQ(idl::isAAPDevice(record), type == 2) << type;
    EXPECT_EQ(idl::isAAPDevice(header), type == 2) << type;
  }
}

TEST(CompareBtDeviceId, OrdersUnsignedBytes) {
  EXPECT_TRUE(idl::compareBtDeviceId(device(0, 0), device(1, 0)));
  EXPECT_FALSE(idl::compareBtDeviceId(device(1, 0), device(0, 0)));
  EXPECT_TRUE(idl::compareBtDeviceId(device(127, 0), device(128, 0)));
  EXPECT_TRUE(idl::compareBtDeviceId(device(254, 0), device(255, 0)));
  EXPECT_FALSE(idl::compareBtDeviceId(device(255, 0), device(0, 0)));
}

TEST(CompareBtDeviceId, TakesTwoUnpairedRecordsForEqual) {
  IntegratedDevice a = device(255, 1);
  IntegratedDevice b = device(255, 2);
  a.name = "a";
  b.name = "b";

  EXPECT_FALSE(idl::compareBtDeviceId(a, b));
  EXPECT_FALSE(idl::compareBtDeviceId(b, a));
}

TEST(CompareUsbPort, OrdersSignedNumbers) {
  std::vector<IntegratedDevice> list;
  for (const std::int32_t port : {1, INT32_MAX, 0, -1, INT32_MIN, 2}) {
    list.push_back(device(255, port));
  }

  std::stable_sort(list.begin(), list.end(), idl::compareUsbPort);

  std::vector<std::int32_t> ports;
  ports.reserve(list.size());
  for (const IntegratedDevice& record : list) {
    ports.push_back(record.port);
  }
  EXPECT_THAT(ports, ElementsAre(INT32_MIN, -1, 0, 1, 2, INT32_MAX));
}

TEST(CompareUsbPort, PutsMinusOneBeforeZero) {
  EXPECT_TRUE(idl::compareUsbPort(device(255, -1), device(255, 0)));
  EXPECT_FALSE(idl::compareUsbPort(device(255, 0), device(255, -1)));
}

TEST(CompareUsbPort, TakesOnePortForEqualWhateverTheId) {
  EXPECT_FALSE(idl::compareUsbPort(device(1, 5), device(2, 5)));
  EXPECT_FALSE(idl::compareUsbPort(device(2, 5), device(1, 5)));
}

TEST(PrintDeviceList, PrintsNothingForAnEmptyList) {
  EXPECT_EQ(printedBy([] { idl::printDeviceList({}); }), "");
}

TEST(PrintDeviceList, PrintsALineForEachDevice) {
  std::vector<IntegratedDevice> list(2);
  list[0].name = "Phone";
  list[0].btid = 3;
  list[1].type = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
  list[1].name = "Other phone 12";
  list[1].port = 4;
  list[1].session = 9;
  list[1].suffix = 12;

  const std::string printed = printedBy([&] { idl::printDeviceList(list); });

  EXPECT_EQ(printed,
            " 1/ 2: type=0, btid=  3, port=0, session=0, suffix= 0, name=Phone\n"
            " 2/ 2: type=2, btid=255, port=4, session=9, suffix=12, name=Other phone 12\n");
}

TEST(PrintDeviceList, PrintsExtremeValuesAndNamesAsTheyAre) {
  std::vector<IntegratedDevice> list(1);
  list[0].type = static_cast<DeviceType>(-5);
  list[0].name = "100%s\t\xFF";
  list[0].btid = 0;
  list[0].port = INT32_MIN;
  list[0].session = 255;
  list[0].suffix = 255;

  const std::string printed = printedBy([&] { idl::printDeviceList(list); });

  EXPECT_EQ(printed, " 1/ 1: type=-5, btid=  0, port=-2147483648, session=255, suffix=255, name=100%s\t\xFF\n");
}

TEST(PrintDeviceList, LetsWideNumbersGrow) {
  const std::vector<IntegratedDevice> list(100);

  const std::string printed = printedBy([&] { idl::printDeviceList(list); });

  EXPECT_EQ(printed.substr(0, 8), " 1/100: ");
  EXPECT_EQ(printed.substr(printed.rfind("100/100"), 9), "100/100: ");
}

}  // namespace
