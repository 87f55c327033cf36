// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_FUNCINFOSHAREDMEM_H
#define INTEGRATEDDEVICELIST_PRIVATE_FUNCINFOSHAREDMEM_H

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

/// The segment that says which functions the unit has.
class FuncInfoSharedMem : public LmSharedMemory<idl::wire::FuncInfoStruct, 1> {
 public:
  FuncInfoSharedMem();
  ~FuncInfoSharedMem() override;
};

#endif
