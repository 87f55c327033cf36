// SPDX-License-Identifier: Apache-2.0
// A shared library that uses the singletons of the device list and of the framework, as a program's plug-in would.
// Built twice, under two names.
#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/SaveFileAccessFactory.h"

extern "C" {

__attribute__((visibility("default"))) void* deviceListOfThisLibrary() {
  return LmSIntegratedDeviceList::getInstance();
}

__attribute__((visibility("default"))) void* saveFileAccessFactoryOfThisLibrary() {
  return SaveFileAccessFactory::getInstance();
}

__attribute__((visibility("default"))) void destroyDeviceListOfThisLibrary() { LmSIntegratedDeviceList::destroy(); }
}
