// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"

#include "LmSIntegratedDeviceListImpl.h"

LmSIntegratedDeviceList::LmSIntegratedDeviceList() : mImpl(new LmSIntegratedDeviceListImpl) {}

LmSIntegratedDeviceList::~LmSIntegratedDeviceList() {
  delete mImpl;
  mImpl = nullptr;
}

void LmSIntegratedDeviceList::initialize() { mImpl->initialize(); }

void LmSIntegratedDeviceList::updateDeviceList(LmSIntegratedDeviceListDef::DeviceType type) {
  mImpl->updateDeviceList(type);
}

bool LmSIntegratedDeviceList::getDeviceList(std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& list) {
  return mImpl->getDeviceList(list);
}

bool LmSIntegratedDeviceList::setFormat(NameFormatFunc format) { return mImpl->setFormat(format); }
