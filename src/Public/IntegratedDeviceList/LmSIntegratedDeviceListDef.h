// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_LMSINTEGRATEDDEVICELISTDEF_H
#define INTEGRATEDDEVICELIST_LMSINTEGRATEDDEVICELISTDEF_H

#include <cstdint>
#include <string>

#include "IntegratedDeviceList/AapDevice.h"
#include "IntegratedDeviceList/BtPairedDevice.h"
#include "IntegratedDeviceList/Export.h"
#include "IntegratedDeviceList/WCPAtom.h"

/// The records of the integrated device list. All are plain values: copy them, keep them, from any thread.
namespace LmSIntegratedDeviceListDef {

/// Where a record came from, and which source to refresh. Stored in 32 bits; there are no other values.
enum DeviceType : std::int32_t {
  DEVICE_TYPE_BT = 0,
  DEVICE_TYPE_CARPLAY = 1,
  DEVICE_TYPE_AAP = 2,
};

/// What every record says, whatever its source.
struct LM_IDL_API DeviceInfo {
  static constexpr std::uint8_t BTID_NONE = 255;

  DeviceInfo();
  DeviceInfo(const DeviceInfo&);
  DeviceInfo(DeviceInfo&&) noexcept;
  DeviceInfo& operator=(const DeviceInfo&);
  DeviceInfo& operator=(DeviceInfo&&) noexcept;
  ~DeviceInfo();

  DeviceType type = DEVICE_TYPE_BT;  ///< of a merged record: of the last source merged into it
  std::string name;                  ///< any bytes but NUL; in a list, as it is to be displayed
  std::uint8_t btid = BTID_NONE;     ///< Bluetooth pairing id; BTID_NONE: not paired
  std::int32_t port = 0;             ///< USB port; 0: not connected by USB
  std::uint8_t session = 0;          ///< session number at its source; 0: none
  std::uint64_t cpDeviceId = 0;      ///< CarPlay's identifier of the phone where `type` is CarPlay's, else 0
  std::string aapId;        ///< Android Auto's identifier of the phone where `type` is Android Auto's, else empty
  std::uint8_t suffix = 0;  ///< number among phones of the same name, from 1; 0: none
};

/// One phone: the header above, and what each source says about it.
///
/// All three source records are always there; those of sources that do not know the phone have their defaults. A source
/// record keeps its source's own name, without a suffix number, and stays when a later source is merged in.
struct LM_IDL_API IntegratedDevice : DeviceInfo {
  IntegratedDevice();
  IntegratedDevice(const IntegratedDevice&);
  IntegratedDevice(IntegratedDevice&&) noexcept;
  IntegratedDevice& operator=(const IntegratedDevice&);
  IntegratedDevice& operator=(IntegratedDevice&&) noexcept;
  ~IntegratedDevice();

  BtPairedDevice btDevice;
  cps_def::WCPAtom cpDevice = {};
  AapDevice aapDevice;
};

}  // namespace LmSIntegratedDeviceListDef

#endif
