// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_AAPDEVICE_H
#define INTEGRATEDDEVICELIST_AAPDEVICE_H

#include <cstdint>

#include "IntegratedDeviceList/Export.h"

/// A phone that the Android Auto service knows, as it describes it.
///
/// How it lies in shared memory is idl::wire::AapSlot's business (WireFormat.h); this is the record to work with.
class LM_IDL_API AapDevice {
 public:
  static constexpr std::uint8_t BTID_NONE = 255;
  static constexpr unsigned NAME_LENGTH = 256;  ///< bytes, without the NUL
  static constexpr unsigned ID_LENGTH = 256;    ///< bytes, without the NUL

  AapDevice();
  AapDevice(const AapDevice& other) noexcept;
  AapDevice& operator=(const AapDevice& other) noexcept;
  virtual ~AapDevice();

  std::uint8_t session = 0;       ///< session number at the Android Auto service
  char name[NAME_LENGTH + 1];     ///< zeros at first; byte-true: a service that ends no text leaves none ended here
  char id[ID_LENGTH + 1];         ///< likewise; empty: no device
  std::uint8_t btid = BTID_NONE;  ///< Bluetooth pairing id of the same phone; BTID_NONE: not paired
  std::int32_t port = 0;          ///< USB port; 0: not connected by USB
};

#endif
