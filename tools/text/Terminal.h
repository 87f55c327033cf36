// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_TERMINAL_H
#define TOOLS_TEXT_TERMINAL_H

namespace idl::tools {

/// Whether what is written to the descriptor should be coloured: it is a terminal that can do it, and nobody has asked
/// for none (NO_COLOR). Reads the environment, so not while another thread changes that.
bool wantsColour(int fd);

/// The same from what is known: `noColour` and `terminal` are the variables NO_COLOR and TERM, null where not set.
bool wantsColour(bool isTerminal, const char* noColour, const char* terminal);

}  // namespace idl::tools

#endif
