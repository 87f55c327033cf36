// SPDX-License-Identifier: Apache-2.0
// How long the library holds each segment's lock, and how long a list read waits while another thread saves.
//
// The linker puts the functions below in the place of the lock's own (--wrap). A hold is timed from the moment that the
// outermost lock() returns to the moment that its unlock() begins, so it contains one reading of the clock.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "AapDeviceListSharedMem.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "LmSIntegratedDeviceListImpl.h"
#include "bench/Counting.h"
#include "bench/Phones.h"

namespace {

using idl::cost::DeviceType;
using idl::cost::IntegratedDevice;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Hold {
  const LmSharedSyncObject* lock;
  Clock::time_point begin;
};

thread_local std::vector<Hold> held;
thread_local std::vector<std::pair<const LmSharedSyncObject*, double>>* records = nullptr;  // null: nothing is timed

void locked(const LmSharedSyncObject& lock) {
  if (records != nullptr) {
    held.push_back({&lock, Clock::now()});
  }
}

void unlocking(const LmSharedSyncObject& lock) {
  if (records == nullptr || held.empty()) {
    return;
  }
  const auto end = Clock::now();
  if (held.size() == 1) {
    records->emplace_back(&lock, Seconds(end - held.back().begin).count());
  }
  held.pop_back();
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for what it wraps
extern "C" {
bool __real__ZNK18LmSharedSyncObject4lockEv(const LmSharedSyncObject* lock);
bool __real__ZNK18LmSharedSyncObject6unlockEv(const LmSharedSyncObject* lock);

bool __wrap__ZNK18LmSharedSyncObject4lockEv(const LmSharedSyncObject* lock) {
  const bool isExclusive = __real__ZNK18LmSharedSyncObject4lockEv(lock);
  locked(*lock);
  return isExclusive;
}

bool __wrap__ZNK18LmSharedSyncObject6unlockEv(const LmSharedSyncObject* lock) {
  unlocking(*lock);
  return __real__ZNK18LmSharedSyncObject6unlockEv(lock);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

idl::cost::Phones& thePhones() {
  static idl::cost::Phones phones;
  return phones;
}

LmSIntegratedDeviceListImpl& theList() {
  static LmSIntegratedDeviceListImpl list;
  static const bool isReady = [] {
    list.initialize();
    thePhones().fill(idl::cost::Names::DIFFERENT);
    for (const DeviceType source : idl::cost::SOURCES) {
      list.updateDeviceList(source);
    }
    return true;
  }();
  benchmark::DoNotOptimize(isReady);
  return list;
}

double percentile(std::vector<double>& values, unsigned percent) {
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * percent / 100);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

// What one time of all counts: the benchmark's own is the mean, which a single interruption spoils.
void report(benchmark::State& state, std::vector<double>& seconds) {
  if (seconds.empty()) {
    state.SkipWithError("nothing was timed");
    return;
  }
  state.counters["median_ns"] = percentile(seconds, 50) * 1e9;
  state.counters["p99_ns"] = percentile(seconds, 99) * 1e9;
  state.counters["most_ns"] = percentile(seconds, 100) * 1e9;
  state.counters["timed"] = static_cast<double>(seconds.size());
}

// The locks are taken once for each hold of Segment, whatever else a refresh does.
template <class Segment>
void holds(benchmark::State& state, DeviceType source) {
  LmSIntegratedDeviceListImpl& list = theList();
  std::vector<std::pair<const LmSharedSyncObject*, double>> all;
  for ([[maybe_unused]] auto turn : state) {
    records = &all;
    list.updateDeviceList(source);
    records = nullptr;
  }
  std::vector<double> seconds;
  for (const auto& [lock, taken] : all) {
    if (dynamic_cast<const Segment*>(lock) != nullptr) {
      seconds.push_back(taken);
    }
  }
  state.counters["holds"] = benchmark::Counter(static_cast<double>(seconds.size()), benchmark::Counter::kAvgIterations);
  report(state, seconds);
}

// Opening the four tables and reading "FuncInfo", as a process does once.
void holdsAtStart(benchmark::State& state) {
  theList();
  std::vector<std::pair<const LmSharedSyncObject*, double>> all;
  for ([[maybe_unused]] auto turn : state) {
    records = &all;
    {
      LmSIntegratedDeviceListImpl another;
      another.initialize();
    }
    records = nullptr;
  }
  std::vector<double> seconds;
  seconds.reserve(all.size());
  for (const auto& record : all) {
    seconds.push_back(record.second);
  }
  report(state, seconds);
}

// Begun while the other thread is in an fsync() of its save.
void readBehindSave(benchmark::State& state) {
  LmSIntegratedDeviceListImpl& list = theList();
  std::atomic<int> asked{0};
  std::atomic<bool> isOver{false};
  std::thread saver([&] {
    for (int done = 0; !isOver;) {
      if (done == asked) {
        std::this_thread::yield();
        continue;
      }
      thePhones().rename();
      list.updateDeviceList(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
      ++done;
    }
  });
  std::vector<double> seconds;
  std::vector<IntegratedDevice> copy;
  for ([[maybe_unused]] auto turn : state) {
    const unsigned long begun = idl::cost::syncCount().begun;
    ++asked;
    while (idl::cost::syncCount().begun == begun) {
      std::this_thread::yield();
    }
    const auto begin = Clock::now();
    list.getDeviceList(copy);
    seconds.push_back(Seconds(Clock::now() - begin).count());
    state.SetIterationTime(seconds.back());
  }
  isOver = true;
  saver.join();
  report(state, seconds);
}

void addAll() {
  constexpr int REFRESHES = 2000;
  const auto add = [](const char* name, auto function, auto... arguments) {
    return benchmark::RegisterBenchmark(name, function, arguments...);
  };
  add("hold/bluetooth", holds<BtPairedDeviceListSharedMem>, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT)
      ->Iterations(REFRESHES);
  add("hold/carplay", holds<CarPlayInfoSharedMem>, LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY)
      ->Iterations(REFRESHES / 10);
  add("hold/aap", holds<AapDeviceListSharedMem>, LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP)->Iterations(REFRESHES);
  add("hold/start", holdsAtStart)->Iterations(REFRESHES / 10);
  add("read_behind_save", readBehindSave)->Iterations(REFRESHES / 20)->UseManualTime();
}

}  // namespace

int main(int argc, char** argv) {
  addAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
