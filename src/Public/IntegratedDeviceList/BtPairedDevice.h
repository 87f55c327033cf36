// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_BTPAIREDDEVICE_H
#define INTEGRATEDDEVICELIST_BTPAIREDDEVICE_H

#include <cstdint>

#include "IntegratedDeviceList/Export.h"

/// A phone in the Bluetooth pairing list, as the Bluetooth service describes it.
///
/// How it lies in shared memory is idl::wire::BtSlot's business (WireFormat.h); this is the record to work with.
class LM_IDL_API BtPairedDevice {
 public:
  static constexpr std::uint8_t ID_NONE = 255;
  static constexpr unsigned NAME_LENGTH = 80;     ///< bytes, without the NUL
  static constexpr unsigned ADDRESS_LENGTH = 17;  ///< bytes, without the NUL

  BtPairedDevice();
  BtPairedDevice(const BtPairedDevice& other) noexcept;
  BtPairedDevice& operator=(const BtPairedDevice& other) noexcept;
  virtual ~BtPairedDevice();

  std::uint8_t id = ID_NONE;         ///< pairing id; ID_NONE: no device
  char name[NAME_LENGTH + 1];        ///< zeros at first; byte-true: a service that ends no text leaves none ended here
  char address[ADDRESS_LENGTH + 1];  ///< likewise
  std::uint32_t info = 0;            ///< this and the flags are carried, not interpreted
  std::uint8_t flag1 = 1;
  std::uint8_t flag2 = 0;
};

#endif
