// SPDX-License-Identifier: Apache-2.0
#include <IntegratedDeviceList/LmSIntegratedDeviceList.h>
#include <IntegratedDeviceList/idl.h>

int main() {
  using namespace LmSIntegratedDeviceListDef;
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  for (DeviceType source : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP}) {
    list->updateDeviceList(source);  // again whenever that source has changed
  }
  std::vector<IntegratedDevice> phones;
  if (!list->getDeviceList(phones)) return 1;
  idl::printDeviceList(phones);
}
