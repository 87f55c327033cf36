// SPDX-License-Identifier: Apache-2.0
// What a refresh and a list read cost through the shared library, beside the least that they could cost, and how a
// refresh grows with the phones. Run it as scripts/private-shm list_bench, with LM_SAVE_FILE_DIR at an empty folder.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include "bench/Alternatives.h"
#include "bench/Counting.h"
#include "bench/Floors.h"
#include "bench/Phones.h"
#include "bench/SelfCall.h"

namespace {

using idl::cost::Copying;
using idl::cost::DeviceType;
using idl::cost::IntegratedDevice;
using idl::cost::Names;
using idl::cost::Phones;
using idl::cost::SelfCall;
using idl::cost::Source;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr DeviceType BLUETOOTH = LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
constexpr char FIRST_REFRESH[] = "--first-refresh";
constexpr char COUNT[] = "--count";
constexpr char BUS_SERVICE[] = "--bus-service";
constexpr unsigned ROUNDS = 100;  // over which calls and allocations are counted

LmSIntegratedDeviceList& theList() { return *LmSIntegratedDeviceList::getInstance(); }

Phones& thePhones() {
  static Phones phones;
  return phones;
}

// Twice, so that what a first refresh of these phones does is done.
void settle() {
  for (int round = 0; round < 2; ++round) {
    for (const DeviceType source : idl::cost::SOURCES) {
      theList().updateDeviceList(source);
    }
  }
}

std::vector<IntegratedDevice> readList() {
  std::vector<IntegratedDevice> list;
  if (!theList().getDeviceList(list)) {
    throw std::logic_error("the list is not started");
  }
  return list;
}

// The phones as the list has them, which is what a floor copies.
std::vector<IntegratedDevice> listOf(Names names, unsigned count = idl::cost::MOST_PHONES) {
  thePhones().fill(names, count);
  settle();
  std::vector<IntegratedDevice> list = readList();
  if (list.size() != count) {
    throw std::logic_error("the list has " + std::to_string(list.size()) + " phones");
  }
  return list;
}

// What carries a number over is the first phone of a port: the others are numbered anew.
unsigned numberedAnew(const std::vector<IntegratedDevice>& list) {
  unsigned count = 0;
  std::set<int> ports;
  for (const IntegratedDevice& device : list) {
    count += device.port != 0 && !ports.insert(device.port).second ? 1U : 0U;
  }
  return count;
}

struct Allocations {
  unsigned long begin = idl::cost::allocations();

