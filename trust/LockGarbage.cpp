// SPDX-License-Identifier: Apache-2.0
// Garbage of every kind is written into the file of a lock, and the file removed, while processes lock and give back,
// others wait, and others that have used the lock are asleep. Nobody may crash or hang, or count as dead, and two may
// be inside at once only if one of them has been inside, or coming in, while garbage was written, or has not yet had
// the time to find the file removed.
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "LmFramework/posix/LockFile.h"
#include "framework/SharedMemoryTesting.h"
#include "trust/Campaign.h"
#include "trust/LockWorkers.h"
#include "trust/SharedFindings.h"

namespace {

constexpr char NAME[] = "Garbage";
constexpr char FILE_NAME[] = "LmLock.Garbage";
constexpr std::size_t WORD = offsetof(LockFilePage, word);
constexpr unsigned WORKERS = 4;
// They have a slot each, and do not lock: a word that names one of them would never be given back.
constexpr unsigned SLEEPERS = 40;
constexpr std::int64_t WATCHDOG_NS = 4'000'000'000;
constexpr unsigned ALL_MUST_LOCK_EVERY = 100;
constexpr unsigned REMOVED_EVERY = 20;
// After so many holds a removed file has been left.
constexpr std::uint32_t HOLDS_TO_LEAVE = 70;
constexpr unsigned MAX_FINDINGS = 20;
// How many random words are tried on the check beside each page that is written, and how often they should pass for a
// holder at most: 2^24 words have one. Thrice that, and ten more, is no chance.
constexpr unsigned WORDS_FOR_A_PAGE = 1000;
constexpr std::uint64_t WORDS_FOR_A_HOLDER = std::uint64_t{1} << 24;

struct Shared {
  // Odd while garbage is being written, and while some may still use a removed file.
  std::atomic<std::uint32_t> epoch{0};
  // The worker inside, counted from 1, and the epoch in which it began to lock; 0: nobody.
  std::atomic<std::uint64_t> inside{0};
  std::atomic<std::uint32_t> holds[WORKERS] = {};
  std::atomic<std::uint32_t> finds{0};
  std::atomic<unsigned> asleep{0};
};

constexpr std::uint64_t entryOf(unsigned worker, std::uint32_t epoch) {
  return std::uint64_t{epoch} << 32 | (worker + 1);
}

void work(Shared& shared, unsigned number, const SharedFindings& findings) {
  CountedLog log;
  const LmSharedSyncObject lock(NAME);
  std::minstd_rand random(number + 1);
  unsigned found = 0;
  for (;;) {
    const std::uint32_t epoch = shared.epoch;
    if (!lock.lock()) {
      findings.add("other processes are not excluded: " + log.other());
    }
    const std::uint64_t former = shared.inside.exchange(entryOf(number, epoch));
    // No garbage has been written since both began to lock, so nothing can have happened to either hold.
    if (former != 0 && epoch % 2 == 0 && former >> 32 == epoch && shared.epoch == epoch) {
      findings.add("two are inside at once, and no garbage has come since they began to lock");
    }
    if (log.deaths() != 0) {
      findings.add("somebody counts as dead, and nobody has died");
    }
    if (random() % 16 == 0) {
      pauseFor(std::chrono::microseconds(20));
    } else {
      dawdle(random, 600);
    }
    std::uint64_t mine = entryOf(number, epoch);
    shared.inside.compare_exchange_strong(mine, 0);
    if (!lock.unlock()) {
      findings.add("what was held could not be given back");
    }
    ++shared.holds[number];
    shared.finds += log.garbage() - found;
    found = log.garbage();
    dawdle(random, 300);
  }
}

void sleepWithASlot(Shared& shared) {
  const LmSharedSyncObject lock(NAME);
  if (lock.lock() && lock.unlock()) {
    ++shared.asleep;
  }
  for (;;) {
    pause();
  }
}

/// Writes garbage into the lock's file.
class Vandal {
 public:
  explicit Vandal(std::mt19937& random) : mRandom(random) { openFile(); }
  ~Vandal() { close(mFile); }
  Vandal(const Vandal&) = delete;
  Vandal& operator=(const Vandal&) = delete;

