// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_FUNCINFOPUBLISHER_H
#define SIMULATOR_FUNCINFOPUBLISHER_H

#include <cstddef>
#include <cstdint>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/BenchSegment.h"

namespace idl::bench {

/// Stands in for whoever tells which functions the unit has: "FuncInfo". Clients read it once, when they start, so
/// there is no notification. Writes under the segment's lock. For one thread.
/// @throw std::runtime_error from any function, when the segment cannot be read or written, as one that is too short.
class FuncInfoPublisher {
 public:
  /// Opens or creates the segment. @throw std::runtime_error when it cannot be mapped.
  FuncInfoPublisher();

  /// Says whether Bluetooth is among the unit's functions; where it is, clients await its first report.
  void setBluetooth(bool present);

  bool hasBluetooth() const;

  /// Dies by SIGKILL while it holds the lock, before it has written anything.
  [[noreturn]] void crash();

  /// Fills the payload with bytes by chance, the same ones for the same seed.
  void writeGarbage(std::uint32_t seed);

  /// Makes the object `size` bytes long and its first ones, from the size word on, those of `image`, all at once.
  void replaceImage(const std::string& image, std::size_t size);

  /// Removes the object. Who is attached, this publisher too, goes on with the one that has no name any more.
  void vanish();

  /// Makes the object again after vanish(), without Bluetooth or any other function, and attaches it; one that somebody
  /// else has made meanwhile is taken over.
  void comeBack();

  /// Cuts or lengthens the object to that many bytes, with zeros behind.
  /// @throw std::runtime_error, and nothing happens, when there is none.
  void resize(std::size_t bytes);

 private:
  BenchSegment<wire::FuncInfoStruct> mSegment;
};

}  // namespace idl::bench

#endif
