// SPDX-License-Identifier: Apache-2.0
// One of two processes of different widths on one machine; scripts/test-mixed-width pairs them.
//
//   width_peer publish COUNT   writes COUNT generations of the Bluetooth table, all ten slots of one generation under
//                              one hold of the lock, and notifies of each; waits for a client first
//   width_peer client COUNT    refreshes the list at each notification: every list has to be of one generation, none
//                              older than the last one, and the last one is COUNT
//   width_peer hold-and-die    writes half a table under the lock, says "held", and kills itself, still holding it,
//                              when a line comes in
//   width_peer count N PARTIES waits until so many count, then adds 1 to a number in shared memory N times, each time
//                              under the lock
//   width_peer total           prints that number
//
// Exits 0 when all was well, 1 when not, 2 for bad arguments. Says "begins" before it first needs the lock.

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using PairingSegment = LmSharedMemory<idl::wire::BtPairedDeviceList, 1>;

constexpr unsigned GENERATION_PUBLISHED = 0x100;  // its data: the generation
constexpr unsigned CLIENT_IS_HERE = 0x101;
constexpr std::chrono::seconds WATCHDOG(120);

int complain(const std::string& what) {
  std::fprintf(stderr, "width_peer %d: %s\n", static_cast<int>(getpid()), what.c_str());
  return 1;
}

void say(const char* what) {
  std::puts(what);
  std::fflush(stdout);
}

/// Counts the notifications of one id, and lets a thread wait for more.
class Counter {
 public:
  explicit Counter(unsigned id) : mObserver(this, &Counter::heard), mNotifier(false) {
    const unsigned ids[] = {id};
    mNotifier.AddObserver(&mObserver, ids, 1);
  }

  ~Counter() { mNotifier.RemoveObserver(&mObserver); }

  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  /// Waits for one more than `known`, and puts into `known` how many there are. False when none came in time.
  bool waitForMore(unsigned& known, std::chrono::milliseconds watchdog) {
    std::unique_lock<std::mutex> lock(mMutex);
    const bool more = mChanged.wait_for(lock, watchdog, [&] { return mCount > known; });
    known = mCount;
    return more;
  }

 private:
  unsigned heard(unsigned /*id*/, void* /*data*/, unsigned /*size*/) {
    std::lock_guard<std::mutex> guard(mMutex);
    ++mCount;
    mChanged.notify_all();
    return 0;
  }

  std::mutex mMutex;
  std::condition_variable mChanged;
  unsigned mCount = 0;
  LmObserver<Counter> mObserver;
  LmSharedMemNotifier mNotifier;
};

// The generation stands in the slot's last fields and its first ones, and fills what is behind the texts.
void writeSlot(idl::wire::BtSlot& slot, unsigned number, std::uint32_t generation) {
  const auto low = static_cast<std::uint8_t>(generation);
  slot.id = static_cast<std::uint8_t>(number);
  std::memset(slot.name, low, sizeof slot.name);
  std::snprintf(slot.name, sizeof slot.name, "Phone %u", number);
  std::memset(slot.address, 0, sizeof slot.address);
  std::snprintf(slot.address, sizeof slot.address, "%lu", static_cast<unsigned long>(generation));
  slot.info = generation;
  slot.flag1 = low;
  slot.flag2 = static_cast<std::uint8_t>(generation >> 8);
}

int publish(std::uint32_t count) {
  say("begins");
  PairingSegment pairings(idl::wire::BT_SEGMENT);
  if (pairings.data() == nullptr) {
    return complain("the segment is not mapped");
  }
  LmSharedMemNotifier notifier(false);
  Counter clients(CLIENT_IS_HERE);
  unsigned known = 0;
  if (!clients.waitForMore(known, WATCHDOG)) {
    return complain("no client came");
  }
  for (std::uint32_t generation = 1; generation <= count; ++generation) {
    {
      LmSyncGuard guard(pairings);
      for (unsigned k = 0; k < 10; ++k) {
        writeSlot(pairings.data()->slots[k], k, generation);
      }
    }
    if (!notifier.Publish(GENERATION_PUBLISHED, &generation, sizeof generation)) {
      return complain("a generation was not published");
    }
  }
  return 0;
}

/// 0 when the list is not of one generation.
std::uint32_t generationOf(const std::vector<IntegratedDevice>& phones) {
  if (phones.size() != 10) {
    return 0;
  }
  const std::uint32_t generation = phones[0].btDevice.info;
  idl::wire::BtSlot expected = {};
  for (unsigned k = 0; k < 10; ++k) {
    const IntegratedDevice& phone = phones[k];
    writeSlot(expected, k, generation);
    if (phone.btid != k || phone.name != expected.name || phone.btDevice.id != expected.id ||
        std::memcmp(phone.btDevice.name, expected.name, sizeof expected.name) != 0 ||
        std::memcmp(phone.btDevice.address, expected.address, sizeof expected.address) != 0 ||
        phone.btDevice.info != expected.info || phone.btDevice.flag1 != expected.flag1 ||
        phone.btDevice.flag2 != expected.flag2) {
      return 0;
    }
  }
  return generation;
}

