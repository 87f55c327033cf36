// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceListBase.h"

#include <utility>

#include "Decisions.h"
#include "IntegratedDeviceList/idl.h"

template <class T>
IntegratedDeviceListBase<T>::~IntegratedDeviceListBase() = default;

template <class T>
void IntegratedDeviceListBase<T>::updateDeviceList() {
  functionRecords.clear();
  getFunctionDeviceList(functionRecords);
  createDeviceList(functionRecords);
}

template <class T>
void IntegratedDeviceListBase<T>::getBtDeviceList(std::vector<IntegratedDevice>& out) const {
  out = btList;
}

template <class T>
void IntegratedDeviceListBase<T>::getUsbDeviceList(std::vector<IntegratedDevice>& out) const {
  out = usbList;
}

template <class T>
void IntegratedDeviceListBase<T>::createDeviceList(const std::vector<T>& records) {
  btList.clear();
  usbList.clear();
  for (const T& record : records) {
    IntegratedDevice device = toIntegratedDevice(record);
    if (idl::isBtPaired(device)) {
      btList.push_back(std::move(device));
    } else if (device.port > 0) {
      usbList.push_back(std::move(device));
    } else {
      Decisions::heard([&](Decisions& listener) { listener.leftOut(device); });
    }
  }
}

template class IntegratedDeviceListBase<BtPairedDevice>;
template class IntegratedDeviceListBase<AapDevice>;
template class IntegratedDeviceListBase<cps_def::WCPAtom>;
