// SPDX-License-Identifier: Apache-2.0
// The Android Auto service's table, of any bytes and any length.
#include "AapIntegratedDeviceList.h"
#include "fuzz/Fuzzing.h"

using namespace fuzzing;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Object object("/AapDeviceList", 6292);
  static AapIntegratedDeviceList adapter;
  const std::string bytes = object.hold(input(data, size));
  Lists expected;
  for (std::size_t at = 4; at + 524 <= bytes.size(); at += 524) {
    const std::string id = textAt(bytes, at + 262, 257);
    const unsigned btid = byteAt(bytes, at + 519);
    const auto port = static_cast<std::int32_t>(numberAt(bytes, at + 520, 4));
    if (!id.empty()) {
      const std::string name = textAt(bytes, at + 5, 257);
      // Session, name, identifier, Bluetooth id and port.
      expected.add(phoneText(name, btid, port, byteAt(bytes, at + 4), id, bytes.substr(at + 4, 520)), btid, port);
    }
  }
  requireLists(adapter, expected, [](const auto& device) {
    const auto& record = device.aapDevice;
    return RawSegment::littleEndian(record.session, 1) + std::string(record.name, 257) + std::string(record.id, 257) +
           RawSegment::littleEndian(record.btid, 1) +
           RawSegment::littleEndian(static_cast<std::uint32_t>(record.port), 4);
  });
  return 0;
}
