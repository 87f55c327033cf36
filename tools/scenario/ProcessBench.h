// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_PROCESSBENCH_H
#define TOOLS_SCENARIO_PROCESSBENCH_H

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/scenario/Bench.h"
#include "tools/scenario/Helper.h"

namespace idl::tools::scenario {

/// A bench of processes, in the shared-memory folder that they find, which should be one of their own: each stand-in
/// service is a process, so that a crash is one, and the client is a process with the library's own list.
///
/// Owns a folder for the saved file, in the system's folder for temporary files. It and the processes are gone when
/// this is; the segments stay. If this process dies, its processes end by themselves and the folder stays.
///
/// Forks, so the process must have no threads. For one thread.
class ProcessBench : public Bench {
 public:
  /// @throw BenchTrouble when there is no folder.
  ProcessBench();
  ~ProcessBench() override;

  ProcessBench(const ProcessBench&) = delete;
  ProcessBench& operator=(const ProcessBench&) = delete;

  void put(Source source, unsigned slot, const Phone& phone) override;
  void clear(Source source, unsigned slot) override;
  void replaceAll(Source source, const PhoneTable& phones) override;
  void restart(Source source) override;
  void setCurrentPhone(std::uint64_t cpId) override;
  void crash(Source source, CrashMoment moment, unsigned slot, const Phone& phone) override;
  void garbage(Source source, std::uint32_t seed) override;
  void cut(Source source, std::uint32_t bytes) override;
  void vanish(Source source) override;
  void bringBack(Source source) override;
  void setBluetoothFunction(bool present) override;
  void vanishFuncInfo() override;
  void startClient(const ClientOptions& options) override;
  void stopClient() override;
  void killClient() override;
  void refresh(Source source) override;
  std::optional<std::vector<Row>> list() override;
  std::vector<SavedNumber> saved() override;
  void setSaved(const std::vector<SavedNumber>& numbers) override;
  void forgetSaved() override;
  void cutSaved(std::uint32_t bytes) override;
  void garbageSaved(std::uint32_t seed) override;

 private:
  Helper& helper(Source source);
  void tell(Source source, const Record& request);
  Helper& client();
  void writeSaved(const std::string& bytes) const;

  std::string mSaveFolder;
  std::array<std::unique_ptr<Helper>, SOURCES.size()> mSources;  // null where none is running
  std::unique_ptr<Helper> mFuncInfo;
  std::unique_ptr<Helper> mClient;
  bool mClientFollows = false;
  std::array<std::uint64_t, SOURCES.size()> mTold = {};  // changes of each source since the client started
};

}  // namespace idl::tools::scenario

#endif
