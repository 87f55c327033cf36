// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/AapDevice.h"

#include <cstring>

#include "LmFramework/lm_strncpy.h"

// Texts are cleared and copied by calls: at -O2 a compiler copies an array that is a member byte by byte.

AapDevice::AapDevice() {
  std::memset(name, 0, sizeof(name));
  std::memset(id, 0, sizeof(id));
  lm_strncpy(name, "", NAME_LENGTH);
  lm_strncpy(id, "", ID_LENGTH);
}

AapDevice::AapDevice(const AapDevice& other) noexcept : session(other.session), btid(other.btid), port(other.port) {
  std::memcpy(name, other.name, sizeof(name));
  std::memcpy(id, other.id, sizeof(id));
}

AapDevice& AapDevice::operator=(const AapDevice& other) noexcept {
  if (this != &other) {
    session = other.session;
    btid = other.btid;
    port = other.port;
    std::memcpy(name, other.name, sizeof(name));
    std::memcpy(id, other.id, sizeof(id));
  }
  return *this;
}

AapDevice::~AapDevice() = default;
