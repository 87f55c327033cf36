// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CPPUBLISHER_H
#define SIMULATOR_CPPUBLISHER_H

#include <cstdint>
#include <map>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/PublishedTable.h"

namespace idl::bench {

/// A phone as the CarPlay service lists it. The name is cut to what the table holds.
struct CpPhone {
  std::uint64_t identifier = 0;  // 0 would mean a free slot
  std::string name;
  std::uint8_t btid = 0;  // Bluetooth pairing id; 0: none
  bool inSession = false;
  std::uint8_t session = 0;  // session number; counts where `inSession` is false
};

/// Stands in for the CarPlay service: the phone table and the current phone in "LmSCarplayResource".
///
/// Every change is written under the resource's lock and then told under wire::CARPLAY_NOTIFICATION_ID; functions
/// return the notification's number. For one thread.
/// @throw std::out_of_range from any function that takes a slot, when there is no such slot; std::runtime_error
///        from any function, when the table cannot be written or the change not be told.
class CpPublisher {
 public:
  /// Opens or creates the segment; a table that is there already stays as it is.
  CpPublisher();

  /// Writes the service's defaults, without any phone, as the service does when it starts. Tells nobody.
  void initialise();

  std::uint32_t put(unsigned slot, const CpPhone& phone);
  std::uint32_t clear(unsigned slot);

  /// Writes the whole phone table at once, slots that `phones` does not name being free; the current phone stays.
  std::uint32_t replaceAll(const std::map<unsigned, CpPhone>& phones);

  /// Says which phone is connected for CarPlay by its identifier; 0: none. Bit 41 of an identifier also says that the
  /// other phones are attached by USB: the formats give both meanings to that bit.
  std::uint32_t setCurrentPhone(std::uint64_t identifier);

  /// Dies by SIGKILL while it holds the lock: of the record, it has written what comes before the second half of the
  /// phone's name.
  [[noreturn]] void crashDuringPut(unsigned slot, const CpPhone& phone);

 private:
  PublishedTable<wire::CarPlaySharedMemStruct> mTable;
};

}  // namespace idl::bench

#endif
