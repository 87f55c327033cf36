// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CPPUBLISHER_H
#define SIMULATOR_CPPUBLISHER_H

#include <cstdint>

#include "simulator/CpFormat.h"
#include "simulator/SlotPublisher.h"

namespace idl::bench {

extern template class SlotPublisher<CpFormat>;

/// Stands in for the CarPlay service: the phone table and the current phone in "LmSCarplayResource", told under
/// wire::CARPLAY_NOTIFICATION_ID.
class CpPublisher : public SlotPublisher<CpFormat> {
 public:
  /// Says which phone is connected for CarPlay by its identifier; 0: none. Bit 41 of an identifier also says that the
  /// other phones are attached by USB: the formats give both meanings to that bit.
  std::uint32_t setCurrentPhone(std::uint64_t identifier);

  std::uint64_t currentPhone() const;
};

}  // namespace idl::bench

#endif
