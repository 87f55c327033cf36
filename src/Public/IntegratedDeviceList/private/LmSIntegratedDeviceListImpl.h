// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_LMSINTEGRATEDDEVICELISTIMPL_H
#define INTEGRATEDDEVICELIST_PRIVATE_LMSINTEGRATEDDEVICELISTIMPL_H

#include <cstdint>
#include <memory>
#include <set>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/LmSync.h"

class AapIntegratedDeviceList;
class BtIntegratedDeviceList;
class CpIntegratedDeviceList;
class SuffixProvider;

/// The list service behind LmSIntegratedDeviceList: decides when the list may be built, merges the three sources and
/// has the result numbered.
///
/// One mutex serialises all public operations and everything below them. Under it are taken: a segment's lock while
/// records are copied out of it, and the suffix file's mutex while the file is read or written.
class LmSIntegratedDeviceListImpl {
 public:
  using DeviceType = LmSIntegratedDeviceListDef::DeviceType;
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  LmSIntegratedDeviceListImpl();

  /// A list of other adapters and another provider than those of the unit's tables and its saved numbers. It begins
  /// initialised: it awaits Bluetooth if that is said.
  LmSIntegratedDeviceListImpl(std::unique_ptr<BtIntegratedDeviceList> bt, std::unique_ptr<CpIntegratedDeviceList> cp,
                              std::unique_ptr<AapIntegratedDeviceList> aap, std::unique_ptr<SuffixProvider> provider,
                              bool awaitsBluetooth);

  LmSIntegratedDeviceListImpl(const LmSIntegratedDeviceListImpl&) = delete;
  LmSIntegratedDeviceListImpl& operator=(const LmSIntegratedDeviceListImpl&) = delete;

  /// Takes no lock: callers must have stopped.
  virtual ~LmSIntegratedDeviceListImpl();

  // As LmSIntegratedDeviceList has them.
  void initialize();
  void updateDeviceList(DeviceType type);
  bool getDeviceList(std::vector<IntegratedDevice>& list);
  bool setFormat(NameFormatFunc format);

  // The steps of a refresh. Call with the mutex held, or before any other thread knows this object.

  /// Lets the suffix provider load its table, once.
  void start();

  /// Counts the report of `type` and starts if no other is awaited.
  void tryStart(DeviceType type);

  /// Rebuilds the merged list from what the adapters read last: phones connected by USB and not paired, by port, then
  /// the paired ones, by Bluetooth id. Equal keys keep the order CarPlay, Android Auto, then those whose pairing
  /// Bluetooth does not know. If it throws, the merged list is to be thrown away.
  void updateDeviceList();

  /// Folds each record of `source` into the first record of `target` with its Bluetooth id, or appends it to
  /// `unmatched`. A folded record takes the source's header and the source's own record; its Bluetooth record stays.
  void aggregateDeviceList(std::vector<IntegratedDevice>& target, const std::vector<IntegratedDevice>& source,
                           std::vector<IntegratedDevice>& unmatched);

 private:
  void readSources();

  LmSync mutex;
  bool initialized;
  bool started;
  std::set<DeviceType> awaited;       // sources that have to report before the list may be started
  BtIntegratedDeviceList* btAdapter;  // owned, as all below
  CpIntegratedDeviceList* cpAdapter;
  AapIntegratedDeviceList* aapAdapter;
  std::vector<IntegratedDevice> mergedList;
  SuffixProvider* suffixProvider;
  std::uint32_t unread;  // one bit for each source to read before the next merge: one whose reading threw is read again

  // What a refresh works in. Nothing of it is looked at by the next one, which has its memory: where as many phones are
  // listed as before, none is allocated.
  std::vector<IntegratedDevice> pairedList;
  std::vector<IntegratedDevice> unmatchedList;
  std::vector<const IntegratedDevice*> order;  // the new list's, into these two and the adapters' lists
  std::vector<IntegratedDevice> lastList;      // the merged list before the one that is being built
};

#endif
