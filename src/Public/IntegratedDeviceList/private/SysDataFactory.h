// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SYSDATAFACTORY_H
#define INTEGRATEDDEVICELIST_PRIVATE_SYSDATAFACTORY_H

#include "LmFramework/LmSingleton.h"

class SaveFileAccess;

/// Owns the access objects of the system-data files, one slot a file; each is made when it is first needed.
///
/// Not guarded by itself: call with the mutex of the file in question held.
class SysDataFactory : public LmSingleton<SysDataFactory> {
  friend class LmSingleton<SysDataFactory>;

 public:
  static constexpr unsigned SLOT_COUNT = 204;
  static constexpr unsigned IDL_SUFFIX_SLOT = 202;  // the only one that this system uses

  /// Deletes the access objects in the order of their slots.
  ~SysDataFactory() override;

  /// The suffix file's access object; stays this factory's.
  SaveFileAccess* getIDLSuffixAccess();

  /// What stands in a slot below SLOT_COUNT; null when its file has not been needed.
  SaveFileAccess* getSlot(unsigned slot) const { return slots[slot]; }

 private:
  SysDataFactory();

  SaveFileAccess* slots[SLOT_COUNT] = {};  // owned
};

LM_SINGLETON_DECLARE(SysDataFactory);

#endif
