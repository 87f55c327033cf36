// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_AAPINTEGRATEDDEVICELIST_H
#define INTEGRATEDDEVICELIST_PRIVATE_AAPINTEGRATEDDEVICELIST_H

#include <cstddef>
#include <vector>

#include "IntegratedDeviceList/WireFormat.h"
#include "IntegratedDeviceListBase.h"

class AapDeviceListSharedMem;

/// The phones that the Android Auto service knows.
///
/// A slot is free when its identifier text is empty, whatever its other fields say; a segment of zeros is therefore no
/// phone, unlike Bluetooth's.
class AapIntegratedDeviceList : public IntegratedDeviceListBase<AapDevice> {
 public:
  AapIntegratedDeviceList();
  ~AapIntegratedDeviceList() override;

  void getFunctionDeviceList(std::vector<AapDevice>& out) override;
  IntegratedDevice toIntegratedDevice(const AapDevice& record) override;

 protected:
  /// For whoever reads a table that is not attached, and overrides getFunctionDeviceList().
  explicit AapIntegratedDeviceList(std::nullptr_t);

  /// Replaces `out` by the occupied records among the first `count` slots.
  static void takeOccupied(const idl::wire::AapDeviceList& table, std::size_t count, std::vector<AapDevice>& out);

 private:
  AapDeviceListSharedMem* sharedMem;  // owned
};

#endif
