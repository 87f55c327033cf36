// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/AapDevice.h"

#include "LmFramework/lm_strncpy.h"

AapDevice::AapDevice() {
  lm_strncpy(name, "", NAME_LENGTH);
  lm_strncpy(id, "", ID_LENGTH);
}

AapDevice::~AapDevice() = default;
