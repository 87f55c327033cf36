// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_BTPUBLISHER_H
#define SIMULATOR_BTPUBLISHER_H

#include <cstdint>
#include <map>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/PublishedTable.h"

namespace idl::bench {

/// A phone as the Bluetooth service lists it. Texts are cut to what the table holds.
struct BtPhone {
  std::uint8_t id = 0;  // pairing id; 255 would mean a free slot
  std::string name;
  std::string address;
  std::uint32_t info = 0;
  std::uint8_t flag1 = 1;
  std::uint8_t flag2 = 0;
};

/// Stands in for the Bluetooth service: the pairing list "BtPairedDeviceList".
///
///     BtPublisher bluetooth;
///     bluetooth.initialise();
///     bluetooth.put(0, {3, "Phone", "00:00:5E:00:53:03"});
///
/// Every change is written under the table's lock and then told under BT_NOTIFICATION_ID; functions return the
/// notification's number. For one thread.
/// @throw std::out_of_range from any function that takes a slot, when there is no such slot; std::runtime_error
///        from any function, when the table cannot be written or the change not be told.
class BtPublisher {
 public:
  /// Opens or creates the segment; a table that is there already stays as it is.
  BtPublisher();

  /// Marks every slot free, as the service does when it starts: a slot of zeros would be a phone. Tells nobody.
  void initialise();

  std::uint32_t put(unsigned slot, const BtPhone& phone);
  std::uint32_t clear(unsigned slot);

  /// Writes the whole table at once, slots that `phones` does not name being free: nobody sees a part of it.
  std::uint32_t replaceAll(const std::map<unsigned, BtPhone>& phones);

  /// Dies by SIGKILL while it holds the lock: of the record, it has written what comes before the second half of the
  /// phone's name.
  [[noreturn]] void crashDuringPut(unsigned slot, const BtPhone& phone);

 private:
  PublishedTable<wire::BtPairedDeviceList> mTable;
};

}  // namespace idl::bench

#endif
