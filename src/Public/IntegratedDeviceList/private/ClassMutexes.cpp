// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "SysDataFactory.h"
#include "SysDataIDLSuffix.h"

// The singletons that this library owns, in one source because their class mutexes are constructed in this order when
// the library is loaded. That of SaveFileAccessFactory comes before: the framework is loaded first.
LM_SINGLETON_DEFINE(SysDataFactory);
LM_SINGLETON_DEFINE(SysDataIDLSuffix);
LM_SINGLETON_DEFINE(LmSIntegratedDeviceList);
