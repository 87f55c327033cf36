// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_SAVEFILEFOLDER_H
#define LMFRAMEWORK_POSIX_SAVEFILEFOLDER_H

#include <sys/types.h>

#include <string>

/// The folder of the save files of `user`, by the environment and the user database as they are now; it need not exist.
/// Empty when it cannot be found out. The rules stand at SaveFileAccessFactory.
/// @throw std::bad_alloc
std::string saveFileFolderOf(uid_t user);

#endif
