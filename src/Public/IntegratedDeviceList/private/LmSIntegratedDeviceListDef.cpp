// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

#include <algorithm>
#include <cstring>

// Out of line, so that a program that holds records does not carry their copying in each of its sources.

namespace LmSIntegratedDeviceListDef {

namespace {

// Of a list that is refreshed, most texts are as long as before.
void assignText(std::string& to, const std::string& from) {
  if (to.size() == from.size()) {
    std::copy(from.begin(), from.end(), to.begin());  // no call for the many that are empty
  } else {
    to = from;
  }
}

void assignHeader(DeviceInfo& to, const DeviceInfo& from) {
  to.type = from.type;
  assignText(to.name, from.name);
  to.btid = from.btid;
  to.port = from.port;
  to.session = from.session;
  to.cpDeviceId = from.cpDeviceId;
  assignText(to.aapId, from.aapId);
  to.suffix = from.suffix;
}

}  // namespace

DeviceInfo::DeviceInfo() = default;
DeviceInfo::DeviceInfo(const DeviceInfo&) = default;
DeviceInfo::DeviceInfo(DeviceInfo&&) noexcept = default;

DeviceInfo& DeviceInfo::operator=(const DeviceInfo& other) {
  if (this != &other) {
    assignHeader(*this, other);
  }
  return *this;
}

DeviceInfo& DeviceInfo::operator=(DeviceInfo&&) noexcept = default;
DeviceInfo::~DeviceInfo() = default;

IntegratedDevice::IntegratedDevice() = default;
IntegratedDevice::IntegratedDevice(const IntegratedDevice&) = default;
IntegratedDevice::IntegratedDevice(IntegratedDevice&&) noexcept = default;

// The source records as one block: member by member they take twice as long. The word among them that belongs to the
// compiler, of AapDevice's virtual functions, is the same in all records; only a compiler that signs it with its
// address (arm64e's pointer authentication) needs two blocks instead, which take an eighth longer. Behind the last
// member there may be another class's: it is left alone.
IntegratedDevice& IntegratedDevice::operator=(const IntegratedDevice& other) {
  if (this != &other) {
    assignHeader(*this, other);
    const auto* const begin = reinterpret_cast<const unsigned char*>(&other.btDevice.id);
    const auto* const end = reinterpret_cast<const unsigned char*>(&other.aapDevice.port + 1);
    std::memcpy(&btDevice.id, begin, static_cast<std::size_t>(end - begin));
  }
  return *this;
}

IntegratedDevice& IntegratedDevice::operator=(IntegratedDevice&&) noexcept = default;
IntegratedDevice::~IntegratedDevice() = default;

}  // namespace LmSIntegratedDeviceListDef
