// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_BTPAIREDDEVICELISTSHAREDMEM_H
#define INTEGRATEDDEVICELIST_PRIVATE_BTPAIREDDEVICELISTSHAREDMEM_H

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

/// The Bluetooth service's table of paired phones.
class BtPairedDeviceListSharedMem : public LmSharedMemory<idl::wire::BtPairedDeviceList, 1> {
 public:
  BtPairedDeviceListSharedMem();
  ~BtPairedDeviceListSharedMem() override;
};

#endif
