// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_BENCH_H
#define TOOLS_SCENARIO_BENCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/scenario/Phone.h"

namespace idl::tools::scenario {

/// The bench cannot do what it should: a process that does not answer, a segment that cannot be opened.
class BenchTrouble : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a service does when it is killed.
enum class CrashMoment {
  LOCKED,  // it holds its table's lock and has written nothing
  HALF,    // it holds the lock and has written half of a phone's record
  NOTIFY,  // it has written the record and told nobody
};

enum class NameFormat { PLAIN, NUMBER_FIRST, SAME };

struct ClientOptions {
  NameFormat format = NameFormat::PLAIN;
  bool follow = true;     // refreshes a source when that tells of a change
  bool refreshes = true;  // all three sources at its start
};

/// A phone's number in the saved file.
struct SavedNumber {
  std::string name;
  std::uint8_t btid = BTID_NONE;
  std::uint8_t suffix = 0;
};

/// What a scenario is played on: stand-ins for the three services, the tables they publish, a client with its list and
/// the file where that keeps its numbers.
///
/// A function that makes a source tell of a change returns when the client, if it runs and follows, has refreshed. A
/// stand-in that is not running is started by the first function that needs it; a new one leaves the table as it finds
/// it. For one thread.
/// @throw BenchTrouble from every function; what has been done by then is done.
class Bench {
 public:
  virtual ~Bench() = default;

  /// Writes the phone into the slot, or marks that free, and tells.
  virtual void put(Source source, unsigned slot, const Phone& phone) = 0;
  virtual void clear(Source source, unsigned slot) = 0;

  /// Writes the whole table at once and tells.
  virtual void replaceAll(Source source, const PhoneTable& phones) = 0;

  /// Ends the stand-in if it runs, starts a new one and lets that empty its table, which nobody is told of.
  virtual void restart(Source source) = 0;

  /// Which phone is connected for CarPlay, by its identifier; 0: none. Tells.
  virtual void setCurrentPhone(std::uint64_t cpId) = 0;

  /// Kills the stand-in at that moment of put().
  virtual void crash(Source source, CrashMoment moment, unsigned slot, const Phone& phone) = 0;

  /// Overwrites the table with bytes that follow from the seed, and tells.
  virtual void garbage(Source source, std::uint32_t seed) = 0;

  /// Cuts the table's segment, or removes it. Tells nobody.
  virtual void cut(Source source, std::uint32_t bytes) = 0;
  virtual void vanish(Source source) = 0;

  /// Makes the segment whole again, and does what restart() does.
  virtual void bringBack(Source source) = 0;

  virtual void setBluetoothFunction(bool present) = 0;
  virtual void vanishFuncInfo() = 0;

  /// Starts the client, which must not be running, and returns when its list is initialised, and all three sources are
  /// refreshed if it does that.
  virtual void startClient(const ClientOptions& options) = 0;

  /// Ends the client as programs end, or kills it; it must be running.
  virtual void stopClient() = 0;
  virtual void killClient() = 0;

  /// These two need a running client. The list is nothing when it is not started.
  virtual void refresh(Source source) = 0;
  virtual std::optional<std::vector<Row>> list() = 0;

  /// The saved file's numbers; empty when there is none. Damage counts as the list itself takes it.
  virtual std::vector<SavedNumber> saved() = 0;
  virtual void setSaved(const std::vector<SavedNumber>& numbers) = 0;
  virtual void forgetSaved() = 0;
  virtual void cutSaved(std::uint32_t bytes) = 0;
  virtual void garbageSaved(std::uint32_t seed) = 0;
};

}  // namespace idl::tools::scenario

#endif
