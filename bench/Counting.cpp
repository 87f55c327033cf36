// SPDX-License-Identifier: Apache-2.0
#include "bench/Counting.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

namespace {

thread_local unsigned long allocationCount = 0;
std::atomic<bool> syncing{true};
idl::cost::SyncCount syncs;

}  // namespace

namespace idl::cost {

unsigned long allocations() { return allocationCount; }

void setSyncing(bool on) { syncing = on; }

const SyncCount& syncCount() { return syncs; }

}  // namespace idl::cost

// The libraries find these in the program before those of the standard libraries.
__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  ++allocationCount;
  if (void* memory = std::malloc(size)) {
    return memory;
  }
  throw std::bad_alloc();
}

__attribute__((visibility("default"))) void operator delete(void* memory) noexcept { std::free(memory); }

__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}

extern "C" __attribute__((visibility("default"))) int fsync(int file) {
  ++syncs.begun;
  const long result = syncing ? syscall(SYS_fsync, file) : 0;
  ++syncs.ended;
  return static_cast<int>(result);
}
