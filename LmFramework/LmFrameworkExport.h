// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMFRAMEWORKEXPORT_H
#define LMFRAMEWORK_LMFRAMEWORKEXPORT_H

// Everything is compiled with hidden visibility; what carries this is the library's interface.
#define LM_FRAMEWORK_API __attribute__((visibility("default")))

#endif
