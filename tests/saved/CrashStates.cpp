// SPDX-License-Identifier: Apache-2.0
#include "saved/CrashStates.h"

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

using Kind = FolderHistory::Kind;
using Step = FolderHistory::Step;

constexpr std::size_t SECTOR = 512;
constexpr std::size_t WHOLE = std::numeric_limits<std::size_t>::max();  // as a block: a write is one piece
constexpr std::size_t MAX_CHOICES = 12;                                 // 4,096 combinations

bool isAboutNames(const Step& step) {
  return step.kind == Kind::ENTER || step.kind == Kind::LEAVE || step.kind == Kind::MOVE;
}

bool isAboutBytes(const Step& step, std::size_t node) {
  return (step.kind == Kind::WRITE || step.kind == Kind::RESIZE) && step.node == node;
}

/// A write as one step for each block that it touches.
void splitInto(const Step& step, std::size_t block, std::vector<Step>& pieces) {
  if (step.kind != Kind::WRITE) {
    pieces.push_back(step);
    return;
  }
  for (std::size_t done = 0; done < step.bytes.size();) {
    const std::size_t at = step.offset + done;
    const std::size_t size = std::min(block - at % block, step.bytes.size() - done);
    pieces.push_back({Kind::WRITE, step.node, 0, "", 0, "", at, step.bytes.substr(done, size)});
    done += size;
  }
}

/// How long the file was at any moment.
std::set<std::size_t> lengthsOf(const std::string& durable, const std::vector<Step>& pieces) {
  std::set<std::size_t> lengths = {durable.size()};
  std::string bytes = durable;
  for (const Step& piece : pieces) {
    applyToBytes(piece, bytes);
    lengths.insert(bytes.size());
  }
  return lengths;
}

std::string composed(const std::string& durable, const std::vector<Step>& pieces,
                     const std::function<bool(std::size_t)>& isThere) {
  std::string bytes = durable;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (isThere(i)) {
      applyToBytes(pieces[i], bytes);
    }
  }
  return bytes;
}

std::size_t below(std::size_t end, std::mt19937_64& random) {
  return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

/// The files that have a name; the others' bytes are nobody's.
std::set<std::size_t> namedFilesOf(const std::vector<FolderHistory::Node>& nodes) {
  std::set<std::size_t> files;
  for (const FolderHistory::Node& folder : nodes) {
    for (const auto& [name, node] : folder.entries) {
      if (!nodes[node].isFolder) {
        files.insert(node);
      }
    }
  }
  return files;
}

std::size_t combinationsOf(std::size_t choices) {
  if (choices > MAX_CHOICES) {
    throw std::length_error("too many crash states");
  }
  return std::size_t{1} << choices;
}

}  // namespace

bool CrashStates::isDurable(std::size_t step, std::size_t count) const {
  const auto isSynced = [&](std::size_t folder) {
    return std::any_of(mHistory.steps.begin() + static_cast<std::ptrdiff_t>(step),
                       mHistory.steps.begin() + static_cast<std::ptrdiff_t>(count),
                       [&](const Step& later) { return later.kind == Kind::SYNC && later.node == folder; });
  };
  const Step& done = mHistory.steps[step];
  return isSynced(done.folder) && (done.kind != Kind::MOVE || isSynced(done.toFolder));
}

std::vector<std::size_t> CrashStates::pendingNames(std::size_t count) const {
  std::vector<std::size_t> pending;
  for (std::size_t i = 0; i < count; ++i) {
    if (isAboutNames(mHistory.steps[i]) && !isDurable(i, count)) {
      pending.push_back(i);
    }
  }
  return pending;
}

CrashStates::Pending CrashStates::pendingBytes(std::size_t node, std::size_t count, std::size_t block) const {
  Pending pending;
  pending.durable = mHistory.nodes[node].bytes;
  for (std::size_t i = 0; i < count; ++i) {
    const Step& step = mHistory.steps[i];
    if (isAboutBytes(step, node)) {
      splitInto(step, block, pending.steps);
    } else if (step.kind == Kind::SYNC && step.node == node) {
      pending.durable = composed(pending.durable, pending.steps, [](std::size_t) { return true; });
      pending.steps.clear();
    }
  }
  return pending;
}

CrashStates::Nodes CrashStates::nodesWith(std::size_t count, const std::function<bool(std::size_t)>& isKept) const {
  Nodes nodes = mHistory.nodes;
  for (std::size_t i = 0; i < count; ++i) {
    if (isAboutNames(mHistory.steps[i]) && (isDurable(i, count) || isKept(i))) {
      applyStep(mHistory.steps[i], nodes);
    }
  }
  return nodes;
}

bool CrashStates::hasReturned(std::size_t count) const {
  return std::any_of(mHistory.steps.begin(), mHistory.steps.begin() + static_cast<std::ptrdiff_t>(count),
                     [](const Step& step) { return step.kind == Kind::RETURNED; });
}

