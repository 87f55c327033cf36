// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_CARPLAYDECODING_H
#define INTEGRATEDDEVICELIST_PRIVATE_CARPLAYDECODING_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FixedText.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "IntegratedDeviceList/WireFormat.h"

/// What the CarPlay service's resource says of its phones. A Resource is a CarPlayInfoSharedMem or reads like one,
/// field by field: data() is null where there is none, readField(offset in the segment, fallback) copies one.
template <class Resource>
class CarPlayDecoding {
 public:
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  explicit CarPlayDecoding(const Resource& resource) : mResource(resource) {}

  /// Replaces `out` by the occupied entries, in their order.
  void takeOccupied(std::vector<cps_def::WCPAtom>& out) const {
    out.clear();
    for (unsigned slot = 0; slot < Table::PHONE_COUNT; ++slot) {
      if (mResource.data() == nullptr) {
        continue;
      }
      const cps_def::WCPAtom atom = readAtom(slot);
      if (atom.identifier != 0) {
        out.push_back(atom);
      }
    }
  }

  IntegratedDevice toIntegratedDevice(const cps_def::WCPAtom& atom) const {
    IntegratedDevice device;
    device.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
    device.name = fixedText(atom.name);
    device.btid = atom.btid == BTID_NONE_IN_ATOM ? IntegratedDevice::BTID_NONE : atom.btid;
    device.port = portOf(atom.identifier);
    device.session = atom.inSession != 0 ? 1 : atom.session;
    device.cpDeviceId = atom.identifier;
    device.cpDevice = atom;
    return device;
  }

 private:
  using Table = idl::wire::CarPlaySharedMemStruct;

  static constexpr std::size_t DATA_OFFSET = 8;
  static constexpr std::size_t CURRENT_PHONE_OFFSET = DATA_OFFSET + offsetof(Table, currentPhone);
  static constexpr std::size_t PHONES_OFFSET = DATA_OFFSET + offsetof(Table, phones);

  // The upper word of the connected phone's identifier, whose bit 9 says that the phones are attached by USB.
  static constexpr std::size_t USB_ATTACHED_OFFSET = CURRENT_PHONE_OFFSET + 4;
  static constexpr unsigned USB_ATTACHED_BIT = 9;

  static constexpr std::uint8_t BTID_NONE_IN_ATOM = 0;

  // An entry that is not valid, or that the object is too short for, is all zero.
  cps_def::WCPAtom readAtom(unsigned slot) const {
    const cps_def::WCPAtom atom =
        mResource.readField(PHONES_OFFSET + slot * sizeof(cps_def::WCPAtom), cps_def::WCPAtom{});
    return atom.valid != 0 ? atom : cps_def::WCPAtom{};
  }

  // 1 for the connected phone; for the others what the USB flag says, whichever phone it is about: that is how the
  // service marks them.
  std::int32_t portOf(std::uint64_t identifier) const {
    if (identifier == 0 || mResource.data() == nullptr) {
      return 0;
    }
    if (mResource.readField(CURRENT_PHONE_OFFSET, std::uint64_t{0}) == identifier) {
      return 1;
    }
    const auto word = mResource.readField(USB_ATTACHED_OFFSET, std::uint32_t{0});
    return static_cast<std::int32_t>((word >> USB_ATTACHED_BIT) & 1);
  }

  const Resource& mResource;
};

#endif
