// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_CARPLAYINFOSHAREDMEM_H
#define INTEGRATEDDEVICELIST_PRIVATE_CARPLAYINFOSHAREDMEM_H

#include <cstdint>

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/LmSubject.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

/// The CarPlay service's resource: its state with the phone table, and its change notifications.
///
/// Whoever comes first, the service or a reader, writes the defaults into a new resource, so that it looks the same
/// either way. Notifications are passed on to whatever observers are attached to this subject, on the notifier's
/// thread.
class CarPlayInfoSharedMem : public LmSharedMemory<idl::wire::CarPlaySharedMemStruct, 1>, public LmSubject {
 public:
  CarPlayInfoSharedMem();
  ~CarPlayInfoSharedMem() override;

  /// Takes a notification: passes the 32-bit number at `data` on as an id of its own, when `id` and `size` are those of
  /// the CarPlay service's notification. Runs on the notifier's thread and touches no table.
  /// @return 0
  unsigned update(unsigned id, void* data, unsigned size);

  /// One field of the segment, copied under the lock. `fallback` where the object is too short for it.
  template <class Field>
  Field readField(std::size_t offset, Field fallback) const;

 private:
  void initialiseDefaults();

  LmSharedMemNotifier notifier;
  LmObserver<CarPlayInfoSharedMem> observer;
};

template <class Field>
Field CarPlayInfoSharedMem::readField(std::size_t offset, Field fallback) const {
  LmSyncGuard guard(*this);
  Field field = {};
  return read(offset, &field, sizeof(field)) == sizeof(field) ? field : fallback;
}

#endif
