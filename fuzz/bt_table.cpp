// SPDX-License-Identifier: Apache-2.0
// The Bluetooth service's table, of any bytes and any length.
#include "BtIntegratedDeviceList.h"
#include "fuzz/Fuzzing.h"

using namespace fuzzing;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Object object("/BtPairedDeviceList", 1124);
  static BtIntegratedDeviceList adapter;
  const std::string bytes = object.hold(input(data, size));
  Lists expected;
  for (std::size_t at = 4; at + 112 <= bytes.size(); at += 112) {
    const unsigned id = byteAt(bytes, at + 4);
    if (id != 255) {
      // Id, name, address, info and flags.
      expected.add(phoneText(textAt(bytes, at + 5, 81), id, 0, 0, "", bytes.substr(at + 4, 106)), id, 0);
    }
  }
  requireLists(adapter, expected, [](const auto& device) {
    const auto& record = device.btDevice;
    return RawSegment::littleEndian(record.id, 1) + std::string(record.name, 81) + std::string(record.address, 18) +
           RawSegment::littleEndian(record.info, 4) + RawSegment::littleEndian(record.flag1, 1) +
           RawSegment::littleEndian(record.flag2, 1);
  });
  return 0;
}
