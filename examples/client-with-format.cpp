// SPDX-License-Identifier: Apache-2.0
// A client that shows phones of one name in its own way: "Phone", "Phone (2)", "Phone (3)".
#include <IntegratedDeviceList/LmSIntegratedDeviceList.h>
#include <IntegratedDeviceList/idl.h>

namespace {

// Called many times in a refresh, with the list locked: no state, no calls of the list, and the same result for the
// same arguments. Two numbers from 1 on must never look alike, or phones could not be told apart; 0 is a
// phone without a number.
std::string inBrackets(const std::string& name, unsigned char suffix) {
  return suffix < 2 ? name : name + " (" + std::to_string(suffix) + ")";
}

}  // namespace

int main() {
  using namespace LmSIntegratedDeviceListDef;
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  if (!list->setFormat(&inBrackets)) return 1;  // before the list is started, or never
  list->initialize();
  for (DeviceType source : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP}) {
    list->updateDeviceList(source);
  }
  std::vector<IntegratedDevice> phones;
  if (!list->getDeviceList(phones)) return 1;
  idl::printDeviceList(phones);
}
