// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_PHONETABLES_H
#define TESTS_SUPPORT_PHONETABLES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "support/RawSegment.h"

/// A segment as the service that owns it writes it: with its final size, its size word set, and zeros behind at first.
class PhoneTable : public RawSegment {
 public:
  PhoneTable(const std::string& name, std::uint32_t payloadOffset, std::uint32_t payloadSize)
      : RawSegment(name, payloadOffset + payloadSize) {
    put32(0, payloadSize);
  }

  /// A text field of `size` bytes: `text` and zeros.
  void putField(std::size_t offset, std::size_t size, const std::string& text) {
    std::string field = text;
    field.resize(size, '\0');
    put(offset, field);
  }
};

/// Ten free slots at first.
class BtTable : public PhoneTable {
 public:
  BtTable() : PhoneTable("/BtPairedDeviceList", 4, 1120) {
    for (unsigned slot = 0; slot < 10; ++slot) {
      clear(slot);
    }
  }

  void clear(unsigned slot) { put8(4 + 112 * slot + 4, 255); }

  void phone(unsigned slot, unsigned id, const std::string& name) {
    putField(4 + 112 * slot + 5, 81, name);
    put8(4 + 112 * slot + 4, id);
  }
};

/// Twelve free slots at first.
class AapTable : public PhoneTable {
 public:
  AapTable() : PhoneTable("/AapDeviceList", 4, 6288) {}

  void clear(unsigned slot) { putField(4 + 524 * slot + 262, 257, ""); }

  void phone(unsigned slot, const std::string& name, const std::string& id, unsigned btid, std::int32_t port,
             unsigned session = 0) {
    put8(4 + 524 * slot + 4, session);
    putField(4 + 524 * slot + 5, 257, name);
    putField(4 + 524 * slot + 262, 257, id);
    put8(4 + 524 * slot + 519, btid);
    put32(4 + 524 * slot + 520, static_cast<std::uint32_t>(port));
  }
};

/// Initialised, eleven free slots and no connected phone at first.
class CpTable : public PhoneTable {
 public:
  CpTable() : PhoneTable("/LmSCarplayResource", 8, 13728) { put8(13732, 1); }

  void clear(unsigned slot) { putField(1800 + 296 * slot, 296, ""); }

  void phone(unsigned slot, std::uint64_t identifier, const std::string& name, unsigned btid) {
    put64(1800 + 296 * slot, identifier);
    putField(1800 + 296 * slot + 8, 256, name);
    put8(1800 + 296 * slot + 264, btid);
    put8(1800 + 296 * slot + 269, 1);
  }

  /// The connected phone; 0 for none. Its bit 41 says that the others are attached by USB.
  void connect(std::uint64_t identifier) { put64(1072, identifier); }
};

/// Bluetooth is not awaited at first.
class FuncInfoTable : public PhoneTable {
 public:
  FuncInfoTable() : PhoneTable("/FuncInfo", 4, 2104) {}

  void awaitBluetooth(unsigned flag = 1) { put8(512, flag); }
};

/// Removes all four segments, for a test that begins without them.
inline void removePhoneTables() {
  for (const char* name : {"/BtPairedDeviceList", "/AapDeviceList", "/LmSCarplayResource", "/FuncInfo"}) {
    RawSegment::remove(name);
  }
}

#endif
