// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/idl.h"

#include <cstdio>

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;

namespace idl {

bool isBtPaired(const DeviceInfo& device) { return device.btid != DeviceInfo::BTID_NONE; }

bool isBtPaired(const IntegratedDevice& device) { return isBtPaired(static_cast<const DeviceInfo&>(device)); }

bool isUsbConnected(const DeviceInfo& device) { return device.port != 0; }

bool isUsbConnected(const IntegratedDevice& device) { return isUsbConnected(static_cast<const DeviceInfo&>(device)); }

bool isUsbConnectedOnly(const DeviceInfo& device) { return !isBtPaired(device) && isUsbConnected(device); }

bool isUsbConnectedOnly(const IntegratedDevice& device) {
  return isUsbConnectedOnly(static_cast<const DeviceInfo&>(device));
}

bool isAAPDevice(const DeviceInfo& device) { return device.type == LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP; }

bool isAAPDevice(const IntegratedDevice& device) { return isAAPDevice(static_cast<const DeviceInfo&>(device)); }

bool compareBtDeviceId(const IntegratedDevice& a, const IntegratedDevice& b) { return a.btid < b.btid; }

bool compareUsbPort(const IntegratedDevice& a, const IntegratedDevice& b) { return a.port < b.port; }

void printDeviceList(const std::vector<IntegratedDevice>& list) {
  int position = 0;
  for (const IntegratedDevice& device : list) {
    std::printf("%2d/%2d: type=%d, btid=%3d, port=%d, session=%d, suffix=%2d, name=%s\n", ++position,
                static_cast<int>(list.size()), static_cast<int>(device.type), device.btid,
                static_cast<int>(device.port), device.session, device.suffix, device.name.c_str());
  }
}

}  // namespace idl
