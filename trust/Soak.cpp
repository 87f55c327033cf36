// SPDX-License-Identifier: Apache-2.0
// A unit under load for as long as asked: three services that publish and are killed, half-way through a record too; a
// process that writes garbage into rows; clients that come, save and are killed; and one client that lives through it
// all. That one must see every awaited change (a service waits now and then until its own has been seen) within the
// time that notifications may take; must need no more memory and no more descriptors at the end than after its warm-up;
// and must have, when all is quiet, the list that was published last.

#include <dirent.h>
#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "simulator/AapPublisher.h"
#include "simulator/BenchNotification.h"
#include "simulator/BenchSegment.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "simulator/SlotPublisher.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"
#include "trust/Campaign.h"

namespace {

using idl::bench::CrashPoint;
using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr unsigned DEFAULT_SECONDS = 15;

// A change is seen at once, or a second later where somebody was killed while telling; the rest is for a machine that
// has other things to do.
constexpr milliseconds LATEST(20000);

constexpr unsigned SOURCES = 3;
constexpr std::array<unsigned, SOURCES> NOTIFICATIONS = {
    idl::bench::BT_NOTIFICATION_ID, idl::wire::CARPLAY_NOTIFICATION_ID, idl::bench::AAP_NOTIFICATION_ID};
constexpr char MARK[] = "generation";  // of the phone that tells in each table which change it is the result of
constexpr std::uint64_t USB_ATTACHED = std::uint64_t{1} << 41;  // lets CarPlay's phones be listed
constexpr std::uint8_t MARK_BTID = 200;

// What may come on top after the warm-up: lists differ in length, and the heap in how it is cut up.
constexpr std::uint32_t HEAP_SLACK = 256 * 1024;
constexpr std::uint32_t RESIDENT_SLACK_KB = 1024;
constexpr std::uint32_t MAPPINGS_SLACK = 8;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_MEMORY_JUDGED = false;  // a sanitizer keeps what was freed
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool IS_MEMORY_JUDGED = false;
#else
constexpr bool IS_MEMORY_JUDGED = true;
#endif
#else
constexpr bool IS_MEMORY_JUDGED = true;
#endif

/// What the client needs, as far as its lists' lengths allow to tell.
struct Needs {
  static constexpr std::uint32_t ENOUGH_SAMPLES = 10;

  bool areKnown() const { return samples >= ENOUGH_SAMPLES; }

  std::atomic<std::uint32_t> samples{0};
  std::atomic<std::uint32_t> leastHeap{UINT32_MAX};
  std::atomic<std::uint32_t> leastResidentKb{UINT32_MAX};
  std::atomic<std::uint32_t> leastMappings{UINT32_MAX};
  std::atomic<std::uint32_t> mostDescriptors{0};
};

enum Phase : std::uint32_t { WARM_UP, FIRST, BETWEEN, LAST, PHASES };

/// Between all processes of the campaign. Every value is one writer's, or only grows.
struct Board {
  std::atomic<std::uint32_t> phase{WARM_UP};
  std::atomic<std::uint32_t> isEnding{0};
  std::array<std::atomic<std::uint32_t>, SOURCES> generation{};  // given out so far
  std::array<std::atomic<std::uint32_t>, SOURCES> seen{};        // in the client's list
  std::array<std::atomic<std::uint32_t>, SOURCES> mustCrash{};   // that service, at its next change
  std::atomic<std::uint32_t> published{0};
  std::atomic<std::uint32_t> awaited{0};
  std::atomic<std::uint32_t> late{0};
  std::atomic<std::uint32_t> longestMs{0};
  std::atomic<std::uint32_t> refreshes{0};
  std::array<Needs, PHASES> needs;

