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
/// The processes are gone when this is; the segments stay. If this process dies, its processes end by themselves.
///
/// Forks, so the process must have no threads. For one thread.
class ProcessBench : public Bench {
 public:
  /// With a folder of its own for the saved file, which is gone when this is; not when this process dies.
  /// @throw BenchTrouble when there is no folder.
  ProcessBench();

  /// With the saved file in a folder that stays, which is made if need be. A file that is there is removed: a scenario
  /// begins with nothing saved.
  /// @throw BenchTrouble when the folder cannot be made or the file not be removed.
  explicit ProcessBench(const std::string& saveFolder);
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

  const std::string mSaveFolder;
  const bool mOwnsFolder;
  std::array<std::unique_ptr<Helper>, SOURCES.size()> mSources;  // null where none is running
  std::unique_ptr<Helper> mFuncInfo;
  std::unique_ptr<Helper> mClient;
  bool mClientFollows = false;
  std::array<std::uint64_t, SOURCES.size()> mTold = {};  // changes of each source since the client started
};

}  // namespace idl::tools::scenario

#endif
