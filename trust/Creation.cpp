// SPDX-License-Identifier: Apache-2.0
// Who creates a segment is killed: at each system call of its own, and at random moments among others that attach the
// same segment at the same time. Whoever is left finds it whole, and nothing that one has written is zeroed by another.
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AapDeviceListSharedMem.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "FuncInfoSharedMem.h"
#include "IntegratedDeviceList/CarPlayDefaults.h"
#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmSyncGuard.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SegmentFormat.h"
#include "trust/Campaign.h"
#include "trust/SharedFindings.h"

namespace {

constexpr unsigned RACERS = 4;
constexpr auto WATCHDOG = std::chrono::seconds(20);
constexpr std::size_t MARKS = 16;  // payload offset of the racers' marks, where every segment begins with zeros

struct Race {
  std::atomic<unsigned> ready{0};
  std::atomic<bool> go{false};
  std::atomic<bool> marked[RACERS] = {};
  std::atomic<unsigned> finished{0};
};

/// What the campaign does with a segment, whatever its type.
struct Contender {
  SegmentFormat format;
  void (*attach)();
  int (*race)(const SharedValue<Race>& race, unsigned racer, const SharedFindings& findings);
  std::string whole;  // as an undisturbed creation leaves it
};

// The log tells of killed holders of the lock, as it should.
void ignoreLine(void* /*context*/, const char* /*line*/) {}

// Zeros behind the size word, and CarPlay's defaults.
std::string wholeOf(const SegmentFormat& format) {
  std::string whole(format.size(), '\0');
  const auto dataSize = static_cast<std::uint32_t>(format.data);
  std::memcpy(whole.data(), &dataSize, sizeof dataSize);
  if (format.data == sizeof(idl::wire::CarPlaySharedMemStruct)) {
    const idl::wire::CarPlaySharedMemStruct defaults = idl::wire::carPlayDefaults();
    std::memcpy(&whole[format.offset], &defaults, sizeof defaults);
  }
  return whole;
}

template <class Segment>
void attachOnce() {
  const Segment segment;
}

// Attaches with all the others at once, looks at what is there, and leaves a mark.
template <class Segment>
int raceOnce(const SharedValue<Race>& race, unsigned racer, const SharedFindings& findings) {
  constexpr SegmentFormat FORMAT = formatOf<Segment>();
  LmDbgOutput::setSink(&ignoreLine, nullptr);
  ++race->ready;
  while (!race->go) {
  }
  const Segment segment;
  {
    const LmSyncGuard guard(segment);
    std::string expected = wholeOf(FORMAT);
    std::string found(FORMAT.size(), 'x');
    if (segment.read(0, found.data(), found.size()) != found.size()) {
      findings.add(std::string(FORMAT.name) + ": too short for who has attached it");
    }
    for (unsigned other = 0; other < RACERS; ++other) {
      const std::size_t mark = FORMAT.offset + MARKS + other;
      if (other != racer && (race->marked[other] || found[mark] == 1)) {
        expected[mark] = 1;
      }
    }
    if (found != expected) {
      findings.add(std::string(FORMAT.name) + ": not zeros, or a mark was zeroed");
    }
    const char mark = 1;
    segment.write(FORMAT.offset + MARKS + racer, &mark, 1);
    race->marked[racer] = true;
  }
  ++race->finished;
  return 0;
}

template <class Segment>
Contender contender() {
  return {formatOf<Segment>(), &attachOnce<Segment>, &raceOnce<Segment>, wholeOf(formatOf<Segment>())};
}

// The child, stopped at its `stop`-th entry to or return from a system call, dies there. False when it ends before.
bool diesAt(const Contender& contender, unsigned stop) {
  const pid_t child = fork();
  if (child == 0) {
    LmDbgOutput::setSink(&ignoreLine, nullptr);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
      _exit(1);
    }
    raise(SIGSTOP);
    contender.attach();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) {
    std::fprintf(stderr, "creation: no process can be traced here\n");
    std::exit(2);
  }
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL);
  for (unsigned seen = 0; seen < stop; ++seen) {
    ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    waitpid(child, &status, 0);
    if (WIFEXITED(status) || WIFSIGNALED(status)) {
      return false;
    }
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return true;
}

