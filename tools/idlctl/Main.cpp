// SPDX-License-Identifier: Apache-2.0
#include <signal.h>
#include <unistd.h>

#include <iostream>

#include "tools/idlctl/Idlctl.h"
#include "tools/text/Terminal.h"

int main(int count, char** arguments) {
  signal(SIGPIPE, SIG_DFL);  // whoever reads has seen enough: end without a word
  return idl::tools::idlctl({arguments + 1, arguments + count},
                            {std::cout, std::cerr, idl::tools::wantsColour(STDOUT_FILENO)});
}
