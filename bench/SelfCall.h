// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_SELFCALL_H
#define BENCH_SELFCALL_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace idl::cost {

/// A process of this same program. Ended and waited for at the latest when this goes, so that none outlives a bench.
class SelfCall {
 public:
  /// @throw std::runtime_error
  explicit SelfCall(const std::vector<std::string>& arguments);
  ~SelfCall();

  SelfCall(const SelfCall&) = delete;
  SelfCall& operator=(const SelfCall&) = delete;

  /// The next line of what it says; empty at its end.
  std::string line();

  /// All that it says until it ends. @throw std::runtime_error when it ends with anything but 0.
  std::string output();

 private:
  int mOutput;
  pid_t mProcess;
};

}  // namespace idl::cost

#endif
