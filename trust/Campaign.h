// SPDX-License-Identifier: Apache-2.0
#ifndef TRUST_CAMPAIGN_H
#define TRUST_CAMPAIGN_H

#include <cstdint>
#include <string>

/// What every campaign has in common: its options, its counts and its closing line.
///
///     int main(int argc, char** argv) {
///       Campaign campaign("lock-kills", "holders killed", argc, argv);
///       for (std::uint64_t round = 0; round < campaign.count(); ++round) {
///         ...
///         campaign.tried();
///       }
///       return campaign.finish();
///     }
///
/// Options: --count N, how often to try; --seconds S, how long, for campaigns that go by time; --seed N, printed at the
/// start, so that a run can be repeated. A campaign that breaks off by a signal or without its closing line counts as a
/// crash; scripts/trust kills one that does not come to its end.
///
/// One thread. Children are forked before or between calls and report to their parent, which alone calls these.
class Campaign {
 public:
  /// Reads the options. Ends the program with 2 when they are none of ours.
  /// `name` and `unit` ("holders killed") are kept, not copied.
  Campaign(const char* name, const char* unit, int argc, char** argv);

  std::uint64_t count() const { return mCount; }
  /// 0 when not given.
  unsigned seconds() const { return mSeconds; }
  std::uint64_t seed() const { return mSeed; }

  void tried(std::uint64_t times = 1) { mTried += times; }

  /// Something that was promised did not hold. The first ten texts are printed to standard error.
  void violation(const std::string& text);
  /// Something did not end within its watchdog.
  void hang(const std::string& text);
  /// A process died of a signal that nobody sent.
  void crash(const std::string& text);

  /// A figure for the table's last column, such as "longest handover 50.1 ms"; the last one stays.
  void note(const std::string& text) { mNote = text; }

  bool isClean() const { return mViolations == 0 && mHangs == 0 && mCrashes == 0; }

  /// Whether so much was found that going on would say no more.
  bool hasEnough() const { return mComplaints >= ENOUGH; }

  /// Prints the closing line to standard output, fields separated by tabs:
  ///
  ///     TRUST  name  tried  unit  violations  hangs  crashes  seconds  note
  ///
  /// @return the exit code: 0 when clean and at least one was tried, otherwise 1.
  int finish() const;

 private:
  static constexpr unsigned ENOUGH = 20;

  void complain(const char* kind, const std::string& text);

  const char* const mName;
  const char* const mUnit;
  std::uint64_t mCount = 100;
  unsigned mSeconds = 0;
  std::uint64_t mSeed = 0;
  std::uint64_t mTried = 0;
  std::uint64_t mViolations = 0;
  std::uint64_t mHangs = 0;
  std::uint64_t mCrashes = 0;
  std::string mNote;
  std::int64_t mStartedNs = 0;
  unsigned mComplaints = 0;
};

#endif
