// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_OWNSHAREDMEMORY_H
#define TOOLS_RECORDING_OWNSHAREDMEMORY_H

namespace idl::tools::recording {

/// Gives this process, which must have one thread, a shared-memory folder of its own: an empty one, in a mount
/// namespace that ends with it. For good.
/// @throw std::runtime_error where the kernel forbids it; the process may have a namespace of its own by then
void haveOwnSharedMemory();

}  // namespace idl::tools::recording

#endif
