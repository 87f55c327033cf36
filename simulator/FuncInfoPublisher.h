// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_FUNCINFOPUBLISHER_H
#define SIMULATOR_FUNCINFOPUBLISHER_H

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

namespace idl::bench {

/// Stands in for whoever tells which functions the unit has: "FuncInfo". Clients read it once, when they start, so
/// there is no notification. For one thread.
class FuncInfoPublisher {
 public:
  /// Opens or creates the segment. @throw std::runtime_error when it cannot be mapped.
  FuncInfoPublisher();

  /// Says whether Bluetooth is among the unit's functions; where it is, clients await its first report.
  /// @throw std::runtime_error when the segment is too short.
  void setBluetooth(bool present);

 private:
  LmSharedMemory<wire::FuncInfoStruct, 1> mSegment;
};

}  // namespace idl::bench

#endif
