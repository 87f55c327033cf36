// SPDX-License-Identifier: Apache-2.0
// The CarPlay service's resource, of any bytes and any length.
#include "CpIntegratedDeviceList.h"
#include "fuzz/Fuzzing.h"

using namespace fuzzing;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Object object("/LmSCarplayResource", 13736);
  static CpIntegratedDeviceList adapter;
  const std::string bytes = object.hold(input(data, size));
  const std::uint64_t current = numberAt(bytes, 1072, 8);
  const bool isUsbAttached = (numberAt(bytes, 1076, 4) >> 9 & 1) != 0;
  Lists expected;
  for (std::size_t slot = 0, at = 1800; slot < 11 && at + 296 <= bytes.size(); ++slot, at += 296) {
    const std::uint64_t identifier = numberAt(bytes, at, 8);
    if (identifier == 0 || byteAt(bytes, at + 269) == 0) {
      continue;
    }
    const unsigned btid = byteAt(bytes, at + 264) == 0 ? 255 : byteAt(bytes, at + 264);
    const std::int32_t port = identifier == current || isUsbAttached ? 1 : 0;
    const unsigned session = byteAt(bytes, at + 265) != 0 ? 1 : byteAt(bytes, at + 266);
    const std::string name = textAt(bytes, at + 8, 256);
    expected.add(phoneText(name, btid, port, session, std::to_string(identifier), bytes.substr(at, 296)), btid, port);
  }
  requireLists(adapter, expected, [](const auto& device) {
    return std::string(reinterpret_cast<const char*>(&device.cpDevice), sizeof device.cpDevice);
  });
  return 0;
}