std::uint64_t cutEverywhere(Campaign& campaign, const Contender& contender) {
  std::uint64_t cuts = 0;
  for (bool died = true; died && campaign.isClean(); ++cuts) {
    RawSegment::remove(contender.format.name);
    died = diesAt(contender, static_cast<unsigned>(cuts) + 1);
    ChildProcess next([&] {
      LmDbgOutput::setSink(&ignoreLine, nullptr);
      contender.attach();
      return 0;
    });
    const std::string what = std::string(contender.format.name) + ", cut at stop " + std::to_string(cuts + 1);
    const int end = next.wait(WATCHDOG);
    if (end == ChildProcess::HUNG) {
      campaign.hang(what);
    } else if (end != 0) {
      campaign.crash(what + ": the next died of " + std::to_string(-end));
    } else if (RawSegment(contender.format.name).all() != contender.whole) {
      campaign.violation(what + ": not made whole by the next");
    }
  }
  return cuts;
}

bool waitForAll(const std::atomic<unsigned>& count) {
  return eventually([&] { return count >= RACERS; }, WATCHDOG);
}

// One round; some of the racers are killed on their way.
void runRace(Campaign& campaign, const Contender& contender, std::mt19937& random, SharedFindings& findings,
             std::uint64_t& killed) {
  const SharedValue<Race> race;
  RawSegment::remove(contender.format.name);
  std::vector<std::unique_ptr<ChildProcess>> racers;
  for (unsigned racer = 0; racer < RACERS; ++racer) {
    racers.push_back(std::make_unique<ChildProcess>([&, racer] { return contender.race(race, racer, findings); }));
  }
  if (!waitForAll(race->ready)) {
    campaign.hang("the racers do not start");
    return;
  }
  race->go = true;
  const unsigned victims = static_cast<unsigned>(random() % RACERS);  // never all
  for (unsigned racer = 0; racer < victims; ++racer) {
    pauseFor(std::chrono::microseconds(random() % 150));
    racers[racer]->signal(SIGKILL);
  }
  for (unsigned racer = 0; racer < RACERS; ++racer) {
    const int end = racers[racer]->wait(WATCHDOG);
    if (end == ChildProcess::HUNG) {
      campaign.hang(std::string(contender.format.name) + ": a racer");
    } else if (end == -SIGKILL && racer < victims) {
      ++killed;
    } else if (end != 0) {
      campaign.crash(std::string(contender.format.name) + ": a racer ended with " + std::to_string(end));
    }
  }
  std::string expected = contender.whole;
  const std::string found = RawSegment(contender.format.name).all();
  for (unsigned racer = 0; racer < RACERS; ++racer) {
    const std::size_t mark = contender.format.offset + MARKS + racer;
    // Who was killed right behind its mark could not say so any more.
    if (race->marked[racer] || (racer < victims && mark < found.size() && found[mark] == 1)) {
      expected[mark] = 1;
    }
  }
  if (found != expected) {
    campaign.violation(std::string(contender.format.name) + ": not whole after the race, or a mark is gone");
  }
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("creation", "races to create, and cuts", argc, argv);
  const Contender contenders[] = {contender<FuncInfoSharedMem>(), contender<BtPairedDeviceListSharedMem>(),
                                  contender<AapDeviceListSharedMem>(), contender<CarPlayInfoSharedMem>()};
  SharedFindings findings;
  std::mt19937 random(static_cast<std::mt19937::result_type>(campaign.seed()));

  std::uint64_t cuts = 0;
  for (const Contender& contender : contenders) {
    cuts += cutEverywhere(campaign, contender);
  }
  campaign.tried(cuts);
  std::uint64_t killed = 0;
  for (std::uint64_t round = 0; round < campaign.count() && campaign.isClean(); ++round) {
    runRace(campaign, contenders[round % std::size(contenders)], random, findings, killed);
    findings.tell(campaign);
    campaign.tried();
  }
  campaign.note(std::to_string(cuts) + " cuts, " + std::to_string(killed) + " racers killed");
  return campaign.finish();
}
