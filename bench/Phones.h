// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_PHONES_H
#define BENCH_PHONES_H

#include <array>
#include <cstdint>
#include <string>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"

namespace idl::cost {

using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr std::array<DeviceType, 3> SOURCES = {LmSIntegratedDeviceListDef::DEVICE_TYPE_BT,
                                               LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY,
                                               LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP};

/// "bluetooth", "carplay", "aap": as the benchmarks' names have them.
const char* nameOf(DeviceType source);

/// How the phones are called. All texts fit a std::string's own buffer, with a number behind them too.
enum class Names { DIFFERENT, ALIKE };

constexpr std::array<Names, 2> NAMINGS = {Names::DIFFERENT, Names::ALIKE};

const char* nameOf(Names names);

constexpr unsigned MOST_PHONES = 33;

/// The three services' tables, filled so that each phone in them is a line of its own in the list.
///
/// The phones of Bluetooth are the paired ones. Each of Android Auto has a USB port of its own. Those of CarPlay are
/// none of them the connected phone, and attached all the same, so each takes three locked reads; the format gives
/// all of them port 1, and so all but the first are numbered anew in each refresh.
class Phones {
 public:
  Phones();

  /// Ten phones of Bluetooth come first, then twelve of Android Auto, then eleven of CarPlay, as far as `count` goes.
  void fill(Names names, unsigned count = MOST_PHONES);

  /// Calls the first phone of Bluetooth something else than before.
  void rename();

  /// One more write to a table without a change, as a service does that has nothing new to say; takes its lock.
  void rewrite(unsigned slot);

 private:
  bench::BtPublisher mBluetooth;
  bench::CpPublisher mCarPlay;
  bench::AapPublisher mAndroidAuto;
  unsigned mRenamed = 0;
};

}  // namespace idl::cost

#endif
