// SPDX-License-Identifier: Apache-2.0
#include "SysDataFactory.h"

#include "LmFramework/SaveFileAccess.h"
#include "LmFramework/SaveFileAccessFactory.h"

SysDataFactory::SysDataFactory() = default;

SysDataFactory::~SysDataFactory() {
  for (SaveFileAccess*& slot : slots) {
    delete slot;
    slot = nullptr;
  }
}

SaveFileAccess* SysDataFactory::getIDLSuffixAccess() {
  SaveFileAccess*& slot = slots[IDL_SUFFIX_SLOT];
  if (slot == nullptr) {
    slot = SaveFileAccessFactory::getInstance()->Create("IDLSuffix.ini", "r+");
  }
  return slot;
}
