// SPDX-License-Identifier: Apache-2.0
#include "CpIntegratedDeviceList.h"

#include "CarPlayDecoding.h"
#include "CarPlayInfoSharedMem.h"

using Decoding = CarPlayDecoding<CarPlayInfoSharedMem>;

CpIntegratedDeviceList::CpIntegratedDeviceList() : sharedMem(new CarPlayInfoSharedMem) {}

CpIntegratedDeviceList::CpIntegratedDeviceList(std::nullptr_t) : sharedMem(nullptr) {}

CpIntegratedDeviceList::~CpIntegratedDeviceList() {
  delete sharedMem;
  sharedMem = nullptr;
}

void CpIntegratedDeviceList::getFunctionDeviceList(std::vector<cps_def::WCPAtom>& out) {
  Decoding(*sharedMem).takeOccupied(out);
}

CpIntegratedDeviceList::IntegratedDevice CpIntegratedDeviceList::toIntegratedDevice(const cps_def::WCPAtom& atom) {
  return Decoding(*sharedMem).toIntegratedDevice(atom);
}
