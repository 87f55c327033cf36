// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_RUNNER_H
#define TOOLS_SCENARIO_RUNNER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/scenario/Bench.h"
#include "tools/scenario/Expectation.h"
#include "tools/scenario/Parser.h"
#include "tools/scenario/RandomCommands.h"
#include "tools/scenario/Roster.h"

namespace idl::tools::scenario {

enum class Outcome {
  DONE,     // or, of an expectation, met
  FAILED,   // an expectation is not met
  MISTAKE,  // the scenario asks for what cannot be
  TROUBLE,  // the bench cannot do it
  SKIPPED,  // something before it went wrong, or it was not wanted
};

/// A command and what came of it.
struct Step {
  CommandKind kind = CommandKind::WAIT;
  Position position;
  std::string text;  // the command as it was written
  Outcome outcome = Outcome::SKIPPED;
  std::string why;      // one line; empty where it is done or skipped
  std::string details;  // tables below that line; may be empty
  std::chrono::milliseconds took{0};
};

struct RunResult {
  std::string file;
  std::vector<Step> steps;  // one for each command, whatever came of it

  /// 0 all is as expected, 1 an expectation is not met, 2 the scenario has a mistake, 3 the bench is in trouble.
  int exitCode() const;

  /// What went wrong, with file, line and the tables; empty where nothing did.
  std::string report() const;
};

/// Plays scenarios on a bench. Keeps what a scenario knows of its phones, so that commands may also come one by one.
/// For one thread.
class Runner {
 public:
  using Clock = std::chrono::steady_clock;

  struct Options {
    std::uint64_t seed = 1;  // of `random`, and of garbage without a seed of its own
    double speed = 1;        // waits take so many times less; more than 0
    bool colour = false;     // in the details

    /// Called before each command, those of `random` included; where it returns false the run ends there, which is no
    /// failure. May be empty.
    std::function<bool(const Command&)> beforeEach;

    /// The time, for those who test this.
    std::function<Clock::time_point()> now = Clock::now;
    std::function<void(std::chrono::milliseconds)> sleep;  // empty: really; what it throws ends the run
  };

  /// Borrows the bench.
  Runner(Bench& bench, Options options);

  /// Sets the scene: three services with empty tables, a unit without Bluetooth in "FuncInfo", no saved file, a client.
  /// @throw BenchTrouble
  void begin();

  /// Executes one command. Nothing leaves this but std::bad_alloc and what `beforeEach` and `sleep` throw.
  Step execute(const Command& command);

  /// Begins, and executes the commands until one goes wrong.
  RunResult run(const std::string& file, const std::vector<Command>& commands);

 private:
  void obey(const Command& command);
  void expect(const Command& command, Step& step);
  void random(const Command& command, Step& step);
  void checkOrder(Step& step);

  void addPhone(const Command& command);
  void changePhone(const Command& command);
  void removePhones(const Command& command);
  void pair(const std::string& handle);
  void listForCarPlay(const Command& command, const std::string& handle);
  void listForAndroidAuto(const Command& command, const std::string& handle);
  void unplug(const std::string& handle);
  void change(Source source, const std::string& handle, const Command& command);
  void forget(Source source, const std::string& handle);
  void clear(Source source);
  void restart(Source source, bool keep);
  void bringBack(Source source);
  void publishAgain(Source source);
  void crash(const Command& command);
  void startClient(const Command& command);
  void needClient(bool running) const;
  void setSaved(const Command& command);

  void publish(Source source, const std::string& handle, const Phone& phone);
  static void needIdentifier(Source source, const std::string& handle, const Phone& phone);
  Phone listedOrOwn(Source source, const std::string& handle);
  std::uint32_t seedOf(const Command& command) const;
  void wait(std::chrono::milliseconds duration) const;

  Bench& mBench;
  const Options mOptions;
  RandomCommands mRandom;
  Roster mRoster;
  std::optional<std::string> mConnected;  // the handle of the phone that is connected for CarPlay
  ClientOptions mClientOptions;           // as it was started last
  bool mClientRuns = false;
  unsigned mPhonesAdded = 0;
  bool mIsOver = false;  // beforeEach said so
};

}  // namespace idl::tools::scenario

#endif
