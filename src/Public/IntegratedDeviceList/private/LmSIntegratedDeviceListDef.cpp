// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

// Out of line, so that a program that holds records does not carry their copying in each of its sources.

namespace LmSIntegratedDeviceListDef {

DeviceInfo::DeviceInfo() = default;
DeviceInfo::DeviceInfo(const DeviceInfo&) = default;
DeviceInfo::DeviceInfo(DeviceInfo&&) noexcept = default;
DeviceInfo& DeviceInfo::operator=(const DeviceInfo&) = default;
DeviceInfo& DeviceInfo::operator=(DeviceInfo&&) noexcept = default;
DeviceInfo::~DeviceInfo() = default;

IntegratedDevice::IntegratedDevice() = default;
IntegratedDevice::IntegratedDevice(const IntegratedDevice&) = default;
IntegratedDevice::IntegratedDevice(IntegratedDevice&&) noexcept = default;
IntegratedDevice& IntegratedDevice::operator=(const IntegratedDevice&) = default;
IntegratedDevice& IntegratedDevice::operator=(IntegratedDevice&&) noexcept = default;
IntegratedDevice::~IntegratedDevice() = default;

}  // namespace LmSIntegratedDeviceListDef
