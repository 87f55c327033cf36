// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_CPINTEGRATEDDEVICELIST_H
#define INTEGRATEDDEVICELIST_PRIVATE_CPINTEGRATEDDEVICELIST_H

#include <cstdint>
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

 private:
  cps_def::WCPAtom readAtom(unsigned slot) const;
  std::int32_t portOf(std::uint64_t identifier) const;

  CarPlayInfoSharedMem* sharedMem;  // owned
};

#endif
