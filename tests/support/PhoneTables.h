// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_PHONETABLES_H
#define TESTS_SUPPORT_PHONETABLES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/AapFormat.h"
#include "simulator/BtFormat.h"
#include "simulator/CpFormat.h"
#include "support/RawSegment.h"

/// A segment as the service that owns it writes it, with the records of the bench's stand-ins, but without lock and
/// notification: with its final size, its size word set, and no phone at first.
template <class Format>
class PhoneTable : public RawSegment {
 public:
  PhoneTable() : RawSegment(std::string("/") + Format::segmentName(), PAYLOAD + sizeof(typename Format::Table)) {
    put32(0, sizeof(typename Format::Table));
    putImage(PAYLOAD, Format::emptyTable());
  }

  void clear(unsigned slot) { putImage(slotAt(slot), Format::freeSlot()); }

 protected:
  // Behind the size word, at its natural alignment.
  static constexpr std::size_t PAYLOAD = alignof(typename Format::Table);
  static_assert(PAYLOAD >= sizeof(std::uint32_t));

  void putPhone(unsigned slot, const typename Format::Phone& phone) { putImage(slotAt(slot), Format::slotOf(phone)); }

 private:
  static std::size_t slotAt(unsigned slot) {
    return PAYLOAD + Format::SLOTS_OFFSET + slot * sizeof(typename Format::Slot);
  }

  template <class Image>
  void putImage(std::size_t offset, const Image& image) {
    put(offset, std::string(reinterpret_cast<const char*>(&image), sizeof image));
  }
};

class BtTable : public PhoneTable<idl::bench::BtFormat> {
 public:
  void phone(unsigned slot, unsigned id, const std::string& name) {
    putPhone(slot, {static_cast<std::uint8_t>(id), name, ""});
  }
};

class AapTable : public PhoneTable<idl::bench::AapFormat> {
 public:
  void phone(unsigned slot, const std::string& name, const std::string& id, unsigned btid, std::int32_t port,
             unsigned session = 0) {
    putPhone(slot, {id, name, static_cast<std::uint8_t>(session), static_cast<std::uint8_t>(btid), port});
  }
};

/// No phone is connected at first.
class CpTable : public PhoneTable<idl::bench::CpFormat> {
 public:
  void phone(unsigned slot, std::uint64_t identifier, const std::string& name, unsigned btid) {
    putPhone(slot, {identifier, name, static_cast<std::uint8_t>(btid)});
  }

  /// The connected phone; 0 for none. Its bit 41 says that the others are attached by USB.
  void connect(std::uint64_t identifier) { put64(PAYLOAD + offsetof(Table, currentPhone), identifier); }

 private:
  using Table = idl::bench::CpFormat::Table;
};

/// Bluetooth is not awaited at first.
class FuncInfoTable : public RawSegment {
 public:
  FuncInfoTable() : RawSegment(std::string("/") + idl::wire::FUNC_INFO_SEGMENT, PAYLOAD + sizeof(Table)) {
    put32(0, sizeof(Table));
  }

  void awaitBluetooth(unsigned flag = 1) { put8(PAYLOAD + offsetof(Table, btFunctionFlag), flag); }

 private:
  using Table = idl::wire::FuncInfoStruct;

  static constexpr std::size_t PAYLOAD = alignof(Table);
};

/// Removes all four segments, for a test that begins without them.
inline void removePhoneTables() {
  for (const char* name : {"/BtPairedDeviceList", "/AapDeviceList", "/LmSCarplayResource", "/FuncInfo"}) {
    RawSegment::remove(name);
  }
}

#endif
