// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_AAPDEVICELISTSHAREDMEM_H
#define INTEGRATEDDEVICELIST_PRIVATE_AAPDEVICELISTSHAREDMEM_H

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

/// The Android Auto service's table of phones.
class AapDeviceListSharedMem : public LmSharedMemory<idl::wire::AapDeviceList, 1> {
 public:
  AapDeviceListSharedMem();
  ~AapDeviceListSharedMem() override;
};

#endif