  void strike() {
    switch (mRandom() % 8) {
      case 0: {
        const auto byte = static_cast<char>(mRandom());
        write(mRandom() % sizeof(LockFilePage), &byte, 1);
        break;
      }
      case 1: {
        const std::string zeros(LockFile::FILE_SIZE, '\0');
        write(0, zeros.data(), zeros.size());
        break;
      }
      case 2:
        cut(0);
        break;
      case 3:
        cut(mRandom() % LockFile::FILE_SIZE);
        break;
      default:
        writeRandomBytes();
        break;
    }
  }

  /// Has whoever holds the lock lose it together with the file.
  void remove() const {
    const std::uint32_t garbage = 0x12345678;
    write(WORD, &garbage, sizeof garbage);
    std::filesystem::remove(sharedPath(FILE_NAME));
  }

  /// The next strikes hit the file that has been made again.
  void follow() {
    close(mFile);
    openFile();
  }

  std::uint64_t words() const { return mWords; }
  std::uint64_t passed() const { return mPassed; }

 private:
  void openFile() {
    mFile = open(sharedPath(FILE_NAME).c_str(), O_RDWR | O_CLOEXEC);
    if (mFile == -1) {
      throw std::system_error(errno, std::generic_category(), FILE_NAME);
    }
  }

  void writeRandomBytes() {
    std::array<std::uint32_t, LockFile::FILE_SIZE / 4> page = {};
    for (std::uint32_t& word : page) {
      word = static_cast<std::uint32_t>(mRandom());
    }
    for (unsigned i = 0; i < WORDS_FOR_A_PAGE; ++i) {
      passes(static_cast<std::uint32_t>(mRandom()));
    }
    // What passes may name one who sleeps and would be waited for: that is known, and counted.
    if (!passes(page[WORD / 4])) {
      write(0, page.data(), sizeof page);
    }
  }

  // Counts what the lock believes. Returns what the format says, so that a lock that believes more is found out.
  bool passes(std::uint32_t word) {
    ++mWords;
    mPassed += LockWord::isHeld(word) ? 1U : 0U;
    const std::uint32_t slot = word >> 24 & 0x7F;
    const std::uint32_t check = (slot * 0x4D & 0xFF) << 16 | (slot * 0xB5 & 0xFF) << 8 | (slot * 0xC7 & 0xFF);
    return slot != 0 && (word & 0xFFFFFF) == check;
  }

  void write(std::size_t offset, const void* bytes, std::size_t size) const {
    if (pwrite(mFile, bytes, size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size)) {
      throw std::system_error(errno, std::generic_category(), "pwrite");
    }
  }

  void cut(std::size_t size) const {
    if (ftruncate(mFile, static_cast<off_t>(size)) != 0) {
      throw std::system_error(errno, std::generic_category(), "ftruncate");
    }
  }

