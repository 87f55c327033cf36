// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_OWNMOUNTS_H
#define TOOLS_RECORDING_OWNMOUNTS_H

namespace idl::tools::recording {

/// Gives this process, which must have one thread, a mount namespace of its own, for good: what it mounts is not seen
/// outside. Unless the user is root, a user namespace is made for it, in which they are who they were.
/// @throw std::runtime_error with what to do, where the kernel forbids it; the process may have a namespace by then
void haveOwnMounts();

/// The same with an empty shared-memory folder, which is gone with the process.
void haveOwnSharedMemory();

}  // namespace idl::tools::recording

#endif
