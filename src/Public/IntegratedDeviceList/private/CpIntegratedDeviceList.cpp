// SPDX-License-Identifier: Apache-2.0
#include "CpIntegratedDeviceList.h"

#include "CarPlayInfoSharedMem.h"
#include "FixedText.h"

namespace {

using idl::wire::CarPlaySharedMemStruct;

constexpr std::size_t CURRENT_PHONE_OFFSET =
    CarPlayInfoSharedMem::DATA_OFFSET + offsetof(CarPlaySharedMemStruct, currentPhone);
constexpr std::size_t PHONES_OFFSET = CarPlayInfoSharedMem::DATA_OFFSET + offsetof(CarPlaySharedMemStruct, phones);

// The upper word of the connected phone's identifier, whose bit 9 says that the phones are attached by USB.
constexpr std::size_t USB_ATTACHED_OFFSET = CURRENT_PHONE_OFFSET + 4;
constexpr unsigned USB_ATTACHED_BIT = 9;

constexpr std::uint8_t BTID_NONE_IN_ATOM = 0;

}  // namespace

CpIntegratedDeviceList::CpIntegratedDeviceList() : sharedMem(new CarPlayInfoSharedMem) {}

CpIntegratedDeviceList::~CpIntegratedDeviceList() {
  delete sharedMem;
  sharedMem = nullptr;
}

void CpIntegratedDeviceList::getFunctionDeviceList(std::vector<cps_def::WCPAtom>& out) {
  out.clear();
  for (unsigned slot = 0; slot < CarPlaySharedMemStruct::PHONE_COUNT; ++slot) {
    if (sharedMem->data() == nullptr) {
      continue;
    }
    const cps_def::WCPAtom atom = readAtom(slot);
    if (atom.identifier != 0) {
      out.push_back(atom);
    }
  }
}

CpIntegratedDeviceList::IntegratedDevice CpIntegratedDeviceList::toIntegratedDevice(const cps_def::WCPAtom& atom) {
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

// An entry that is not valid, or that the object is too short for, is all zero.
cps_def::WCPAtom CpIntegratedDeviceList::readAtom(unsigned slot) const {
  const cps_def::WCPAtom atom =
      sharedMem->readField(PHONES_OFFSET + slot * sizeof(cps_def::WCPAtom), cps_def::WCPAtom{});
  return atom.valid != 0 ? atom : cps_def::WCPAtom{};
}

// 1 for the connected phone; for the others what the USB flag says, whichever phone it is about: that is how the
// service marks them.
std::int32_t CpIntegratedDeviceList::portOf(std::uint64_t identifier) const {
  if (identifier == 0 || sharedMem->data() == nullptr) {
    return 0;
  }
  if (sharedMem->readField(CURRENT_PHONE_OFFSET, std::uint64_t{0}) == identifier) {
    return 1;
  }
  const auto word = sharedMem->readField(USB_ATTACHED_OFFSET, std::uint32_t{0});
  return static_cast<std::int32_t>((word >> USB_ATTACHED_BIT) & 1);
}
