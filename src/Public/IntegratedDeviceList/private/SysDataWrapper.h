// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SYSDATAWRAPPER_H
#define INTEGRATEDDEVICELIST_PRIVATE_SYSDATAWRAPPER_H

#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "SuffixRecord.h"

/// Keeps the numbers of paired phones in the system-data file "IDLSuffix.ini".
///
/// Remembers what was last read or written, so that a table that would not change the file is not written. File access
/// stands under the mutex of SysDataIDLSuffix; the object itself is for one thread at a time.
class SysDataWrapper {
 public:
  SysDataWrapper();
  SysDataWrapper(const SysDataWrapper&) = delete;
  SysDataWrapper& operator=(const SysDataWrapper&) = delete;
  virtual ~SysDataWrapper();

  /// Stores the paired entries of `table`, at most ten: more are refused with a log line and the file stays as it was.
  /// Names are cut at 259 bytes. Failures are the file service's to report; what it failed to write is tried again only
  /// when the table changes.
  /// @throw std::bad_alloc; the same table is then tried again by the next call.
  void save(const std::vector<LmSIntegratedDeviceListDef::DeviceInfo>& table);

  /// Replaces `table` by what the file holds. A missing file is an empty one; of a short one, records whose first byte
  /// was there count.
  void load(std::vector<LmSIntegratedDeviceListDef::DeviceInfo>& table);

  /// Replaces `table` by the records of `image` up to the first that is not in use.
  static void takeEntries(const SuffixFileImage& image, std::vector<LmSIntegratedDeviceListDef::DeviceInfo>& table);

 private:
  SuffixFileImage image;  // what was last read or written
};

#endif
