// SPDX-License-Identifier: Apache-2.0
#include "BtPairedDeviceListSharedMem.h"

BtPairedDeviceListSharedMem::BtPairedDeviceListSharedMem() : LmSharedMemory(idl::wire::BT_SEGMENT) {}

BtPairedDeviceListSharedMem::~BtPairedDeviceListSharedMem() = default;
