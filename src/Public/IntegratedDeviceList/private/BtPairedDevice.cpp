// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/BtPairedDevice.h"

#include "LmFramework/lm_strncpy.h"

BtPairedDevice::BtPairedDevice() {
  lm_strncpy(name, "", NAME_LENGTH);
  lm_strncpy(address, "", ADDRESS_LENGTH);
}

BtPairedDevice::~BtPairedDevice() = default;
