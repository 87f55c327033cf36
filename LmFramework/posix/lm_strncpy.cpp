// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/lm_strncpy.h"

#include <cstring>

char* lm_strncpy(char* destination, const char* source, std::size_t bound) {
  const std::size_t length = strnlen(source, bound);
  std::memmove(destination, source, length);
  destination[length] = '\0';
  return destination;
}
