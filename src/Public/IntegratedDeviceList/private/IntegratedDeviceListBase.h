// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_INTEGRATEDDEVICELISTBASE_H
#define INTEGRATEDDEVICELIST_PRIVATE_INTEGRATEDDEVICELISTBASE_H

#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

/// What the adapters of the three sources share: a refresh reads the source's records T and files what they become
/// into two lists. An adapter says how its records are read and how one is converted.
///
/// No lock of its own: the list service's mutex is held in every call. Segment locks are held only while records are
/// read.
template <class T>
class IntegratedDeviceListBase {
 public:
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  IntegratedDeviceListBase() = default;
  IntegratedDeviceListBase(const IntegratedDeviceListBase&) = delete;
  IntegratedDeviceListBase& operator=(const IntegratedDeviceListBase&) = delete;

  /// Refreshes both lists from the source's present table.
  virtual void updateDeviceList();

  /// Replaces `out` by the paired phones of the last refresh, in the source's order.
  virtual void getBtDeviceList(std::vector<IntegratedDevice>& out) const;

  /// Replaces `out` by the phones of the last refresh that are not paired and have a positive port, in the source's
  /// order.
  virtual void getUsbDeviceList(std::vector<IntegratedDevice>& out) const;

  /// The lists themselves, for who only looks at them; until the next refresh.
  const std::vector<IntegratedDevice>& btDevices() const { return btList; }
  const std::vector<IntegratedDevice>& usbDevices() const { return usbList; }

  virtual ~IntegratedDeviceListBase();

  /// Replaces `out` by the occupied records of the source, in its order; takes the segment's lock.
  virtual void getFunctionDeviceList(std::vector<T>& out) = 0;

  /// Converts `records` and files them: paired ones in one list, of the others those with a positive port in the other.
  /// A negative port is none here, though idl::isUsbConnected takes it for one. If an allocation fails, the lists are
  /// as far as they were built.
  virtual void createDeviceList(const std::vector<T>& records);

  virtual IntegratedDevice toIntegratedDevice(const T& record) = 0;

 private:
  std::vector<IntegratedDevice> btList;
  std::vector<IntegratedDevice> usbList;
  std::vector<T> functionRecords;  // the source's own, of the last refresh; kept for the memory
};

extern template class IntegratedDeviceListBase<BtPairedDevice>;
extern template class IntegratedDeviceListBase<AapDevice>;
extern template class IntegratedDeviceListBase<cps_def::WCPAtom>;

#endif
