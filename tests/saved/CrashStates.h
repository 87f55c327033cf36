// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_CRASHSTATES_H
#define TESTS_SAVED_CRASHSTATES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "saved/FolderHistory.h"

/// What a power cut may leave of a recorded history.
///
/// After any of its steps the power goes. Nothing but a sync makes anything durable, and a sync makes durable just what
/// it is about, a folder's names or a file's bytes:
///
/// - of the names that were given, moved and taken away in a folder since it was last synced, any are kept and any
///   lost, each by itself, a move as a whole (a file system's journal sees to that);
/// - of the bytes written to a file since it was last synced, any blocks are there and any not: those are as they were
///   before, or zero where there was nothing; the file is as long as it ever was since then, or cut anywhere;
/// - a file whose bytes are durable has no durable name by that.
///
/// Modes are not looked at.
class CrashStates {
 public:
  struct State {
    FolderTree tree;
    bool returned = false;  // the power went after the save had said that it was done
  };

  explicit CrashStates(const FolderHistory& history) : mHistory(history) {}

  /// Calls `visit` once for each state, blocks being sectors of 512 bytes; and for each length that the bytes were cut
  /// at.
  /// @throw std::length_error for a history with too many of them
  void each(const std::function<void(const State&)>& visit) const;

  /// Any state, with blocks of any size. Mostly one of a moment when something was not durable yet: of the others there
  /// are few.
  State any(std::mt19937_64& random) const;

 private:
  using Nodes = std::vector<FolderHistory::Node>;

  /// Of a file: what is durable after `count` steps, and what was done since.
  struct Pending {
    std::string durable;
    std::vector<FolderHistory::Step> steps;
  };

  bool isDurable(std::size_t step, std::size_t count) const;
  std::vector<std::size_t> pendingNames(std::size_t count) const;
  Pending pendingBytes(std::size_t node, std::size_t count, std::size_t block) const;
  Nodes nodesWith(std::size_t count, const std::function<bool(std::size_t)>& isKept) const;
  bool hasReturned(std::size_t count) const;
  std::size_t anyMoment(std::mt19937_64& random) const;
  std::vector<std::string> variants(std::size_t node, std::size_t count) const;
  std::string anyVariant(std::size_t node, std::size_t count, std::mt19937_64& random) const;

  const FolderHistory& mHistory;
};

#endif
