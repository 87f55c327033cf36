// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_AAPPUBLISHER_H
#define SIMULATOR_AAPPUBLISHER_H

#include "simulator/AapFormat.h"
#include "simulator/SlotPublisher.h"

namespace idl::bench {

extern template class SlotPublisher<AapFormat>;

/// Stands in for the Android Auto service: its phones in "AapDeviceList", told under AAP_NOTIFICATION_ID.
using AapPublisher = SlotPublisher<AapFormat>;

}  // namespace idl::bench

#endif
