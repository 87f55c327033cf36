// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_COMPLY_TABLEWATCH_H
#define TOOLS_COMPLY_TABLEWATCH_H

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/comply/Ear.h"
#include "tools/comply/Rules.h"

namespace idl::tools::comply {

/// What came of a rule.
struct Finding {
  Rule rule = Rule::ENDS_TEXTS;
  Verdict verdict = Verdict::UNKNOWN;
  std::uint64_t seen = 0;          // how often something was seen by which the rule can be judged
  std::string why;                 // a sentence
  std::optional<Offence> offence;  // where it is broken: the first
};

/// Watches how a service writes its table, by samples: what happens between two of them is not seen.
///
/// For some milliseconds at a time it holds the table's lock, as a guest (LockVisit), and looks whether somebody waits
/// for it or writes all the same. Nothing else on the unit is changed. For one thread.
class TableWatch {
 public:
  /// @param notification  the id under which the service tells of its changes; nothing where it is not known for
  ///                      certain: then `notifies` is UNKNOWN until some message has come under the bench's own id
  TableWatch(const Source& source, std::optional<unsigned> notification);

  /// One look; takes some milliseconds, up to 100 where the lock cannot be had.
  void sample();

  /// Call after the last look, as long as a change was seen that may yet be told of; does nothing but listen.
  void awaitNotification();
  bool isChangePending() const { return mPending.has_value(); }

  bool wasThere() const { return mWasThere; }
  std::uint64_t samples() const { return mSamples; }
  std::uint64_t samplesUnderLock() const { return mSamplesUnderLock; }
  std::uint64_t changes() const { return mChanges; }

  Finding findingOf(Rule rule) const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Pending {
    Clock::time_point since;
    std::uint64_t toldBefore;
    Offence offence;
  };

  struct State {
    std::uint64_t seen = 0;
    std::optional<Offence> offence;
  };

  bool sampleUnderLock();
  void sampleWithoutLock();
  void judgeAll(const TableCopy& copy);
  void compare(const TableCopy& now, bool afterWaiting);
  void listen();
  void see(Rule rule, const Judgement& judgement);
  State& of(Rule rule) { return mStates.at(static_cast<std::size_t>(rule)); }
  const State& of(Rule rule) const { return mStates.at(static_cast<std::size_t>(rule)); }
  std::string whyUnknown(Rule rule) const;

  const Source& mSource;
  const bool mIsIdCertain;
  Ear mListener;
  std::uint64_t mTold = 0;        // notifications up to now
  std::uint64_t mToldBefore = 0;  // up to the last sample
  std::array<State, RULES.size()> mStates;
  std::optional<Pending> mPending;
  TableCopy mLast;
  bool mWasThere = false;
  bool mWasWritten = false;    // while it was watched
  bool mWasUnwritten = false;  // when it was last judged, and by nobody
  bool mWasAwaited = false;    // when the lock was last given back
  bool mHadLock = false;       // ever
  std::uint64_t mSamples = 0;
  std::uint64_t mSamplesUnderLock = 0;
  std::uint64_t mChanges = 0;
};

/// The id under which the bench's stand-in of that source tells of its changes; CarPlay's is also a unit's.
unsigned notificationOf(const Source& source);

}  // namespace idl::tools::comply

#endif
