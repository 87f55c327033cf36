// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace idl::tools {

bool wantsColour(int fd) { return wantsColour(::isatty(fd) == 1, std::getenv("NO_COLOR"), std::getenv("TERM")); }

bool wantsColour(bool isTerminal, const char* noColour, const char* terminal) {
  const bool askedForNone = noColour != nullptr && *noColour != '\0';
  const bool canDoIt = terminal == nullptr || std::string_view(terminal) != "dumb";
  return isTerminal && !askedForNone && canDoIt;
}

}  // namespace idl::tools
