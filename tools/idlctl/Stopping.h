// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_STOPPING_H
#define TOOLS_IDLCTL_STOPPING_H

#include <chrono>
#include <optional>

namespace idl::tools {

/// Lets a command that goes on until it is stopped end in order: SIGINT and SIGTERM are taken as long as this lives.
/// One in a process.
class Stopping {
 public:
  Stopping();
  Stopping(const Stopping&) = delete;
  Stopping& operator=(const Stopping&) = delete;
  ~Stopping();

  /// Waits for a signal.
  /// @return whether one has come; false after `duration`
  bool within(std::chrono::milliseconds duration) const;

  /// Waits for a signal, or for something to read at `descriptor`, its end included.
  /// @return whether a signal has come
  bool beforeInput(int descriptor) const;

  /// Waits for a signal, or for the end of a line of standard input; the end of that counts as one.
  /// @return whether a signal has come
  bool beforeEnter() const;
};

/// When a command has to be done; never, when nobody said.
class Deadline {
 public:
  explicit Deadline(std::optional<std::chrono::milliseconds> timeout)
      : mEnd(timeout ? std::optional(std::chrono::steady_clock::now() + *timeout) : std::nullopt) {}

  bool isOver() const { return mEnd && std::chrono::steady_clock::now() >= *mEnd; }

  /// `pause`, or what is left.
  std::chrono::milliseconds atMost(std::chrono::milliseconds pause) const;

 private:
  const std::optional<std::chrono::steady_clock::time_point> mEnd;
};

}  // namespace idl::tools

#endif
