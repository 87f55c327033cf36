// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_SAVEFOLDER_H
#define TESTS_SUPPORT_SAVEFOLDER_H

#include <cstdlib>

#include "LmFramework/SaveFileAccessFactory.h"
#include "SysDataFactory.h"
#include "support/TempFolder.h"

/// Lets temporary folders be made in memory from now on.
struct TempFoldersInMemory {
  TempFoldersInMemory() { setenv("TMPDIR", "/dev/shm", 1); }
};

/// The folder of the save files while this lives: a new and empty one. Access objects made for another folder are
/// let go at both ends. It lies in memory, because a disk makes thousands of small saves slow.
class SaveFolder : private TempFoldersInMemory, public TempFolder {
 public:
  SaveFolder() {
    setenv("LM_SAVE_FILE_DIR", path().c_str(), 1);
    letGo();
  }

  ~SaveFolder() {
    letGo();
    unsetenv("LM_SAVE_FILE_DIR");
  }

  SaveFolder(const SaveFolder&) = delete;
  SaveFolder& operator=(const SaveFolder&) = delete;

  /// What the end of a process does to the access objects; the files stay.
  static void letGo() {
    SysDataFactory::destroy();
    SaveFileAccessFactory::destroy();
  }
};

#endif
