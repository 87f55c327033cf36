// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_BENCHNOTIFICATION_H
#define SIMULATOR_BENCHNOTIFICATION_H

/// How the bench tells that a table has changed.
///
/// On a unit only the CarPlay service publishes changes, under idl::wire::CARPLAY_NOTIFICATION_ID; how a client there
/// learns of the other two sources is the unit's business. The bench gives them ids of its own, which mean nothing
/// outside it. The data is the same for all three: one 32-bit number, here the publisher's count of its changes.
namespace idl::bench {

constexpr unsigned BT_NOTIFICATION_ID = 0x42540001;   // "BT", 1
constexpr unsigned AAP_NOTIFICATION_ID = 0x41410001;  // "AA", 1

}  // namespace idl::bench

#endif
