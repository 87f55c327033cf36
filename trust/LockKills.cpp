// SPDX-License-Identifier: Apache-2.0
// Processes lock and give back in a loop and are killed at any instruction, some of them just when the lock of one that
// was killed before is taken over; whoever is left must get the lock, and must be told when what it guards may be half
// written.
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "framework/SharedMemoryTesting.h"
#include "trust/Campaign.h"
#include "trust/LockWorkers.h"
#include "trust/SharedFindings.h"

namespace {

constexpr unsigned GROUPS = 6;        // most of a handover is sleep, so several locks share the machine
constexpr unsigned SEATS = 3;         // two to be killed and one to go on
constexpr unsigned KEPT_SERIALS = 8;  // more are never killed between two of those that come in
constexpr std::int64_t WATCHDOG_NS = 4'000'000'000;
constexpr std::int64_t MAX_LIFE_NS = 3'000'000;
// How long after the first the second one is killed: while a newcomer takes over, or those that have waited.
constexpr std::int64_t SOON_NS = 1'000'000;
constexpr std::int64_t LATE_NS = 60'000'000;
constexpr unsigned MAX_FINDINGS = 20;

/// What a group's workers and the one that kills them have in common.
struct Group {
  // Guarded by the group's lock.
  std::atomic<std::uint32_t> occupant{0};  // the worker inside, 0: none
  std::atomic<std::uint32_t> first{0};     // equal to the second one but inside
  std::atomic<std::uint32_t> second{0};

  // Written by who kills, before.
  std::atomic<std::uint32_t> killed[KEPT_SERIALS] = {};
  std::atomic<std::int64_t> killedAtNs{0};

  // Written by the workers.
  std::atomic<std::uint32_t> holds[SEATS] = {};
  std::atomic<std::uint32_t> handovers{0};
  std::atomic<std::int64_t> longestNs{0};
};

struct Groups {
  Group groups[GROUPS];
};

class Worker {
 public:
  Worker(Group& group, std::uint32_t serial, unsigned seat, const std::string& name, const SharedFindings& findings)
      : mGroup(group), mSerial(serial), mSeat(seat), mName(name), mFindings(findings), mRandom(serial) {}

  void run() {
    const LmSharedSyncObject lock(mName.c_str());
    for (;;) {
      const unsigned deathsBefore = mLog.deaths();
      if (!lock.lock()) {
        complain("other processes are not excluded: " + mLog.other());
      }
      beInside(mLog.deaths() != deathsBefore);
      if (!lock.unlock()) {
        complain("what was held could not be given back");
      }
      ++mGroup.holds[mSeat];
      if (mLog.garbage() != 0 || !mLog.other().empty()) {
        complain("a line without a reason: " + mLog.other());
        return;
      }
      dawdle(mRandom, 300);
    }
  }

 private:
  void beInside(bool toldOfADeath) {
    const std::uint32_t former = mGroup.occupant.exchange(mSerial);
    if (former != 0 && !wasKilled(former)) {
      complain("worker " + std::to_string(former) + " was inside and has not been killed");
    } else if (former != 0 && !toldOfADeath) {
      complain("worker " + std::to_string(former) + " died inside, and the log does not say so");
    }
    if (toldOfADeath) {
      tookOver();
    }
    if (mGroup.first != mGroup.second) {
      if (!toldOfADeath) {
        complain("half written, and the log does not say so");
      }
      mGroup.second = mGroup.first.load();
    }
    ++mGroup.first;
    if (mRandom() % 16 == 0) {
      pauseFor(std::chrono::microseconds(20));
    } else {
      dawdle(mRandom, 600);
    }
    ++mGroup.second;
    if (mGroup.occupant.exchange(0) != mSerial) {
      complain("somebody else came in");
    }
  }

  bool wasKilled(std::uint32_t serial) const {
    return std::any_of(std::begin(mGroup.killed), std::end(mGroup.killed),
                       [serial](const std::atomic<std::uint32_t>& killed) { return killed == serial; });
  }

  void tookOver() {
    const std::int64_t took = monotonicNs() - mGroup.killedAtNs;
    ++mGroup.handovers;
    if (took > mGroup.longestNs) {
      mGroup.longestNs = took;
    }
  }

  void complain(const std::string& text) { mFindings.add(mName + ", worker " + std::to_string(mSerial) + ": " + text); }

  Group& mGroup;
  const std::uint32_t mSerial;
  const unsigned mSeat;
  const std::string mName;
  const SharedFindings& mFindings;
  std::minstd_rand mRandom;
  CountedLog mLog;
};

/// One lock, its workers, and what comes next for them.
class Arena {
 public:
  Arena(unsigned number, Group& group, const SharedFindings& findings, Campaign& campaign)
      : mName("Kills" + std::to_string(number)), mGroup(group), mFindings(findings), mCampaign(campaign) {
    for (unsigned seat = 0; seat < SEATS; ++seat) {
      start(seat);
    }
  }

  // Those who are left take over from the first to die.
  ~Arena() {
    for (unsigned seat = 0; seat < SEATS; ++seat) {
      mGroup.killed[(mKills + seat) % KEPT_SERIALS] = mSerials[seat];
    }
    mGroup.killedAtNs = monotonicNs();
    for (const pid_t pid : mPids) {
      if (pid != 0) {
        killAndReap(pid);
      }
    }
  }

  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;