std::vector<std::string> CrashStates::variants(std::size_t node, std::size_t count) const {
  const Pending pending = pendingBytes(node, count, SECTOR);
  std::set<std::string> found;
  const std::set<std::size_t> lengths = lengthsOf(pending.durable, pending.steps);
  for (std::size_t mask = 0; mask < combinationsOf(pending.steps.size()); ++mask) {
    std::string bytes = composed(pending.durable, pending.steps, [&](std::size_t i) { return (mask >> i & 1) != 0; });
    found.insert(bytes);
    for (const std::size_t length : lengths) {
      std::string cut = bytes;
      cut.resize(length);
      found.insert(cut);
    }
  }
  if (!pending.steps.empty()) {
    const std::string whole = composed(pending.durable, pending.steps, [](std::size_t) { return true; });
    for (std::size_t length = 0; length < whole.size(); ++length) {
      found.insert(whole.substr(0, length));
    }
  }
  return {found.begin(), found.end()};
}

void CrashStates::each(const std::function<void(const State&)>& visit) const {
  std::set<std::pair<FolderTree, bool>> seen;
  const auto visitOnce = [&](const State& state) {
    if (seen.emplace(state.tree, state.returned).second) {
      visit(state);
    }
  };
  for (std::size_t count = 0; count <= mHistory.steps.size(); ++count) {
    const std::vector<std::size_t> pending = pendingNames(count);
    std::vector<std::pair<std::size_t, std::vector<std::string>>> open;  // files with several possible contents
    Nodes base = mHistory.nodes;
    for (std::size_t node = 0; node < base.size(); ++node) {
      if (base[node].isFolder) {
        continue;
      }
      std::vector<std::string> bytes = variants(node, count);
      base[node].bytes = bytes.front();
      if (bytes.size() > 1) {
        open.emplace_back(node, std::move(bytes));
      }
    }
    if (open.size() > 1) {
      throw std::length_error("too many files written at once");
    }
    for (std::size_t mask = 0; mask < combinationsOf(pending.size()); ++mask) {
      Nodes nodes = nodesWith(count, [&](std::size_t step) {
        const auto at = std::find(pending.begin(), pending.end(), step) - pending.begin();
        return (mask >> at & 1) != 0;
      });
      for (std::size_t node = 0; node < nodes.size(); ++node) {
        nodes[node].bytes = base[node].bytes;
      }
      if (open.empty()) {
        visitOnce({treeOf(nodes), hasReturned(count)});
        continue;
      }
      for (const std::string& bytes : open[0].second) {
        nodes[open[0].first].bytes = bytes;
        visitOnce({treeOf(nodes), hasReturned(count)});
      }
    }
  }
}

std::string CrashStates::anyVariant(std::size_t node, std::size_t count, std::mt19937_64& random) const {
  constexpr std::size_t BLOCKS[] = {1, 64, SECTOR, 1024, 4096};
  const Pending pending = pendingBytes(node, count, BLOCKS[below(std::size(BLOCKS), random)]);
  if (pending.steps.empty()) {
    return pending.durable;
  }
  const std::size_t reached = below(pending.steps.size() + 1, random);  // half of the states: a prefix of the writes
  const bool isPrefix = below(2, random) == 0;
  std::string bytes = composed(pending.durable, pending.steps,
                               [&](std::size_t i) { return isPrefix ? i < reached : below(2, random) == 0; });
  if (below(2, random) == 0) {
    const std::set<std::size_t> lengths = lengthsOf(pending.durable, pending.steps);
    bytes.resize(below(*lengths.rbegin() + 1, random));
  }
  return bytes;
}

/// Mostly while bytes are not durable, else while names are not, and now and then at any moment.
std::size_t CrashStates::anyMoment(std::mt19937_64& random) const {
  std::vector<std::size_t> openBytes;
  std::vector<std::size_t> openNames;
  for (std::size_t count = 0; count <= mHistory.steps.size(); ++count) {
    bool isOpen = false;
    for (std::size_t node = 0; node < mHistory.nodes.size() && !isOpen; ++node) {
      isOpen = !pendingBytes(node, count, WHOLE).steps.empty();
    }
    if (isOpen) {
      openBytes.push_back(count);
    } else if (!pendingNames(count).empty()) {
      openNames.push_back(count);
    }
  }
  const std::size_t dice = below(16, random);
  const std::vector<std::size_t>& chosen = dice < 12 ? openBytes : openNames;
  return dice == 15 || chosen.empty() ? below(mHistory.steps.size() + 1, random) : chosen[below(chosen.size(), random)];
}

CrashStates::State CrashStates::any(std::mt19937_64& random) const {
  const std::size_t count = anyMoment(random);
  Nodes nodes = nodesWith(count, [&](std::size_t) { return below(4, random) != 0; });
  for (const std::size_t node : namedFilesOf(nodes)) {
    nodes[node].bytes = anyVariant(node, count, random);
  }
  return {treeOf(nodes), hasReturned(count)};
}
