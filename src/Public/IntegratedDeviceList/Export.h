// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_EXPORT_H
#define INTEGRATEDDEVICELIST_EXPORT_H

// Everything is compiled with hidden visibility; what carries this is the library's interface.
#define LM_IDL_API __attribute__((visibility("default")))

#endif
