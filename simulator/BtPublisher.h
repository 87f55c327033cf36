// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_BTPUBLISHER_H
#define SIMULATOR_BTPUBLISHER_H

#include "simulator/BtFormat.h"
#include "simulator/SlotPublisher.h"

namespace idl::bench {

extern template class SlotPublisher<BtFormat>;

/// Stands in for the Bluetooth service: the pairing list "BtPairedDeviceList", told under BT_NOTIFICATION_ID.
using BtPublisher = SlotPublisher<BtFormat>;

}  // namespace idl::bench

#endif
