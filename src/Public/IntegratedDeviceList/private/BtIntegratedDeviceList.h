// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_BTINTEGRATEDDEVICELIST_H
#define INTEGRATEDDEVICELIST_PRIVATE_BTINTEGRATEDDEVICELIST_H

#include <cstddef>
#include <vector>

#include "IntegratedDeviceList/WireFormat.h"
#include "IntegratedDeviceListBase.h"

class BtPairedDeviceListSharedMem;

/// The phones that the Bluetooth service lists as paired. All of them carry a Bluetooth id.
///
/// A slot is free only when its id is 255. A segment of zeros, which the service has not written yet, is therefore ten
/// nameless phones with id 0; a segment that cannot be mapped is none.
class BtIntegratedDeviceList : public IntegratedDeviceListBase<BtPairedDevice> {
 public:
  BtIntegratedDeviceList();
  ~BtIntegratedDeviceList() override;

  void getFunctionDeviceList(std::vector<BtPairedDevice>& out) override;
  IntegratedDevice toIntegratedDevice(const BtPairedDevice& record) override;

 protected:
  /// For whoever reads a table that is not attached, and overrides getFunctionDeviceList().
  explicit BtIntegratedDeviceList(std::nullptr_t);

  /// Replaces `out` by the occupied records among the first `count` slots.
  static void takeOccupied(const idl::wire::BtPairedDeviceList& table, std::size_t count,
                           std::vector<BtPairedDevice>& out);

 private:
  BtPairedDeviceListSharedMem* sharedMem;  // owned
};

#endif
