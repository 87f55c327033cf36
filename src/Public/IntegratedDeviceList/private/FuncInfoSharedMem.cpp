// SPDX-License-Identifier: Apache-2.0
#include "FuncInfoSharedMem.h"

FuncInfoSharedMem::FuncInfoSharedMem() : LmSharedMemory(idl::wire::FUNC_INFO_SEGMENT) {}

FuncInfoSharedMem::~FuncInfoSharedMem() = default;
