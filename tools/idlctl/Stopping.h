// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_STOPPING_H
#define TOOLS_IDLCTL_STOPPING_H

#include <array>
#include <chrono>
#include <optional>
#include <streambuf>

namespace idl::tools {

/// Lets a command that goes on until it is stopped end in order: SIGINT and SIGTERM are taken as long as this lives.
/// So is SIGHUP, where nobody has it ignored, as nohup does. One in a process.
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

/// Standard input, for std::cin: a signal is its end, so that who waits for a line that never comes can be stopped.
class StoppableInput : public std::streambuf {
 public:
  /// Has std::cin read from it as long as this lives; of that nothing may have been read before.
  explicit StoppableInput(const Stopping& stopping);
  StoppableInput(const StoppableInput&) = delete;
  StoppableInput& operator=(const StoppableInput&) = delete;
  ~StoppableInput() override;

 protected:
  int_type underflow() override;

 private:
  const Stopping& mStopping;
  std::streambuf* const mFormer;
  std::array<char, 4096> mBytes{};
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
