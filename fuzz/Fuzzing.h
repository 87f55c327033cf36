// SPDX-License-Identifier: Apache-2.0
#ifndef FUZZ_FUZZING_H
#define FUZZ_FUZZING_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "support/RawSegment.h"

/// What is handed to a target: libFuzzer's input, or a file of the corpus.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzzing {

using Texts = std::vector<std::string>;

/// Ends the process, which is how a finding is made known, unless `holds`.
inline void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

inline std::string input(const std::uint8_t* data, std::size_t size) { return std::string(data, data + size); }

/// The text in a field of `size` bytes: up to its NUL, or all of it.
inline std::string textAt(const std::string& bytes, std::size_t at, std::size_t size) {
  const std::string field = bytes.substr(at, size);
  return field.substr(0, field.find('\0'));
}

inline unsigned byteAt(const std::string& bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

/// A little-endian number of so many bytes; 0 where `bytes` do not reach that far.
inline std::uint64_t numberAt(const std::string& bytes, std::size_t at, unsigned width) {
  std::uint64_t number = 0;
  for (unsigned i = width; i > 0 && at + width <= bytes.size(); --i) {
    number = number << 8 | byteAt(bytes, at + i - 1);
  }
  return number;
}

/// A shared-memory object that holds one input after the other, cut at the size of its table.
class Object {
 public:
  Object(const char* name, std::size_t maxSize) : mSegment(name, maxSize), mMaxSize(maxSize) {}

  /// The bytes that it then has.
  std::string hold(const std::string& bytes) {
    std::string held = bytes.substr(0, mMaxSize);
    mSegment.resize(held.size());
    mSegment.put(0, held);
    return held;
  }

 private:
  RawSegment mSegment;
  const std::size_t mMaxSize;
};

/// All that a list says of a phone. The record of its source has to be the very bytes of its slot.
inline std::string phoneText(const std::string& name, unsigned btid, std::int32_t port, unsigned session,
                             const std::string& identifier, const std::string& record) {
  return name + "|" + std::to_string(btid) + "|" + std::to_string(port) + "|" + std::to_string(session) + "|" +
         identifier + "|" + record;
}

/// What the two lists of an adapter are to hold.
struct Lists {
  Texts paired;
  Texts usb;

  void add(const std::string& text, unsigned btid, std::int32_t port) {
    if (btid != 255) {
      paired.push_back(text);
    } else if (port > 0) {
      usb.push_back(text);
    }
  }
};

/// Reads twice and compares, each time, with what the bytes say.
template <class Adapter, class Record>
void requireLists(Adapter& adapter, const Lists& expected, Record record) {
  for (int reading = 0; reading < 2; ++reading) {
    adapter.updateDeviceList();
    for (const bool isPaired : {true, false}) {
      std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> devices;
      isPaired ? adapter.getBtDeviceList(devices) : adapter.getUsbDeviceList(devices);
      Texts found;
      for (const auto& device : devices) {
        const std::string identifier = device.cpDeviceId != 0 ? std::to_string(device.cpDeviceId) : device.aapId;
        found.push_back(phoneText(device.name, device.btid, device.port, device.session, identifier, record(device)));
      }
      require(found == (isPaired ? expected.paired : expected.usb), "a list is what the table's bytes say");
    }
  }
}

}  // namespace fuzzing

#endif
