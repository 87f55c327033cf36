// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/SaveFileAccessFactory.h"

#include <unistd.h>

#include <cstring>

#include "LmFramework/posix/PosixSaveFile.h"
#include "LmFramework/posix/SaveFileFolder.h"

LM_SINGLETON_DEFINE(SaveFileAccessFactory);

SaveFileAccessFactory::SaveFileAccessFactory() = default;

SaveFileAccessFactory::~SaveFileAccessFactory() = default;

SaveFileAccess* SaveFileAccessFactory::Create(const char* name, const char* mode) {
  const bool writable = mode == nullptr || std::strcmp(mode, "r") != 0;
  return new PosixSaveFile(saveFileFolderOf(geteuid()), name != nullptr ? name : "", writable);
}
