// SPDX-License-Identifier: Apache-2.0
// What a test on a bench needs of the installed stand-ins: a service that lists a phone, and the list that has it.
#include <IntegratedDeviceList/LmSIntegratedDeviceList.h>
#include <simulator/BtPublisher.h>

int main() {
  idl::bench::BtPublisher bluetooth;
  bluetooth.initialise();
  bluetooth.add({3, "Phone", "00:00:5E:00:53:03"});

  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
  return list->getDeviceList(phones) && phones.size() == 1 && phones[0].name == "Phone" ? 0 : 1;
}
