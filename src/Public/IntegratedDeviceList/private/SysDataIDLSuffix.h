// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SYSDATAIDLSUFFIX_H
#define INTEGRATEDDEVICELIST_PRIVATE_SYSDATAIDLSUFFIX_H

#include "LmFramework/LmSingleton.h"
#include "LmFramework/LmSync.h"

/// Owns the mutex under which every access to the suffix file in this process stands.
class SysDataIDLSuffix : public LmSingleton<SysDataIDLSuffix> {
  friend class LmSingleton<SysDataIDLSuffix>;

 public:
  ~SysDataIDLSuffix() override;

  LmSync& getMutex() { return mutex; }

 private:
  SysDataIDLSuffix();

  LmSync mutex;
};

LM_SINGLETON_DECLARE(SysDataIDLSuffix);

#endif
