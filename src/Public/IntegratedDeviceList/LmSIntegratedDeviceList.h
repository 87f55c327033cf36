// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_LMSINTEGRATEDDEVICELIST_H
#define INTEGRATEDDEVICELIST_LMSINTEGRATEDDEVICELIST_H

#include <string>
#include <vector>

#include "IntegratedDeviceList/Export.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "LmFramework/LmSingleton.h"

class LmSIntegratedDeviceListImpl;

/// Builds the name to display out of a phone's own name and its number (1 to 255; 0 when it has none).
///
/// Must be deterministic, cheap and free of side effects: it is called many times in a refresh, on the refreshing
/// thread with the list locked, and its results are compared with each other. It must not call the list.
using NameFormatFunc = std::string (*)(const std::string& name, unsigned char suffix);

/// The list of all phones that the unit knows: one record for each, in a fixed order, under names that can be told
/// apart.
///
///     LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
///     list->initialize();
///     list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);  // whenever that source has changed
///     std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
///     if (list->getDeviceList(phones)) ...
///
/// First come the phones that are connected by USB and not paired, by port; then the paired ones, by Bluetooth id.
/// A phone keeps its number while it stays listed under the same name and the same Bluetooth id or USB port; paired
/// phones keep theirs over restarts.
///
/// Any thread may call any function; one mutex serialises them, so each waits for whatever another one is doing, the
/// saving of a file included, and for whoever holds a table's lock. All work is done on the caller's thread. Bad tables
/// never fail: what cannot be read is not listed. Only std::bad_alloc and what a format function throws leave a
/// function; the list and the numbers are then still those of the last complete refresh, and the next call works.
///
/// A Bluetooth table that its service has not written yet reads as ten nameless phones, and a list that is started by
/// another source than Bluetooth forgets the stored numbers at its first save: see initialize() and "FuncInfo".
///
/// The instance is destroyed at exit, when no thread may be calling it any more.
class LM_IDL_API LmSIntegratedDeviceList : public LmSingleton<LmSIntegratedDeviceList> {
  friend class LmSingleton<LmSIntegratedDeviceList>;

 public:
  ~LmSIntegratedDeviceList() override;

  /// Sets up, once: finds out whether Bluetooth has to report before the list is started. Later calls do nothing.
  void initialize();

  /// Takes over the present table of the source `type`, and rebuilds and numbers the list if it is started. Other
  /// values of `type` are ignored. The first call starts the list, but where Bluetooth is awaited only that of
  /// DEVICE_TYPE_BT. Before initialize() it does nothing but log.
  void updateDeviceList(LmSIntegratedDeviceListDef::DeviceType type);

  /// Replaces `list` by a copy of the list as of the last refresh.
  /// @return false, and `list` is untouched, when the list is not started yet. After std::bad_alloc `list` may hold
  ///         records of both, the old list and the new one.
  bool getDeviceList(std::vector<LmSIntegratedDeviceListDef::IntegratedDevice>& list);

  /// Chooses how names are displayed; null means the built-in way: "Phone", "Phone 2", "Phone 3". Takes effect only
  /// until the list is started: the format in force then stays.
  /// @return whether a format function is in force now, be it this one or an earlier one.
  bool setFormat(NameFormatFunc format);

 private:
  LmSIntegratedDeviceList();

  LmSIntegratedDeviceListImpl* mImpl;  // owned
};

LM_SINGLETON_DECLARE(LmSIntegratedDeviceList);

#endif
