// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_CPINTEGRATEDDEVICELIST_H
#define INTEGRATEDDEVICELIST_PRIVATE_CPINTEGRATEDDEVICELIST_H

#include <cstddef>
#include <vector>

#include "IntegratedDeviceListBase.h"

class CarPlayInfoSharedMem;

/// The phones in the CarPlay service's phone table.
///
/// The segment's lock is taken anew for each slot and for each look at the connected phone: every record is whole, but
/// the service may change the table between two of them.
class CpIntegratedDeviceList : public IntegratedDeviceListBase<cps_def::WCPAtom> {
 public:
  CpIntegratedDeviceList();
  ~CpIntegratedDeviceList() override;

  void getFunctionDeviceList(std::vector<cps_def::WCPAtom>& out) override;
  IntegratedDevice toIntegratedDevice(const cps_def::WCPAtom& atom) override;

 protected:
  /// For whoever reads a resource that is not attached, and overrides both functions above.
  explicit CpIntegratedDeviceList(std::nullptr_t);

 private:
  CarPlayInfoSharedMem* sharedMem;  // owned
};

#endif