  /// Kills one when its time has come, and perhaps a second one before anybody has had the lock; starts others in their
  /// places, at once or when somebody has had it.
  /// @return whether there was anything to do
  bool step(std::mt19937& random) {
    const std::int64_t now = monotonicNs();
    if (!mIsAwaited) {
      if (now < mNextKillNs) {
        return false;
      }
      kill(static_cast<unsigned>(random() % SEATS));
      mSecondKillNs = now + static_cast<std::int64_t>(random() % (random() % 2 == 0 ? SOON_NS : LATE_NS));
      // Without newcomers nobody gets the slot of the dead: those that have waited have to take over.
      mHasNewcomers = random() % 2 == 0;
      mKillsSecond = mHasNewcomers || random() % 2 == 0;
      startNewcomers();
      return true;
    }
    if (somebodyHadTheLock()) {
      mIsAwaited = false;
      startMissing();
      mNextKillNs = now + static_cast<std::int64_t>(random() % MAX_LIFE_NS);
      return true;
    }
    if (mKillsSecond && now >= mSecondKillNs) {
      mKillsSecond = false;
      kill(seatOfSomebody(static_cast<unsigned>(random() % SEATS)));
      startNewcomers();
      return true;
    }
    if (now > mKilledNs + WATCHDOG_NS) {
      mIsHung = true;
      mCampaign.hang(mName + ": nobody got the lock after a kill");
    }
    return false;
  }

  bool isHung() const { return mIsHung; }
  std::uint64_t kills() const { return mKills; }

 private:
  void start(unsigned seat) {
    const std::uint32_t serial = ++sSerial;
    mSerials[seat] = serial;
    mPids[seat] = forkWorker([&] { Worker(mGroup, serial, seat, mName, mFindings).run(); });
  }

  void startNewcomers() {
    if (mHasNewcomers) {
      startMissing();
    }
  }

  void startMissing() {
    for (unsigned seat = 0; seat < SEATS; ++seat) {
      if (mPids[seat] == 0) {
        start(seat);
      }
    }
  }

  unsigned seatOfSomebody(unsigned seat) const {
    while (mPids[seat] == 0) {
      seat = (seat + 1) % SEATS;
    }
    return seat;
  }

  // From beginning to end: one hold may have begun before.
  bool somebodyHadTheLock() const {
    for (unsigned seat = 0; seat < SEATS; ++seat) {
      if (mGroup.holds[seat] - mHoldsBefore[seat] >= 2) {
        return true;
      }
    }
    return false;
  }

  void kill(unsigned seat) {
    mGroup.killed[mKills % KEPT_SERIALS] = mSerials[seat];
    mKilledNs = monotonicNs();
    mGroup.killedAtNs = mKilledNs;
    ::kill(mPids[seat], SIGKILL);
    const int status = reap(mPids[seat]);
    mPids[seat] = 0;
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
      mCampaign.crash(mName + ": a worker ended by itself, status " + std::to_string(status));
    }
    for (unsigned i = 0; i < SEATS; ++i) {
      mHoldsBefore[i] = mGroup.holds[i];
    }
    mIsAwaited = true;
    ++mKills;
    mCampaign.tried();
  }

  static std::uint32_t sSerial;

  const std::string mName;
  Group& mGroup;
  const SharedFindings& mFindings;
  Campaign& mCampaign;
  pid_t mPids[SEATS] = {};
  std::uint32_t mSerials[SEATS] = {};
  std::uint32_t mHoldsBefore[SEATS] = {};
  std::uint64_t mKills = 0;
  bool mIsAwaited = false;
  bool mHasNewcomers = false;
  bool mKillsSecond = false;
  bool mIsHung = false;
  std::int64_t mKilledNs = 0;
  std::int64_t mNextKillNs = 0;
  std::int64_t mSecondKillNs = 0;
};

std::uint32_t Arena::sSerial = 0;

std::string noteOf(const Groups& groups) {
  std::uint32_t handovers = 0;
  std::int64_t longestNs = 0;
  for (const Group& group : groups.groups) {
    handovers += group.handovers;
    longestNs = std::max(longestNs, group.longestNs.load());
  }
  char note[100];
  std::snprintf(note, sizeof note, "%u killed while holding, longest handover %.1f ms", handovers,
                static_cast<double>(longestNs) / 1e6);
  return note;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("lock-kills", "processes killed", argc, argv);
  SharedFindings findings;
  const SharedValue<Groups> groups;
  std::mt19937 random(static_cast<std::mt19937::result_type>(campaign.seed()));
  {
    std::vector<std::unique_ptr<Arena>> arenas;
    for (unsigned number = 0; number < GROUPS; ++number) {
      arenas.push_back(std::make_unique<Arena>(number, groups->groups[number], findings, campaign));
    }
    std::uint64_t kills = 0;
    for (bool goesOn = true; goesOn && kills < campaign.count();) {
      bool idle = true;
      kills = 0;
      for (auto& arena : arenas) {
        idle = !arena->step(random) && idle;
        goesOn = goesOn && !arena->isHung();
        kills += arena->kills();
      }
      goesOn = goesOn && findings.count() < MAX_FINDINGS;
      if (idle) {
        pauseFor(std::chrono::microseconds(100));
      }
    }
  }
  findings.tell(campaign);
  campaign.note(noteOf(*groups));
  return campaign.finish();
}
