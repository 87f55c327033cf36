// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SAVEFILEACCESSFACTORY_H
#define LMFRAMEWORK_SAVEFILEACCESSFACTORY_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/LmSingleton.h"

class SaveFileAccess;

/// Makes the access objects of save files.
///
/// Files lie in the folder that the environment variable LM_SAVE_FILE_DIR names when Create is called, else in
/// /var/lib/lm-save-files for root and in lm-save-files in the user's XDG state folder for others ($XDG_STATE_HOME,
/// else .local/state in the home folder). The folder is made, with its parents, when the first file is written; its own
/// mode is 0770 whatever the umask. The environment of a process with raised privileges counts as empty.
class LM_FRAMEWORK_API SaveFileAccessFactory : public LmSingleton<SaveFileAccessFactory> {
 public:
  SaveFileAccessFactory();
  ~SaveFileAccessFactory() override;

  /// Any thread may call this.
  /// @param name  the file's name in the folder: 1 to 240 bytes, no slash, no dot in front
  /// @param mode  "r" only reads: Flush fails. Every other mode reads and writes, and a missing file is no error.
  /// @return      the access object, owned by the caller; never null. An unusable name or folder shows in its FOpen.
  /// @throw std::bad_alloc
  SaveFileAccess* Create(const char* name, const char* mode);
};

LM_SINGLETON_DECLARE(SaveFileAccessFactory);

#endif