  std::mt19937& mRandom;
  int mFile = -1;
  std::uint64_t mWords = 0;
  std::uint64_t mPassed = 0;
};

class Crowd {
 public:
  Crowd(Shared& shared, const SharedFindings& findings) : mShared(shared) {
    for (pid_t& sleeper : mSleepers) {
      sleeper = forkWorker([&] { sleepWithASlot(shared); });
    }
    for (unsigned number = 0; number < WORKERS; ++number) {
      mWorkers[number] = forkWorker([&] { work(shared, number, findings); });
    }
  }
  ~Crowd() {
    for (const pid_t pid : mSleepers) {
      killAndReap(pid);
    }
    for (const pid_t pid : mWorkers) {
      if (pid != 0) {
        killAndReap(pid);
      }
    }
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  bool isReady() const {
    return eventually([this] { return mShared.asleep == SLEEPERS && locksSince({}, WORKERS); });
  }

  static constexpr std::uint32_t ONE_FROM_ITS_BEGINNING = 2;  // another may have begun before

  using Holds = std::array<std::uint32_t, WORKERS>;
  Holds holds() const {
    Holds now = {};
    for (unsigned number = 0; number < WORKERS; ++number) {
      now[number] = mShared.holds[number];
    }
    return now;
  }

  /// Whether so many have had the lock so often since they had had it as often as that.
  bool locksSince(const Holds& before, unsigned wanted, std::uint32_t times = ONE_FROM_ITS_BEGINNING) const {
    unsigned locked = 0;
    for (unsigned number = 0; number < WORKERS; ++number) {
      locked += mShared.holds[number] - before[number] >= times ? 1U : 0U;
    }
    return locked >= wanted;
  }

  /// A worker's status when one has ended, which none does by itself; otherwise 0.
  int ended() {
    for (pid_t& pid : mWorkers) {
      int status = 0;
      if (pid != 0 && waitpid(pid, &status, WNOHANG) == pid) {
        pid = 0;
        return status == 0 ? -1 : status;
      }
    }
    return 0;
  }

 private:
  Shared& mShared;
  pid_t mSleepers[SLEEPERS] = {};
  pid_t mWorkers[WORKERS] = {};
};

// False when the campaign has to end.
bool survives(Crowd& crowd, const Crowd::Holds& before, unsigned wanted, Campaign& campaign,
              std::uint32_t times = Crowd::ONE_FROM_ITS_BEGINNING) {
  const std::int64_t deadline = monotonicNs() + WATCHDOG_NS;
  while (!crowd.locksSince(before, wanted, times)) {
    const int status = crowd.ended();
    if (status != 0) {
      campaign.crash("a worker has ended, status " + std::to_string(status));
      return false;
    }
    if (monotonicNs() > deadline) {
      campaign.hang("after garbage " + std::to_string(wanted) + " of the workers did not get the lock");
      return false;
    }
    pauseFor(std::chrono::microseconds(20));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("lock-garbage", "pages of garbage", argc, argv);
  SharedFindings findings;
  const SharedValue<Shared> shared;
  std::mt19937 random(static_cast<std::mt19937::result_type>(campaign.seed()));
  Crowd crowd(*shared, findings);
  if (!crowd.isReady()) {
    campaign.hang("the workers did not begin");
    return campaign.finish();
  }
  Vandal vandal(random);
  for (std::uint64_t i = 0; i < campaign.count() && findings.count() < MAX_FINDINGS; ++i) {
    const Crowd::Holds before = crowd.holds();
    ++shared->epoch;
    if (i * 2 > campaign.count() && i % REMOVED_EVERY == 0) {  // late: the sleepers' slots go with the file
      vandal.remove();
      if (!survives(crowd, before, WORKERS, campaign, HOLDS_TO_LEAVE)) {
        break;
      }
      vandal.follow();
    } else {
      vandal.strike();
    }
    ++shared->epoch;
    campaign.tried();
    if (!survives(crowd, before, i % ALL_MUST_LOCK_EVERY == 0 ? WORKERS : 1, campaign)) {
      break;
    }
    pauseFor(std::chrono::microseconds(random() % 200));
  }
  findings.tell(campaign);
  if (vandal.passed() > 10 + 3 * vandal.words() / WORDS_FOR_A_HOLDER) {
    campaign.violation("too many random words pass for a holder: " + std::to_string(vandal.passed()));
  }
  char note[120];
  std::snprintf(note, sizeof note, "of %llu random words %llu name a holder, %u finds logged",
                static_cast<unsigned long long>(vandal.words()), static_cast<unsigned long long>(vandal.passed()),
                shared->finds.load());
  campaign.note(note);
  return campaign.finish();
}
