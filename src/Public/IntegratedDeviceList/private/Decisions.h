// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_DECISIONS_H
#define INTEGRATEDDEVICELIST_PRIVATE_DECISIONS_H

#include <cstddef>
#include <string>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

/// Hears what the list decides on a phone's way into it, from the code that decides, at the moment it does: for whoever
/// has to explain a list. Nothing here changes a decision.
///
/// One for the whole process, and no part of the objects that decide: those keep the layout that they have on the unit.
/// Called on the refreshing thread with the list locked. Names are the phones' own unless they are said to be
/// displayed. An entry is an index into the list of the refresh that is going on, in its final order.
class Decisions {
 public:
  using DeviceInfo = LmSIntegratedDeviceListDef::DeviceInfo;
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  enum class Key { BTID, PORT };

  virtual ~Decisions() = default;

  /// From now on `listener` hears of all decisions; null: nobody. Not while a list is refreshed.
  static void tell(Decisions* listener) { sListener = listener; }

  static bool isHeard() { return sListener != nullptr; }

  /// Has `call(listener)` done when somebody listens.
  template <class Call>
  static void heard(Call call) {
    if (isHeard()) {
      call(*sListener);
    }
  }

  // A source is read.

  /// `device` claims no pairing and has no positive port: no list has a place for it.
  virtual void leftOut(const IntegratedDevice& /*device*/) {}

  // The sources are merged; all of these again at every refresh.

  virtual void mergingBegins() {}

  /// `device` is folded into `pairing`, the first of its Bluetooth id, as it was before.
  virtual void folded(const IntegratedDevice& /*device*/, const IntegratedDevice& /*pairing*/) {}

  /// `device` claims a pairing that Bluetooth does not know; it is listed as connected by USB alone, or not at all.
  virtual void pairingUnknown(const IntegratedDevice& /*device*/, bool /*isListed*/) {}

  /// The saved numbers were loaded: `entries` of them, or they are forgotten, because two would be displayed alike.
  virtual void numbersLoaded(std::size_t /*entries*/, bool /*areForgotten*/) {}

  // The phones are numbered; again at every refresh.

  virtual void numberingBegins() {}

  /// The entry keeps the number of `old`, an entry of the list before or of the saved table, whose `key` it has.
  virtual void numberKept(std::size_t /*entry*/, const DeviceInfo& /*old*/, Key /*key*/) {}

  /// The entry has the `key` of `old`, but another name: nothing is kept.
  virtual void renamed(std::size_t /*entry*/, const DeviceInfo& /*old*/, Key /*key*/) {}

  /// The entry cannot have `number`: it would be displayed as `name`, and another one is.
  virtual void numberTaken(std::size_t /*entry*/, unsigned /*number*/, const std::string& /*name*/) {}

  virtual void numberGiven(std::size_t /*entry*/, unsigned /*number*/) {}

  /// All numbers that may be tried are taken.
  virtual void noNumberLeft(std::size_t /*entry*/) {}

 private:
  static inline Decisions* sListener = nullptr;
};

#endif
