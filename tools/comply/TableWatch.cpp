// SPDX-License-Identifier: Apache-2.0
#include "tools/comply/TableWatch.h"

#include <algorithm>
#include <thread>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/BenchNotification.h"
#include "tools/inspect/LockView.h"
#include "tools/inspect/LockVisit.h"

namespace idl::tools::comply {

namespace {

// Half of the time the lock is free, so that a service gets it; a unit waits a few milliseconds at most.
constexpr std::chrono::milliseconds HOLD{3};
constexpr std::chrono::microseconds HOLD_STEP{200};
constexpr std::chrono::milliseconds PAUSE{3};
constexpr std::chrono::milliseconds LOCK_PATIENCE{100};

// Within which a change has to be told of.
constexpr std::chrono::milliseconds GRACE{1000};

constexpr std::size_t SHOWN = 64;  // bytes of an offence

// Where the bytes differ first, and those that are there now.
std::optional<Offence> differenceOf(const std::string& former, const std::string& now, std::size_t from,
                                    std::size_t to) {
  const std::size_t end = std::min({former.size(), now.size(), to});
  std::size_t at = std::min(from, end);
  while (at < end && former[at] == now[at]) {
    ++at;
  }
  if (at == end) {
    return std::nullopt;
  }
  std::size_t last = std::min(end, at + SHOWN) - 1;
  while (last > at && former[last] == now[last]) {
    --last;
  }
  return Offence{{}, at, now.substr(at, last + 1 - at)};
}

// What clients read: a change of it has to be told. The rest of CarPlay's resource is that service's own.
std::optional<Offence> changeForClients(const Source& source, const std::string& former, const std::string& now) {
  if (&source != &CP_SOURCE) {
    return differenceOf(former, now, source.dataOffset, source.segmentSize);
  }
  using Table = wire::CarPlaySharedMemStruct;
  const std::size_t current = source.dataOffset + offsetof(Table, currentPhone);
  const std::size_t phones = source.dataOffset + offsetof(Table, phones);
  if (auto change = differenceOf(former, now, current, current + sizeof(Table::currentPhone))) {
    return change;
  }
  return differenceOf(former, now, phones, phones + sizeof(Table::phones));
}

// Whether somebody may be in the middle of writing: a copy that was made without the lock is not judged then.
bool isBeingWritten(const Source& source) {
  const LockView::State state = viewLock(source.segment).state;
  return state == LockView::State::HELD || state == LockView::State::HELD_BY_DEAD;
}

}  // namespace

unsigned notificationOf(const Source& source) {
  if (&source == &BT_SOURCE) {
    return bench::BT_NOTIFICATION_ID;
  }
  return &source == &CP_SOURCE ? wire::CARPLAY_NOTIFICATION_ID : bench::AAP_NOTIFICATION_ID;
}

TableWatch::TableWatch(const Source& source, std::optional<unsigned> notification)
    : mSource(source),
      mIsIdCertain(notification || &source == &CP_SOURCE),
      mListener(notification.value_or(notificationOf(source))) {
  mListener.listen();
}

void TableWatch::sample() {
  ++mSamples;
  listen();
  if (!sampleUnderLock()) {
    sampleWithoutLock();
  }
  std::this_thread::sleep_for(PAUSE);
}

void TableWatch::awaitNotification() {
  std::this_thread::sleep_for(PAUSE);
  listen();
}

bool TableWatch::sampleUnderLock() {
  const LockVisit lock(mSource.segment, LOCK_PATIENCE);
  if (!lock.isHeld()) {
    return false;
  }
  mHadLock = true;
  const TableCopy before = copyTableAtOnce(mSource);
  if (!before.isRead()) {
    mLast = before;
    return true;
  }
  ++mSamplesUnderLock;
  compare(before, mWasAwaited);
  judgeAll(before);
  const auto end = Clock::now() + HOLD;
  while (!lock.isAwaited() && Clock::now() < end) {
    std::this_thread::sleep_for(HOLD_STEP);
  }
  // Whoever waits does not write; whoever did not wait may do so right now, which is seen next time.
  if (lock.isAwaited()) {
    std::this_thread::sleep_for(HOLD_STEP);
  }
  const TableCopy after = copyTableAtOnce(mSource);
  if (after.isRead()) {
    if (auto written = differenceOf(before.bytes, after.bytes, mSource.dataOffset, mSource.segmentSize)) {
      written->what = "Somebody wrote while the lock was held here.";
      see(Rule::WRITES_UNDER_LOCK, {Verdict::BROKEN, std::move(written)});
    }
  }
  compare(after, false);
  mWasAwaited = lock.isAwaited();
  return true;
}

void TableWatch::sampleWithoutLock() {
  mWasAwaited = false;
  TableCopy copy = copyTable(mSource);
  if (copy.isRead() && copy.isSettled) {
    const bool isStill = mLast.isRead() && mLast.bytes == copy.bytes;
    compare(copy, false);
    if (isStill && !isBeingWritten(mSource)) {
      judgeAll(copy);
    }
  } else {
    mLast = std::move(copy);
  }
}

void TableWatch::judgeAll(const TableCopy& copy) {
  // A service that has written and told, and left it like this, is to blame.
  if (isUnwritten(mSource, copy) && !mWasWritten && mTold == 0) {
    mWasUnwritten = true;
    // Clients write the size word, too, so that a right one is nobody's merit.
    const Judgement judgement = judge(Rule::KEEPS_SIZE_WORD, mSource, copy);
    if (judgement.verdict == Verdict::BROKEN) {
      see(Rule::KEEPS_SIZE_WORD, judgement);
    }
    return;
  }
  mWasUnwritten = false;
  for (const Rule rule : RULES) {
    see(rule, judge(rule, mSource, copy));
  }
}

void TableWatch::compare(const TableCopy& now, bool afterWaiting) {
  if (!now.isRead()) {
    mLast = now;
    return;
  }
  mWasThere = true;
  const bool isFirst = !mLast.isRead();
  const std::string former = isFirst ? now.bytes : mLast.bytes;
  mLast = now;
  if (former.size() != now.bytes.size()) {
    return;  // another object
  }
  if (&mSource == &CP_SOURCE) {
    // Whoever attaches the resource first writes its defaults, and tells nobody.
    const std::size_t initialised = CP_SOURCE.dataOffset + offsetof(wire::CarPlaySharedMemStruct, initialised);
    if (former.size() > initialised && former[initialised] == '\0') {
      return;
    }
  }
  const bool wasWritten = differenceOf(former, now.bytes, mSource.dataOffset, mSource.segmentSize).has_value();
  mWasWritten = mWasWritten || wasWritten;
  if (afterWaiting && wasWritten) {
    see(Rule::WRITES_UNDER_LOCK, {Verdict::PASSED, {}});
  }
  if (auto change = changeForClients(mSource, former, now.bytes)) {
    ++mChanges;
    if (!mPending) {
      change->what = "This was written, and nobody was told within " + std::to_string(GRACE.count()) + " ms.";
      mPending = Pending{Clock::now(), mToldBefore, *change};
    }
  }
}

void TableWatch::listen() {
  mToldBefore = mTold;
  mTold = mListener.listen();
  if (!mPending) {
    return;
  }
  if (mTold > mPending->toldBefore) {
    see(Rule::NOTIFIES, {Verdict::PASSED, {}});
    mPending.reset();
  } else if (Clock::now() - mPending->since > GRACE) {
    if (mListener.isSure() && (mIsIdCertain || mTold > 0)) {
      see(Rule::NOTIFIES, {Verdict::BROKEN, mPending->offence});
    }
    mPending.reset();
  }
}

void TableWatch::see(Rule rule, const Judgement& judgement) {
  State& state = of(rule);
  if (judgement.verdict == Verdict::UNKNOWN) {
    return;
  }
  ++state.seen;
  if (judgement.verdict == Verdict::BROKEN && !state.offence) {
    state.offence = judgement.offence;
  }
}

Finding TableWatch::findingOf(Rule rule) const {
  const State& state = of(rule);
  Finding finding;
  finding.rule = rule;
  finding.seen = state.seen;
  finding.offence = state.offence;
  if (state.offence) {
    finding.verdict = Verdict::BROKEN;
    finding.why = state.offence->what;
  } else if (state.seen > 0) {
    finding.verdict = Verdict::PASSED;
    finding.why = "As far as it was seen, " + std::to_string(state.seen) + " times.";
  } else {
    finding.why = whyUnknown(rule);
  }
  return finding;
}

std::string TableWatch::whyUnknown(Rule rule) const {
  if (!mWasThere) {
    return "The table was never there.";
  }
  if (mWasUnwritten && rule <= Rule::USES_IDS_IN_RANGE) {
    return "Nobody has written the table yet.";
  }
  switch (rule) {
    case Rule::ENDS_TEXTS:
    case Rule::USES_IDS_IN_RANGE:
      return "No phone was seen in the table.";
    case Rule::KEEPS_FREE_SLOTS_FREE:
      return "No free slot was seen.";
    case Rule::KEEPS_SIZE_WORD:
      return "The table was never seen at rest.";
    case Rule::NOTIFIES:
      if (mChanges == 0) {
        return "The table never changed.";
      }
      if (!mIsIdCertain && mTold == 0) {
        return "Nothing was heard under the bench's id; say with --notification which is this service's.";
      }
      return mPending && mListener.isSure() ? "It was stopped before somebody had to be told of the change."
                                            : "Messages may have been missed.";
    case Rule::WRITES_UNDER_LOCK:
      break;
  }
  if (!mHadLock) {
    return "The lock could not be had here.";
  }
  return mChanges == 0 ? "The table never changed." : "No change was seen for which somebody had waited for the lock.";
}

}  // namespace idl::tools::comply
