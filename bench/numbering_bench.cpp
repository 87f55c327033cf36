// SPDX-License-Identifier: Apache-2.0
// How numbering grows with the number of phones of one name: its time, and how often it calls a format function.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "SuffixProvider.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using Clock = std::chrono::steady_clock;
using List = std::vector<IntegratedDevice>;

unsigned long formatCalls = 0;

std::string countedFormat(const std::string& name, unsigned char suffix) {
  ++formatCalls;
  return suffix < 2 ? name : name + " " + std::to_string(suffix);
}

// Paired phones of different ids: each of them keeps its number.
List equalNames(benchmark::State& state) {
  List list(static_cast<std::size_t>(state.range(0)));
  for (std::size_t i = 0; i < list.size(); ++i) {
    list[i].name = "Phone";
    list[i].btid = static_cast<std::uint8_t>(i);
  }
  return list;
}

/// A provider that saves nothing and knows nothing yet.
class Provider {
 public:
  explicit Provider(NameFormatFunc format = nullptr) : mProvider(std::vector<SuffixProvider::DeviceInfo>()) {
    if (format != nullptr) {
      mProvider.setFormat(format);
    }
    mProvider.start();
  }

  /// Numbers a list as it is merged, under the phones' own names. @return the seconds that it took.
  double number(List list) {
    const auto begin = Clock::now();
    mProvider.appendSuffix(list);
    const std::chrono::duration<double> taken = Clock::now() - begin;
    if (!list.empty() && list.back().suffix == 0) {
      throw std::logic_error("a phone has no number");
    }
    return taken.count();
  }

 private:
  SuffixProvider mProvider;
};

double callsOf(Provider& provider, const List& list) {
  const unsigned long begin = formatCalls;
  provider.number(list);
  return static_cast<double>(formatCalls - begin);
}

void numberNew(benchmark::State& state) {
  const List list = equalNames(state);
  for ([[maybe_unused]] auto turn : state) {
    Provider provider;
    state.SetIterationTime(provider.number(list));
  }
  Provider counted(&countedFormat);
  state.counters["format_calls"] = callsOf(counted, list);
  state.SetComplexityN(state.range(0));
}

void numberKept(benchmark::State& state) {
  const List list = equalNames(state);
  Provider provider;
  provider.number(list);
  for ([[maybe_unused]] auto turn : state) {
    state.SetIterationTime(provider.number(list));
  }
  Provider counted(&countedFormat);
  counted.number(list);
  state.counters["format_calls"] = callsOf(counted, list);
  state.SetComplexityN(state.range(0));
}

void sizes(benchmark::internal::Benchmark* bench) {
  for (const int count : {1, 2, 4, 8, 16, 32, 64, 96, 128, 160, 192, 224, 254}) {
    bench->Arg(count);
  }
  bench->UseManualTime();
}

BENCHMARK(numberNew)->Name("growth/numbering/new")->Apply(sizes);
BENCHMARK(numberKept)->Name("growth/numbering/kept")->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
