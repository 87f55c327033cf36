// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_IDL_H
#define INTEGRATEDDEVICELIST_IDL_H

#include <vector>

#include "IntegratedDeviceList/Export.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

/// Questions about a record, the two orders of a list, and a list on standard output. No state, any thread.
namespace idl {

/// The phone is paired over Bluetooth: its `btid` is not 255.
LM_IDL_API bool isBtPaired(const LmSIntegratedDeviceListDef::DeviceInfo& device);
LM_IDL_API bool isBtPaired(const LmSIntegratedDeviceListDef::IntegratedDevice& device);

/// Its `port` is not 0; a negative one counts as connected.
LM_IDL_API bool isUsbConnected(const LmSIntegratedDeviceListDef::DeviceInfo& device);
LM_IDL_API bool isUsbConnected(const LmSIntegratedDeviceListDef::IntegratedDevice& device);

/// Connected by USB and not paired.
LM_IDL_API bool isUsbConnectedOnly(const LmSIntegratedDeviceListDef::DeviceInfo& device);
LM_IDL_API bool isUsbConnectedOnly(const LmSIntegratedDeviceListDef::IntegratedDevice& device);

/// Its `type` is DEVICE_TYPE_AAP.
LM_IDL_API bool isAAPDevice(const LmSIntegratedDeviceListDef::DeviceInfo& device);
LM_IDL_API bool isAAPDevice(const LmSIntegratedDeviceListDef::IntegratedDevice& device);

/// Ascending `btid`, as unsigned numbers: unpaired phones (255) come last. A strict weak order without a tie-break.
LM_IDL_API bool compareBtDeviceId(const LmSIntegratedDeviceListDef::IntegratedDevice& a,
                                  const LmSIntegratedDeviceListDef::IntegratedDevice& b);

/// Ascending `port`, as signed numbers. A strict weak order without a tie-break.
LM_IDL_API bool compareUsbPort(const LmSIntegratedDeviceListDef::IntegratedDevice& a,
                               const LmSIntegratedDeviceListDef::IntegratedDevice& b);

/// Prints one line for each device to standard output, for a person to read; nothing for an empty list. Names are
/// printed as they are.
LM_IDL_API void printDeviceList(const std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& list);

}  // namespace idl

#endif
