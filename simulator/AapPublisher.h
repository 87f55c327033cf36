// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_AAPPUBLISHER_H
#define SIMULATOR_AAPPUBLISHER_H

#include <cstdint>
#include <map>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/PublishedTable.h"

namespace idl::bench {

/// A phone as the Android Auto service lists it. Texts are cut to what the table holds.
struct AapPhone {
  std::string id;  // the phone's identifier; empty would mean a free slot
  std::string name;
  std::uint8_t session = 0;
  std::uint8_t btid = 255;  // Bluetooth pairing id; 255: not paired
  std::int32_t port = 0;    // USB port; 0: not connected by USB
};

/// Stands in for the Android Auto service: its phones in "AapDeviceList".
///
/// Every change is written under the table's lock and then told under AAP_NOTIFICATION_ID; functions return the
/// notification's number. For one thread.
/// @throw std::out_of_range from any function that takes a slot, when there is no such slot; std::runtime_error
///        from any function, when the table cannot be written or the change not be told.
class AapPublisher {
 public:
  /// Opens or creates the segment; a table that is there already stays as it is.
  AapPublisher();

  /// Marks every slot free, as the service does when it starts. Tells nobody.
  void initialise();

  std::uint32_t put(unsigned slot, const AapPhone& phone);
  std::uint32_t clear(unsigned slot);

  /// Writes the whole table at once, slots that `phones` does not name being free: nobody sees a part of it.
  std::uint32_t replaceAll(const std::map<unsigned, AapPhone>& phones);

  /// Dies by SIGKILL while it holds the lock: of the record, it has written what comes before the second half of the
  /// phone's identifier.
  [[noreturn]] void crashDuringPut(unsigned slot, const AapPhone& phone);

 private:
  PublishedTable<wire::AapDeviceList> mTable;
};

}  // namespace idl::bench

#endif
