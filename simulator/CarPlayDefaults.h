// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CARPLAYDEFAULTS_H
#define SIMULATOR_CARPLAYDEFAULTS_H

#include "IntegratedDeviceList/WireFormat.h"

namespace idl::bench {

/// What the CarPlay service writes into its resource when it makes it, the initialised flag included: no phones, and
/// the settings that only that service understands.
wire::CarPlaySharedMemStruct carPlayDefaults();

}  // namespace idl::bench

#endif