// Says that it is here until it hears something: the publisher may not be listening yet.
bool callPublisher(Counter& generations, unsigned& known) {
  LmSharedMemNotifier notifier(false);
  const auto deadline = std::chrono::steady_clock::now() + WATCHDOG;
  do {
    notifier.Publish(CLIENT_IS_HERE, nullptr, 0);
    if (generations.waitForMore(known, std::chrono::milliseconds(200))) {
      return true;
    }
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

int followList(std::uint32_t count) {
  say("begins");
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  Counter generations(GENERATION_PUBLISHED);
  unsigned known = 0;
  if (!callPublisher(generations, known)) {
    return complain("no publisher came");
  }
  std::set<std::uint32_t> seen;
  std::uint32_t last = 0;
  for (;;) {
    std::vector<IntegratedDevice> phones;
    list->updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
    if (!list->getDeviceList(phones)) {
      return complain("no list");
    }
    const std::uint32_t generation = generationOf(phones);
    if (generation == 0 || generation < last) {
      return complain("a list is mixed or older than the last: " + std::to_string(generation) + " after " +
                      std::to_string(last));
    }
    last = generation;
    seen.insert(generation);
    if (last == count) {
      break;
    }
    if (!generations.waitForMore(known, WATCHDOG)) {
      return complain("no notification after generation " + std::to_string(last));
    }
  }
  std::printf("%zu of %lu generations seen\n", seen.size(), static_cast<unsigned long>(count));
  return 0;
}

int holdAndDie() {
  say("begins");
  PairingSegment pairings(idl::wire::BT_SEGMENT);
  if (pairings.data() == nullptr) {
    return complain("the segment is not mapped");
  }
  if (!pairings.lock()) {
    return complain("the lock does not exclude other processes");
  }
  for (unsigned k = 0; k < 5; ++k) {
    writeSlot(pairings.data()->slots[k], k, 0xDEADDEAD);
  }
  say("held");
  std::string line;
  std::getline(std::cin, line);
  kill(getpid(), SIGKILL);
  return complain("still alive");
}

struct Numbers {
  std::uint32_t parties;
  std::uint32_t total;
};

constexpr char NUMBERS[] = "WidthNumbers";

int count(unsigned times, unsigned parties) {
  say("begins");
  LmSharedMemory<Numbers, 1> numbers(NUMBERS);
  auto* shared = static_cast<volatile Numbers*>(numbers.data());
  if (shared == nullptr) {
    return complain("the segment is not mapped");
  }
  {
    LmSyncGuard guard(numbers);
    shared->parties = shared->parties + 1;
  }
  const auto deadline = std::chrono::steady_clock::now() + WATCHDOG;
  for (unsigned here = 0; here < parties;) {
    if (std::chrono::steady_clock::now() > deadline) {
      return complain("the other one did not come");
    }
    std::this_thread::yield();
    LmSyncGuard guard(numbers);
    here = shared->parties;
  }
  const LmSharedSyncObject lock(NUMBERS);
  for (unsigned i = 0; i < times; ++i) {
    LmSyncGuard guard(lock);
    const std::uint32_t total = shared->total;
    std::this_thread::yield();  // gives a lock that does not exclude its chance to lose one
    shared->total = total + 1;
  }
  return 0;
}

int printTotal() {
  const LmSharedMemory<Numbers, 1> numbers(NUMBERS);
  if (numbers.data() == nullptr) {
    return complain("the segment is not mapped");
  }
  LmSyncGuard guard(numbers);
  std::printf("%lu\n", static_cast<unsigned long>(numbers.data()->total));
  return 0;
}

unsigned numberFrom(const std::string& text) { return static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10)); }

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::string role = words.empty() ? "" : words[0];
  if (role == "publish" && words.size() == 2) {
    return publish(numberFrom(words[1]));
  }
  if (role == "client" && words.size() == 2) {
    return followList(numberFrom(words[1]));
  }
  if (role == "hold-and-die" && words.size() == 1) {
    return holdAndDie();
  }
  if (role == "count" && words.size() == 3) {
    return count(numberFrom(words[1]), numberFrom(words[2]));
  }
  if (role == "total" && words.size() == 1) {
    return printTotal();
  }
  std::fprintf(stderr, "usage: width_peer publish COUNT | client COUNT | hold-and-die | count N PARTIES | total\n");
  return 2;
}
