// SPDX-License-Identifier: Apache-2.0
#include "AapDeviceListSharedMem.h"

AapDeviceListSharedMem::AapDeviceListSharedMem() : LmSharedMemory(idl::wire::AAP_SEGMENT) {}

AapDeviceListSharedMem::~AapDeviceListSharedMem() = default;
