// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LM_STRNCPY_H
#define LMFRAMEWORK_LM_STRNCPY_H

#include <cstddef>

#include "LmFramework/LmFrameworkExport.h"

/// Copies the text `source` into an array of at least `bound` + 1 characters: its bytes up to the
/// first NUL, at most `bound` of them, then a NUL. Unlike strncpy it always terminates and leaves
/// the rest of the array as it was. At most `bound` bytes of `source` are read, so it need not be
/// terminated within them.
/// @return `destination`.
LM_FRAMEWORK_API char* lm_strncpy(char* destination, const char* source, std::size_t bound);

#endif