  double each() const { return static_cast<double>(idl::cost::allocations() - begin) / ROUNDS; }
};

// ---------------------------------------------------------------------------------------------- in other processes

unsigned long formatCalls = 0;

std::string countedFormat(const std::string& name, unsigned char suffix) {
  ++formatCalls;
  return suffix < 2 ? name : name + " " + std::to_string(suffix);
}

// A format stays as it is once the list is started, so its calls are counted in a process of their own.
int count() {
  theList().setFormat(&countedFormat);
  theList().initialize();
  for (const Names names : idl::cost::NAMINGS) {
    listOf(names);
    for (const DeviceType source : idl::cost::SOURCES) {
      formatCalls = 0;
      for (unsigned round = 0; round < ROUNDS; ++round) {
        theList().updateDeviceList(source);
      }
      std::cout << idl::cost::nameOf(source) << '/' << idl::cost::nameOf(names) << ' '
                << static_cast<double>(formatCalls) / ROUNDS << '\n';
    }
  }
  return 0;
}

int firstRefresh() {
  const auto begin = Clock::now();
  theList().initialize();
  theList().updateDeviceList(BLUETOOTH);
  std::cout << Seconds(Clock::now() - begin).count() << '\n';
  return 0;
}

std::string outputOf(const char* argument) { return SelfCall({argument}).output(); }

// ------------------------------------------------------------------------------------------------------ benchmarks

void copyFloor(benchmark::State& state, Copying copying) {
  const std::vector<IntegratedDevice> from = listOf(Names::DIFFERENT);
  std::vector<IntegratedDevice> to = from;
  for ([[maybe_unused]] auto turn : state) {
    idl::cost::copyList(copying, from, to);
  }
}

void bytesFloor(benchmark::State& state) {
  const std::vector<IntegratedDevice> from = listOf(Names::DIFFERENT);
  std::vector<unsigned char> to(from.size() * sizeof(IntegratedDevice));
  for ([[maybe_unused]] auto turn : state) {
    idl::cost::copyBytes(from, to);
  }
}

void slotsFloor(benchmark::State& state, DeviceType source) {
  listOf(Names::DIFFERENT);
  Source& table = Source::of(source);
  for ([[maybe_unused]] auto turn : state) {
    table.copySlots();
  }
}

void readsFloor(benchmark::State& state, DeviceType source) {
  listOf(Names::DIFFERENT);
  Source& table = Source::of(source);
  for ([[maybe_unused]] auto turn : state) {
    table.read();
  }
}

void refreshFloor(benchmark::State& state, DeviceType source, Names names, Copying copying) {
  const std::vector<IntegratedDevice> from = listOf(names);
  std::vector<IntegratedDevice> merged = from;
  std::vector<IntegratedDevice> result = from;
  Source& table = Source::of(source);
  for ([[maybe_unused]] auto turn : state) {
    table.read();
    idl::cost::copyList(copying, from, merged);
    idl::cost::copyList(copying, merged, result);
  }
}

void refresh(benchmark::State& state, DeviceType source, Names names, double calls) {
  const std::vector<IntegratedDevice> list = listOf(names);
  LmSIntegratedDeviceList& service = theList();
  for ([[maybe_unused]] auto turn : state) {
    service.updateDeviceList(source);
  }
  const Allocations counted;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    service.updateDeviceList(source);
  }
  state.counters["allocations"] = counted.each();
  state.counters["numbered_anew"] = numberedAnew(list);
  state.counters["format_calls"] = calls;
}

void readIntoOld(benchmark::State& state) {
  std::vector<IntegratedDevice> list = listOf(Names::DIFFERENT);
  LmSIntegratedDeviceList& service = theList();
  for ([[maybe_unused]] auto turn : state) {
    service.getDeviceList(list);
    benchmark::DoNotOptimize(list.data());
  }
  const Allocations counted;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    service.getDeviceList(list);
  }
  state.counters["allocations"] = counted.each();
}

void readIntoNew(benchmark::State& state) {
  listOf(Names::DIFFERENT);
  LmSIntegratedDeviceList& service = theList();
  for ([[maybe_unused]] auto turn : state) {
    std::vector<IntegratedDevice> list;
    service.getDeviceList(list);
    benchmark::DoNotOptimize(list.data());
  }
  const Allocations counted;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    readList();
  }
  state.counters["allocations"] = counted.each();
}

// The process is there, its libraries are loaded; everything from the first call on counts.
void firstRefreshOfAProcess(benchmark::State& state) {
  listOf(Names::DIFFERENT);
  for ([[maybe_unused]] auto turn : state) {
    state.SetIterationTime(std::stod(outputOf(FIRST_REFRESH)));
  }
}

void refreshThatSaves(benchmark::State& state, bool isSynced) {
  listOf(Names::DIFFERENT);
  idl::cost::setSyncing(isSynced);
  const unsigned long begun = idl::cost::syncCount().begun;
  for ([[maybe_unused]] auto turn : state) {
    thePhones().rename();
    const auto begin = Clock::now();
    theList().updateDeviceList(BLUETOOTH);
    state.SetIterationTime(Seconds(Clock::now() - begin).count());
  }
  state.counters["syncs"] =
      benchmark::Counter(static_cast<double>(idl::cost::syncCount().begun - begun), benchmark::Counter::kAvgIterations);
  idl::cost::setSyncing(true);
}

