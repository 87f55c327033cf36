// SPDX-License-Identifier: Apache-2.0
// How refreshing grows with the number of processes that do it at once, while a service goes on writing its table. Run
// it as scripts/private-shm clients_bench, with LM_SAVE_FILE_DIR at an empty folder.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/Phones.h"
#include "bench/SelfCall.h"

namespace {

using idl::cost::DeviceType;
using idl::cost::SelfCall;
using Clock = std::chrono::steady_clock;

constexpr char CLIENT[] = "--client";
constexpr unsigned MOST_CLIENTS = 64;
constexpr std::size_t MOST_TIMES = 20000;  // of one client in one run
constexpr auto RUN = std::chrono::milliseconds(300);
constexpr auto BETWEEN_WRITES = std::chrono::milliseconds(1);

/// What the clients and the bench have in common, in a shared-memory object.
struct Board {
  std::atomic<unsigned> ready;
  std::atomic<bool> go;
  std::atomic<bool> stop;
  struct Client {
    std::uint32_t count;
    std::array<std::uint32_t, MOST_TIMES> nanoseconds;
  };
  std::array<Client, MOST_CLIENTS> clients;
};
constexpr char BOARD[] = "/LmBench.clients";

Board& attachBoard() {
  const int file = shm_open(BOARD, O_RDWR | O_CREAT, 0600);
  if (file == -1 || ftruncate(file, sizeof(Board)) != 0) {
    throw std::system_error(errno, std::generic_category(), BOARD);
  }
  void* memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (memory == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), BOARD);
  }
  return *static_cast<Board*>(memory);
}

int beClient(unsigned index) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  Board& board = attachBoard();
  Board::Client& mine = board.clients[index];
  LmSIntegratedDeviceList& list = *LmSIntegratedDeviceList::getInstance();
  list.initialize();
  for (const DeviceType source : idl::cost::SOURCES) {
    list.updateDeviceList(source);
  }
  ++board.ready;
  while (!board.go) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (unsigned turn = index; !board.stop && mine.count < MOST_TIMES; ++turn) {
    const auto begin = Clock::now();
    list.updateDeviceList(idl::cost::SOURCES[turn % idl::cost::SOURCES.size()]);
    const auto taken = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - begin).count();
    mine.nanoseconds[mine.count] = static_cast<std::uint32_t>(std::min<long long>(taken, UINT32_MAX));
    ++mine.count;
  }
  return 0;
}

double percentile(std::vector<double>& values, unsigned percent) {
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>((values.size() - 1) * percent / 100);
  std::nth_element(values.begin(), nth, values.end());
  return *nth;
}

// The time of one refresh: that of the run, by how many refreshes all clients did in it.
void clients(benchmark::State& state) {
  const auto count = static_cast<unsigned>(state.range(0));
  static idl::cost::Phones phones;
  phones.fill(idl::cost::Names::DIFFERENT);
  Board& board = attachBoard();
  for ([[maybe_unused]] auto turn : state) {
    new (&board) Board();
    std::vector<std::unique_ptr<SelfCall>> processes;
    for (unsigned index = 0; index < count; ++index) {
      processes.push_back(std::make_unique<SelfCall>(std::vector<std::string>{CLIENT, std::to_string(index)}));
    }
    while (board.ready < count) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto begin = Clock::now();
    board.go = true;
    unsigned writes = 0;
    for (; Clock::now() - begin < RUN; ++writes) {
      phones.rewrite(writes);
      std::this_thread::sleep_for(BETWEEN_WRITES);
    }
    board.stop = true;
    const std::chrono::duration<double> taken = Clock::now() - begin;
    for (const auto& process : processes) {
      process->output();
    }

    std::vector<double> nanoseconds;
    for (unsigned index = 0; index < count; ++index) {
      const Board::Client& client = board.clients[index];
      nanoseconds.insert(nanoseconds.end(), client.nanoseconds.begin(), client.nanoseconds.begin() + client.count);
    }
    if (nanoseconds.empty()) {
      state.SkipWithError("nobody refreshed");
      break;
    }
    state.SetIterationTime(taken.count() / static_cast<double>(nanoseconds.size()));
    state.counters["refreshes"] = static_cast<double>(nanoseconds.size());
    state.counters["writes"] = writes;
    state.counters["median_ns"] = percentile(nanoseconds, 50);
    state.counters["p99_ns"] = percentile(nanoseconds, 99);
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(clients)->Name("growth/clients")->RangeMultiplier(2)->Range(1, MOST_CLIENTS)->Iterations(1)->UseManualTime();

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && argv[1] == std::string(CLIENT)) {
    return beClient(static_cast<unsigned>(std::stoul(argv[2])));
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
