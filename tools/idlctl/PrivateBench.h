// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_PRIVATEBENCH_H
#define TOOLS_IDLCTL_PRIVATEBENCH_H

#include <string>

namespace idl::tools {

/// Whether a bench may be called so: 1 to 64 letters, digits, '-', '_' and '.', and no '.' first.
bool canBePrivateBench(const std::string& name);

/// Lets this process, and what it starts, see the shared memory of the bench `name`, which may be called so, in the
/// place of the system's, and has the saved numbers in the bench's folder: LM_SAVE_FILE_DIR is set to it.
/// Whoever enters the same name meets the same tables; nobody has to stay for them. The bench lies in the user's
/// runtime folder, or in a folder of the user's in /tmp.
///
/// Call it while the process has one thread: a user namespace is made, unless the user is root.
/// @throws std::runtime_error with what to do, when the folder is not the user's own, or
/// the kernel forbids it; the process may then see either shared memory, and should end.
void enterPrivateBench(const std::string& name);

/// The folder of the saved numbers of the bench that this process has entered; empty when it has
/// entered none.
const std::string& privateSaveFolder();

}  // namespace idl::tools

#endif