void refreshOfSome(benchmark::State& state, Names names) {
  const auto count = static_cast<unsigned>(state.range(0));
  listOf(names, count);
  LmSIntegratedDeviceList& service = theList();
  for ([[maybe_unused]] auto turn : state) {
    service.updateDeviceList(BLUETOOTH);
  }
  const Allocations counted;
  for (unsigned round = 0; round < ROUNDS; ++round) {
    service.updateDeviceList(BLUETOOTH);
  }
  state.counters["allocations"] = counted.each();
  state.SetComplexityN(state.range(0));
}

void checkCount(benchmark::State& state, const std::vector<idl::cost::DeviceInfo>& devices) {
  if (devices.size() != static_cast<std::size_t>(state.range(0))) {
    state.SkipWithError("not as many devices as asked for");
  }
}

void bus(benchmark::State& state) {
  static idl::cost::Bus theBus;
  const auto count = static_cast<unsigned>(state.range(0));
  std::vector<idl::cost::DeviceInfo> devices;
  for ([[maybe_unused]] auto turn : state) {
    theBus.getDevices(count, devices);
  }
  checkCount(state, devices);
}

void json(benchmark::State& state) {
  const auto count = static_cast<unsigned>(state.range(0));
  const std::string path = std::filesystem::temp_directory_path() / ("lm-bench-" + std::to_string(getpid()) + ".json");
  idl::cost::writeJson(path, count);
  std::vector<idl::cost::DeviceInfo> devices;
  for ([[maybe_unused]] auto turn : state) {
    idl::cost::readJson(path, devices);
  }
  std::filesystem::remove(path);
  checkCount(state, devices);
}

template <class Function, class... Arguments>
benchmark::internal::Benchmark* add(const std::string& name, Function function, Arguments... arguments) {
  return benchmark::RegisterBenchmark(name.c_str(), function, arguments...);
}

void addAll() {
  std::map<std::string, double> calls;
  std::istringstream counts(outputOf(COUNT));
  std::string key;
  for (double value = 0; counts >> key >> value;) {
    calls[key] = value;
  }

  for (const Copying copying : idl::cost::COPYINGS) {
    add(std::string("floor/read/") + idl::cost::nameOf(copying), copyFloor, copying);
  }
  add("floor/bytes", bytesFloor);
  add("read/old", readIntoOld);
  add("read/new", readIntoNew);
  for (const DeviceType source : idl::cost::SOURCES) {
    const std::string sourceName = idl::cost::nameOf(source);
    add("floor/slots/" + sourceName, slotsFloor, source);
    add("floor/locked_reads/" + sourceName, readsFloor, source);
    for (const Names names : idl::cost::NAMINGS) {
      const std::string row = sourceName + "/" + idl::cost::nameOf(names);
      for (const Copying copying : {Copying::ASSIGNED, Copying::TEXTS_IN_PLACE, Copying::FIELDS_IN_PLACE}) {
        add("floor/refresh/" + row + "/" + idl::cost::nameOf(copying), refreshFloor, source, names, copying);
      }
      add("refresh/" + row, refresh, source, names, calls.at(row));
    }
  }
  add("refresh_first", firstRefreshOfAProcess)->UseManualTime()->Iterations(20);
  add("refresh_saving/fsync", refreshThatSaves, true)->UseManualTime();
  add("refresh_saving/no_fsync", refreshThatSaves, false)->UseManualTime();
  add("instead/bus", bus)->Arg(10)->Arg(33)->UseRealTime();
  add("instead/json", json)->Arg(10)->Arg(33);
  for (const Names names : idl::cost::NAMINGS) {
    add(std::string("growth/refresh/") + idl::cost::nameOf(names), refreshOfSome, names)
        ->DenseRange(0, idl::cost::MOST_PHONES, 3);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && argv[1] == std::string(FIRST_REFRESH)) {
    return firstRefresh();
  }
  if (argc == 2 && argv[1] == std::string(COUNT)) {
    return count();
  }
  if (argc == 3 && argv[1] == std::string(BUS_SERVICE)) {
    return idl::cost::serveDevices(argv[2]);
  }
  addAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  theList().initialize();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