  std::atomic<std::uint32_t> mustTell{0};  // the list, by the client
  std::atomic<std::uint32_t> hasTold{0};
  char list[16384] = {};
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "a lock would be each process's own");

Board& sharedBoard() {
  void* const page = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
  return *new (page) Board;
}

template <class Compare>
void keep(std::atomic<std::uint32_t>& best, std::uint32_t value, Compare isBetter) {
  std::uint32_t found = best;
  while (isBetter(value, found) && !best.compare_exchange_weak(found, value)) {
  }
}

void keepMost(std::atomic<std::uint32_t>& most, std::uint32_t value) { keep(most, value, std::greater<>()); }
void keepLeast(std::atomic<std::uint32_t>& least, std::uint32_t value) { keep(least, value, std::less<>()); }

/// Waits for what another process does. False when the watchdog's time is over first.
template <class Condition>
bool await(Condition isTrue, milliseconds watchdog) {
  const auto deadline = Clock::now() + watchdog;
  while (!isTrue()) {
    if (Clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

/// Every handover from a dead holder is told in the log, and here that is the rule.
void logNothing() {
  LmDbgOutput::setSink([](void*, const char*) {}, nullptr);
}

// --- The services ---------------------------------------------------------------------------------------------------

using Random = std::mt19937;

unsigned upTo(Random& random, unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(random); }

const char* anyName(Random& random) {
  static constexpr const char* NAMES[] = {"Phone", "Phone", "Phone 2", "Tab", "", "Carla's iPhone"};
  return NAMES[upTo(random, 5)];
}

/// The mark in slot 0, and some phones behind it.
class Bluetooth {
 public:
  void begin() { mPublisher.initialise(); }

  void publish(std::uint32_t generation, unsigned count, Random& random) {
    std::map<unsigned, idl::bench::BtPhone> phones = {{0, mark(generation)}};
    for (unsigned slot = 1; slot <= count; ++slot) {
      phones[slot] = {static_cast<std::uint8_t>(upTo(random, 5)), anyName(random), "00:00:5E:00:53:01"};
    }
    mPublisher.replaceAll(phones);
  }

  void publishLast(std::uint32_t generation) {
    mPublisher.replaceAll({{0, mark(generation)}, {4, {7, "Last paired", ""}}, {9, {3, "Last of all paired", ""}}});
  }

  [[noreturn]] void crash(Random& random) {
    mPublisher.crash(CrashPoint::HALF_WRITTEN, 1 + upTo(random, 8), {3, "Half a phone", ""});
  }

 private:
  static idl::bench::BtPhone mark(std::uint32_t generation) { return {MARK_BTID, MARK, "", generation}; }

  idl::bench::BtPublisher mPublisher;
};

class CarPlay {
 public:
  void begin() {
    mPublisher.initialise();
    mPublisher.setCurrentPhone(USB_ATTACHED);
  }

  void publish(std::uint32_t generation, unsigned count, Random& random) {
    std::map<unsigned, idl::bench::CpPhone> phones = {{0, mark(generation)}};
    for (unsigned slot = 1; slot <= count; ++slot) {
      phones[slot] = {1 + random(), anyName(random), static_cast<std::uint8_t>(upTo(random, 5))};
    }
    mPublisher.replaceAll(phones);
  }

  void publishLast(std::uint32_t generation) {
    mPublisher.replaceAll({{0, mark(generation)}, {10, {77, "Last in CarPlay", 7, true}}});
  }

  [[noreturn]] void crash(Random& random) {
    mPublisher.crash(CrashPoint::HALF_WRITTEN, 1 + upTo(random, 8), {1 + random(), "Half a phone", 3});
  }

 private:
  static idl::bench::CpPhone mark(std::uint32_t generation) { return {generation, MARK}; }

  idl::bench::CpPublisher mPublisher;
};

class AndroidAuto {
 public:
  void begin() { mPublisher.initialise(); }

  void publish(std::uint32_t generation, unsigned count, Random& random) {
    std::map<unsigned, idl::bench::AapPhone> phones = {{0, mark(generation)}};
    for (unsigned slot = 1; slot <= count; ++slot) {
      phones[slot] = {"id " + std::to_string(random()), anyName(random), 1, static_cast<std::uint8_t>(upTo(random, 5)),
                      static_cast<std::int32_t>(upTo(random, 3))};
    }
    mPublisher.replaceAll(phones);
  }

  void publishLast(std::uint32_t generation) {
    mPublisher.replaceAll({{0, mark(generation)}, {11, {"last", "Last in Android Auto", 2, 255, 5}}});
  }

  [[noreturn]] void crash(Random& random) {
    mPublisher.crash(CrashPoint::HALF_WRITTEN, 1 + upTo(random, 8), {"half an id", "Half a phone", 1, 3, 1});
  }

 private:
  static idl::bench::AapPhone mark(std::uint32_t generation) { return {std::to_string(generation), MARK, 0, 255, 2}; }

  idl::bench::AapPublisher mPublisher;
};

/// A service: begins anew, changes its table again and again, and at the end leaves it in its last state. Now and then
/// it waits until the client has seen the change, which was told.
template <class Service>
int runService(Board& board, unsigned source, std::uint64_t seed) {
  logNothing();
  Random random(static_cast<Random::result_type>(seed));
  Service service;
  service.begin();
  for (;;) {
    const bool isLast = board.isEnding != 0;
    const std::uint32_t generation = ++board.generation[source];
    if (isLast) {
      service.publishLast(generation);
    } else if (board.mustCrash[source].exchange(0) != 0) {
      service.crash(random);
    } else {
      service.publish(generation, upTo(random, 6), random);
    }
    ++board.published;
    const auto told = Clock::now();
    if (isLast || upTo(random, 3) == 0) {
      if (!await([&] { return board.seen[source] >= generation; }, LATEST)) {
        ++board.late;
      }
      ++board.awaited;  // who is killed before has judged nothing
      const auto taken = std::chrono::duration_cast<milliseconds>(Clock::now() - told);
      keepMost(board.longestMs, static_cast<std::uint32_t>(taken.count()));
    }
    if (isLast) {
      return 0;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(upTo(random, 12000)));
  }
}

/// Nonsense in a row, as of a service gone mad: under the lock, behind the mark. It tells nobody: that would bring a
/// client to see a service's change of which it has not heard.
template <class Format>
void spoilARow(Random& random) {
  using Publisher = idl::bench::SlotPublisher<Format>;
  static const idl::bench::BenchSegment<typename Format::Table> segment(Format::segmentName());
  const std::string row = idl::bench::garbageOf(static_cast<std::uint32_t>(random()), Publisher::SLOT_SIZE);
  const unsigned slot = 1 + upTo(random, Publisher::SLOT_COUNT - 2);
  const LmSyncGuard guard(segment.lock());
  segment.write(Publisher::offsetOf(slot), row.data(), row.size());
}

int runVandal(std::uint64_t seed) {
  logNothing();
  constexpr std::array<void (*)(Random&), SOURCES> SPOIL = {
      spoilARow<idl::bench::BtFormat>, spoilARow<idl::bench::CpFormat>, spoilARow<idl::bench::AapFormat>};
  Random random(static_cast<Random::result_type>(seed));
  for (;;) {
    SPOIL.at(upTo(random, SOURCES - 1))(random);
    std::this_thread::sleep_for(std::chrono::microseconds(upTo(random, 20000)));
  }
}

// --- The clients ----------------------------------------------------------------------------------------------------

std::uint32_t generationIn(const std::vector<IntegratedDevice>& phones, unsigned source) {
  for (const IntegratedDevice& phone : phones) {
    if (source == LmSIntegratedDeviceListDef::DEVICE_TYPE_BT && std::strcmp(phone.btDevice.name, MARK) == 0) {
      return phone.btDevice.info;
    }
    if (source == LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY && std::strcmp(phone.cpDevice.name, MARK) == 0) {
      return static_cast<std::uint32_t>(phone.cpDevice.identifier);
    }
    if (source == LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP && std::strcmp(phone.aapDevice.name, MARK) == 0) {
      return static_cast<std::uint32_t>(std::strtoul(phone.aapDevice.id, nullptr, 10));
    }
  }
  return 0;
}

std::uint32_t openDescriptors() {
  std::uint32_t count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  if (folder == nullptr) {
    throw std::system_error(errno, std::generic_category(), "/proc/self/fd");
  }
  while (readdir(folder) != nullptr) {
    ++count;
  }
  closedir(folder);
  return count;
}

std::uint32_t residentKb() {
  std::FILE* const file = std::fopen("/proc/self/statm", "re");
  unsigned long size = 0;
  unsigned long resident = 0;
  if (file == nullptr || std::fscanf(file, "%lu %lu", &size, &resident) != 2) {
    throw std::runtime_error("/proc/self/statm");
  }
  std::fclose(file);
  return static_cast<std::uint32_t>(resident * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) / 1024);
}

std::uint32_t mappings() {
  std::ifstream maps("/proc/self/maps");
  std::uint32_t count = 0;
  for (std::string line; std::getline(maps, line);) {
    ++count;
  }
  return count;
}

/// Hears of changes on the notifier's thread, and wakes the one that refreshes.
class Changes {
 public:
  Changes() : mNotifier(false), mObserver(this, &Changes::update) {
    if (!mNotifier.AddObserver(&mObserver, NOTIFICATIONS.data(), SOURCES)) {
      throw std::runtime_error("no notifications");
    }
  }

  ~Changes() { mNotifier.RemoveObserver(&mObserver); }

  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  /// The sources that have changed, one bit each; 0 after a while without any.
  unsigned take() {
    std::unique_lock<std::mutex> lock(mMutex);
    mArrived.wait_for(lock, milliseconds(100), [this] { return mChanged != 0; });
    return std::exchange(mChanged, 0);
  }

 private:
  unsigned update(unsigned id, void* /*data*/, unsigned /*size*/) {
    const std::lock_guard<std::mutex> guard(mMutex);
    for (unsigned source = 0; source < SOURCES; ++source) {
      mChanged |= NOTIFICATIONS[source] == id ? 1U << source : 0U;
    }
    mArrived.notify_one();
    return 0;
  }

  std::mutex mMutex;
  std::condition_variable mArrived;
  unsigned mChanged = 0;
  LmSharedMemNotifier mNotifier;
  LmObserver<Changes> mObserver;
};

void tellNeeds(Board& board) {
  Needs& needs = board.needs.at(board.phase);
  ++needs.samples;
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
  keepLeast(needs.leastHeap, static_cast<std::uint32_t>(mallinfo2().uordblks));
#endif
  keepLeast(needs.leastResidentKb, residentKb());
  keepLeast(needs.leastMappings, mappings());
  keepMost(needs.mostDescriptors, openDescriptors());
}

std::string rowsOf(const std::vector<IntegratedDevice>& phones) {
  std::string rows;
  for (const IntegratedDevice& phone : phones) {
    rows += std::to_string(static_cast<int>(phone.type)) + " " + phone.name + " btid " + std::to_string(phone.btid) +
            " port " + std::to_string(phone.port) + " session " + std::to_string(phone.session) + "\n";
  }
  return rows;
}

/// The client that lives as long as the campaign. Beside the list it attaches and lets go of a table and of
/// notifications again and again.
int runClient(Board& board) {
  logNothing();
  Changes changes;
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  std::vector<IntegratedDevice> phones;
  unsigned toRefresh = (1U << SOURCES) - 1;
  while (board.mustTell == 0) {
    for (unsigned source = 0; source < SOURCES; ++source) {
      if ((toRefresh >> source & 1) == 0) {
        continue;
      }
      list->updateDeviceList(static_cast<DeviceType>(source));
      list->getDeviceList(phones);
      ++board.refreshes;
      keepMost(board.seen[source], generationIn(phones, source));
    }
    if (toRefresh != 0) {
      { const idl::bench::FuncInfoPublisher attached; }
      { const Changes attached; }
      tellNeeds(board);
    }
    toRefresh = changes.take();
  }
  const std::string rows = rowsOf(phones);
  std::memcpy(board.list, rows.c_str(), std::min(rows.size() + 1, sizeof board.list));
  board.hasTold = 1;
  return 0;
}

/// A client that comes and goes.
int runPassingClient() {
  logNothing();
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  std::vector<IntegratedDevice> phones;
  for (unsigned round = 0; round < 30; ++round) {
    list->updateDeviceList(static_cast<DeviceType>(round % SOURCES));
    if (!list->getDeviceList(phones)) {
      return 1;
    }
  }
  return 0;
}

// --- The campaign ---------------------------------------------------------------------------------------------------

/// What is started again whenever it has ended.
struct Role {
  const char* name;
  std::function<int(std::uint64_t seed)> body;
  std::unique_ptr<ChildProcess> process;
  bool isKilled = false;  // by us, or told to crash
};

void start(Role& role, std::uint64_t seed) {
  role.isKilled = false;
  role.process = std::make_unique<ChildProcess>([&role, seed] { return role.body(seed); }, ChildProcess::End::EXIT);
}

/// Judges how the role's process has ended, if it has. False: it lives.
bool judgeEnd(Campaign& campaign, const Role& role) {
  const int code = role.process->wait(milliseconds(0));
  if (code == ChildProcess::HUNG) {
    return false;
  }
  if (code < 0 && !(role.isKilled && code == -SIGKILL)) {
    campaign.crash(std::string(role.name) + " died of signal " + std::to_string(-code));
  } else if (code > 0) {
    campaign.violation(std::string(role.name) + " ended with " + std::to_string(code));
  }
  return true;
}

/// The phase that a part of the time belongs to. The first that counts lasts until enough is known of it, so that a
/// machine under load has only longer ones.
Phase phaseAt(const Board& board, double part) {
  const std::uint32_t now = board.phase;
  const std::uint32_t due = part < 0.3 ? WARM_UP : part < 0.5 ? FIRST : part < 0.8 ? BETWEEN : LAST;
  const bool mustStay = now == FIRST && !board.needs[FIRST].areKnown();
  return static_cast<Phase>(mustStay ? now : std::min(due, now + 1));
}

constexpr char EXPECTED_LIST[] =
    "1 generation btid 255 port 1 session 0\n"
    "2 generation 2 btid 255 port 2 session 0\n"
    "2 Last in Android Auto btid 255 port 5 session 2\n"
    "0 Last of all paired btid 3 port 0 session 0\n"
    "1 Last in CarPlay btid 7 port 1 session 1\n"
    "0 generation 3 btid 200 port 0 session 0\n";

/// The marks have one name, and which of them has which number is the story's.
std::string withoutNumbersOfMarks(const std::string& rows) {
  std::string text = rows;
  for (std::size_t at = text.find(MARK); at != std::string::npos; at = text.find(MARK, at + 1)) {
    const std::size_t end = at + sizeof MARK - 1;
    if (text.compare(end, 6, " btid ") != 0) {
      text.erase(end, text.find(" btid ", end) - end);
    }
  }
  return text;
}

void judgeNeeds(Campaign& campaign, const Board& board) {
  const Needs& first = board.needs[FIRST];
  const Needs& last = board.needs[LAST];
  const auto compare = [&campaign](const char* what, std::uint32_t before, std::uint32_t after, std::uint32_t slack) {
    if (after > before + slack) {
      campaign.violation(std::string(what) + " grew from " + std::to_string(before) + " to " + std::to_string(after));
    }
  };
  compare("the number of descriptors", first.mostDescriptors, last.mostDescriptors, 0);
  if (IS_MEMORY_JUDGED) {
    compare("the heap", std::min<std::uint32_t>(first.leastHeap, UINT32_MAX - HEAP_SLACK), last.leastHeap, HEAP_SLACK);
    compare("the number of mappings", first.leastMappings, last.leastMappings, MAPPINGS_SLACK);
    compare("the resident memory in KiB", first.leastResidentKb, last.leastResidentKb, RESIDENT_SLACK_KB);
  }
}

std::string needsText(const Board& board) {
  const Needs& first = board.needs[FIRST];
  const Needs& last = board.needs[LAST];
  const std::string descriptors =
      "descriptors " + std::to_string(first.mostDescriptors) + " -> " + std::to_string(last.mostDescriptors);
  if (!IS_MEMORY_JUDGED) {
    return descriptors + " (memory is not judged under a sanitizer)";
  }
  return "heap " + std::to_string(first.leastHeap / 1024) + " -> " + std::to_string(last.leastHeap / 1024) +
         " KiB, resident " + std::to_string(first.leastResidentKb) + " -> " + std::to_string(last.leastResidentKb) +
         " KiB, mappings " + std::to_string(first.leastMappings) + " -> " + std::to_string(last.leastMappings) + ", " +
         descriptors;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("soak", "changes awaited", argc, argv);
  const unsigned seconds = campaign.seconds() != 0 ? campaign.seconds() : DEFAULT_SECONDS;
  setenv("TMPDIR", "/dev/shm", 1);
  const TempFolder folder;
  setenv("LM_SAVE_FILE_DIR", folder.path().c_str(), 1);
  Board& board = sharedBoard();
  Random random(static_cast<Random::result_type>(campaign.seed()));

  std::vector<Role> services(SOURCES);
  services[0] = {"the Bluetooth service", [&](auto seed) { return runService<Bluetooth>(board, 0, seed); }, nullptr};
  services[1] = {"the CarPlay service", [&](auto seed) { return runService<CarPlay>(board, 1, seed); }, nullptr};
  services[2] = {"the Android Auto service", [&](auto seed) { return runService<AndroidAuto>(board, 2, seed); },
                 nullptr};
  std::vector<Role> others(3);
  others[0] = {"the vandal", [](auto seed) { return runVandal(seed); }, nullptr};
  others[1] = {"a passing client", [](auto) { return runPassingClient(); }, nullptr};
  others[2] = {"another passing client", [](auto) { return runPassingClient(); }, nullptr};
  Role client = {"the client", [&](auto) { return runClient(board); }, nullptr};

  for (Role& role : services) {
    start(role, random());
  }
  start(client, 0);
  unsigned kills = 0;
  const auto begin = Clock::now();
  const auto passed = [begin] {
    return std::chrono::duration_cast<std::chrono::duration<double>>(Clock::now() - begin).count();
  };
  const double latest = seconds + std::chrono::duration<double>(LATEST).count();
  const auto isOver = [&] { return passed() > (board.needs[LAST].areKnown() ? seconds : latest); };
  while (!isOver() && campaign.isClean() && board.late == 0) {
    board.phase = phaseAt(board, passed() / seconds);
    for (unsigned source = 0; source < SOURCES; ++source) {
      if (judgeEnd(campaign, services[source])) {
        board.mustCrash[source] = 0;  // it was killed before it could
        start(services[source], random());
      }
    }
    for (Role& role : others) {
      if (role.process == nullptr || judgeEnd(campaign, role)) {
        start(role, random());
      }
    }
    if (judgeEnd(campaign, client)) {
      campaign.violation("the client ended");
      return campaign.finish();
    }
    const unsigned dice = upTo(random, 15);
    if (dice < services.size() + others.size()) {
      Role& victim = dice < services.size() ? services[dice] : others[dice - services.size()];
      victim.isKilled = true;
      victim.process->signal(SIGKILL);
      ++kills;
    } else if (dice < services.size() + others.size() + SOURCES) {
      const std::size_t source = dice - services.size() - others.size();
      services[source].isKilled = true;
      board.mustCrash[source] = 1;
      ++kills;
    }
    std::this_thread::sleep_for(milliseconds(upTo(random, 40)));
  }

  // Quiet: what makes noise is killed, and each service leaves its last table, which the client has to see.
  for (Role& role : others) {
    role.process.reset();
  }
  for (std::atomic<std::uint32_t>& mustCrash : board.mustCrash) {
    mustCrash = 0;
  }
  board.isEnding = 1;
  bool isQuiet = false;
  const auto deadline = Clock::now() + 3 * LATEST;
  while (!isQuiet && Clock::now() < deadline) {
    isQuiet = true;
    for (Role& role : services) {
      const int code = role.process->wait(milliseconds(100));
      isQuiet = isQuiet && code == 0;
      if (code != 0 && code != ChildProcess::HUNG) {
        judgeEnd(campaign, role);
        start(role, random());
      }
    }
  }
  if (!isQuiet) {
    campaign.hang("the services did not come to their end");
  }
  board.mustTell = 1;
  if (!await([&board] { return board.hasTold != 0; }, LATEST)) {
    campaign.hang("the client did not tell its list");
  } else if (withoutNumbersOfMarks(board.list) != withoutNumbersOfMarks(EXPECTED_LIST)) {
    campaign.violation(std::string("the client's last list is\n") + board.list);
  }
  if (client.process->wait() != 0) {
    campaign.violation("the client did not end well");
  }
  if (board.late != 0) {
    campaign.violation(std::to_string(board.late) + " changes were not seen");
  }
  if (campaign.isClean()) {  // else it may have broken off before
    if (!board.needs[FIRST].areKnown() || !board.needs[LAST].areKnown()) {
      std::fprintf(stderr, "soak: the client refreshed too seldom to tell what it needs: is the machine too busy?\n");
      return 2;
    }
    judgeNeeds(campaign, board);
  }
  campaign.tried(board.awaited);
  campaign.note(std::to_string(kills) + " kills, " + std::to_string(board.refreshes) + " refreshes, " +
                std::to_string(board.published) + " changes, the slowest awaited for " +
                std::to_string(board.longestMs) + " ms; the client: " + needsText(board));
  return campaign.finish();
}
