// SPDX-License-Identifier: Apache-2.0
#include "SysDataIDLSuffix.h"

SysDataIDLSuffix::SysDataIDLSuffix() = default;

SysDataIDLSuffix::~SysDataIDLSuffix() = default;
