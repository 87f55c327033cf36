// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_COUNTING_H
#define BENCH_COUNTING_H

#include <atomic>

namespace idl::cost {

/// How often this thread has called operator new, in this program and in the libraries.
unsigned long allocations();

/// What fsync() does in this program and in the libraries: with `on` false it returns at once and keeps nothing.
void setSyncing(bool on);

/// How often an fsync() has begun in this process, and how often one has ended.
struct SyncCount {
  std::atomic<unsigned long> begun{0};
  std::atomic<unsigned long> ended{0};
};
const SyncCount& syncCount();

}  // namespace idl::cost

#endif
