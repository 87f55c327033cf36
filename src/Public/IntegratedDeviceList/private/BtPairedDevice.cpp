// SPDX-License-Identifier: Apache-2.0
#include "IntegratedDeviceList/BtPairedDevice.h"

#include <cstring>

#include "LmFramework/lm_strncpy.h"

// Texts are cleared and copied by calls: at -O2 a compiler copies an array that is a member byte by byte.

BtPairedDevice::BtPairedDevice() {
  std::memset(name, 0, sizeof(name));
  std::memset(address, 0, sizeof(address));
  lm_strncpy(name, "", NAME_LENGTH);
  lm_strncpy(address, "", ADDRESS_LENGTH);
}

BtPairedDevice::BtPairedDevice(const BtPairedDevice& other) noexcept
    : id(other.id), info(other.info), flag1(other.flag1), flag2(other.flag2) {
  std::memcpy(name, other.name, sizeof(name));
  std::memcpy(address, other.address, sizeof(address));
}

BtPairedDevice& BtPairedDevice::operator=(const BtPairedDevice& other) noexcept {
  if (this != &other) {
    id = other.id;
    info = other.info;
    flag1 = other.flag1;
    flag2 = other.flag2;
    std::memcpy(name, other.name, sizeof(name));
    std::memcpy(address, other.address, sizeof(address));
  }
  return *this;
}

BtPairedDevice::~BtPairedDevice() = default;
