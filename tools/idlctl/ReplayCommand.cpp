// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "simulator/TableClaim.h"
#include "tools/comply/Rules.h"
#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/InputFile.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/idlctl/RecordingInput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/inspect/ListDifference.h"
#include "tools/recording/FolderAsFound.h"
#include "tools/recording/SavedFile.h"
#include "tools/recording/ScenarioText.h"
#include "tools/recording/Stage.h"
#include "tools/recording/TableClaims.h"
#include "tools/recording/TableWriter.h"
#include "tools/scenario/Bench.h"
#include "tools/text/Duration.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

namespace fs = std::filesystem;

using recording::Event;
using recording::RecordedList;
using recording::RecordedRow;
using recording::RecordingReader;

struct Options {
  std::string file;
  double speed = 1;
  bool isStepped = false;
  std::optional<std::chrono::milliseconds> until;
  std::string saveFolder;
  bool isChecked = false;
  bool isHere = false;
  bool isScenario = false;
  bool takesOver = false;
};

/// The events up to the one that the user wants no more, or to a signal.
class Events {
 public:
  /// `stopping` may be null: then a signal ends the process.
  Events(RecordingReader& reader, const Options& options, const Stopping* stopping)
      : mReader(reader), mUntil(options.until), mStopping(stopping) {}

  bool next(Event& event) {
    const bool isThere = mReader.next(event) && (!mUntil || event.time <= *mUntil);
    mIsStopped = mStopping != nullptr && mStopping->within(std::chrono::milliseconds(0));
    return isThere && !mIsStopped;
  }

  bool isStopped() const { return mIsStopped; }

 private:
  RecordingReader& mReader;
  const std::optional<std::chrono::milliseconds> mUntil;
  const Stopping* const mStopping;
  bool mIsStopped = false;
};

std::string describe(const Event& event) {
  std::string text = durationText(event.time) + ' ';
  switch (event.kind) {
    case Event::Kind::FUNC_INFO:
    case Event::Kind::TABLE:
      return text + event.source->word + ' ' + stateText(event.copy);
    case Event::Kind::SAVED:
      return text + "the saved table " + (event.saved.isRead() ? "is another one" : "is not there");
    case Event::Kind::BEGIN:
      return text + "the list begins";
    case Event::Kind::END:
      break;
  }
  return text + "end";
}

std::string listText(const RecordedList& list, bool colour) {
  if (!list.isStarted) {
    return "not started\n";
  }
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones(list.rows.size());
  for (std::size_t k = 0; k < list.rows.size(); ++k) {
    static_cast<LmSIntegratedDeviceListDef::DeviceInfo&>(phones[k]) = list.rows[k].header;
  }
  return tableOf(phones, colour);
}

// The first byte in which a source's record differs; nothing where none does.
std::string recordDifference(const char* name, const std::string& recorded, const std::string& now) {
  const auto differs = std::mismatch(recorded.begin(), recorded.end(), now.begin(), now.end()).first;
  return differs == recorded.end() && recorded.size() == now.size()
             ? ""
             : " " + std::string(name) + "Bytes from byte " + std::to_string(differs - recorded.begin()) + " on";
}

void explainDifference(const RecordedList& recorded, const RecordedList& now, std::ostream& out) {
  for (std::size_t k = 0; k < std::min(recorded.rows.size(), now.rows.size()); ++k) {
    const RecordedRow& was = recorded.rows[k];
    const RecordedRow& is = now.rows[k];
    if (was == is) {
      continue;
    }
    out << "row " << k + 1 << ':';
    for (const std::string& field : changedFields(was.header, is.header)) {
      out << ' ' << field << ' ' << fieldText(was.header, field) << " -> " << fieldText(is.header, field);
    }
    out << recordDifference("bt", was.bt, is.bt) << recordDifference("cp", was.cp, is.cp)
        << recordDifference("aap", was.aap, is.aap) << '\n';
  }
}

/// The shared-memory folder that is there, as a stage: nobody's tables are in it, and none stay.
class FoundFolder {
 public:
  /// @throw bench::TableTaken when another stand-in has a table.
  FoundFolder() {
    mFound.around([this] { mClaims.emplace(); });
  }

  void around(const std::function<void()>& work) { mFound.around(work); }
  const Source* somebodys() const { return mFound.somebodys(); }

 private:
  recording::FolderAsFound mFound;  // first: the claims leave files, too
  std::optional<recording::TableClaims> mClaims;
};

int refuseHere(const Source& taken, const Streams& streams) {
  streams.err << "idlctl: " << taken.word << " (" << taken.segment << ") is there, and --here writes all tables\n";
  return EXIT_NO;
}

// Feeds the recording to the library's own list, pass by pass.
int checkPasses(const Options& options, const Streams& streams, RecordingReader& reader, const Stopping* stopping) {
  const auto folder = options.isHere ? recording::Stage::Folder::FOUND : recording::Stage::Folder::OWN;
  const Source* const taken = options.isHere ? recording::FolderAsFound().somebodys() : nullptr;
  if (taken != nullptr) {
    return refuseHere(*taken, streams);
  }
  const auto found = options.isHere ? std::make_unique<FoundFolder>() : nullptr;
  const auto onStage = [&found](const std::function<void()>& work) {
    if (found != nullptr) {
      found->around(work);
    } else {
      work();
    }
  };
  std::unique_ptr<recording::Stage> stage;
  TableCopy funcInfo;
  SavedTableCopy saved;
  Event event;
  unsigned passes = 0;
  Events events(reader, options, stopping);
  while (events.next(event)) {
    const Source* const come = found != nullptr ? found->somebodys() : nullptr;
    if (come != nullptr) {
      return refuseHere(*come, streams);
    }
    switch (event.kind) {
      case Event::Kind::FUNC_INFO:
        funcInfo = event.copy;  // a list reads both when it begins, and no more
        break;
      case Event::Kind::SAVED:
        saved = event.saved;
        break;
      case Event::Kind::BEGIN:
        onStage([&] { stage = std::make_unique<recording::Stage>(folder, funcInfo, saved); });
        break;
      case Event::Kind::TABLE: {
        onStage([&] { stage->put(*event.source, event.copy); });
        if (!event.isPass) {
          break;
        }
        ++passes;
        RecordedList now;
        onStage([&] { now = stage->refresh(*event.source); });
        if (now != event.list) {
          streams.out << printable(options.file) << ':' << reader.line() << ": at " << durationText(event.time)
                      << ", in pass " << passes << ", after " << event.source->word
                      << " was taken over, the list went apart\nrecorded:\n"
                      << listText(event.list, streams.colour) << "now:\n"
                      << listText(now, streams.colour);
          explainDifference(event.list, now, streams.out);
          return EXIT_NO;
        }
        break;
      }
      case Event::Kind::END:
        break;
    }
  }
  if (events.isStopped()) {
    streams.err << "idlctl: stopped after " << passes << " passes; that far the lists were the same\n";
    return EXIT_NO;
  }
  if (passes == 0) {
    streams.out << printable(options.file) << ": no passes, so that nothing was checked\n";
    return EXIT_NO;
  }
  streams.out << printable(options.file) << ": " << passes << " passes, the same lists\n";
  return EXIT_YES;
}

int check(const Options& options, const Streams& streams, RecordingReader& reader, const Stopping* stopping) {
  // Told when all that was made is gone: a reader who has seen enough ends this process.
  std::ostringstream told;
  const int code = checkPasses(options, {told, streams.err, streams.colour}, reader, stopping);
  streams.out << told.str();
  return code;
}

int tellScenario(const Options& options, const Streams& streams, RecordingReader& reader) {
  recording::ScenarioText scenario(streams.out);
  Event event;
  for (Events events(reader, options, nullptr); events.next(event);) {
    scenario.take(event);
  }
  return EXIT_YES;
}

// What somebody has saved is neither lost nor taken for the recording's. Makes nothing.
void needSaveFolder(const std::string& folder) {
  std::error_code error;
  if (fs::symlink_status(fs::path(folder) / SAVED_TABLE_FILE, error).type() != fs::file_type::not_found) {
    const std::string why = error ? error.message() : "has saved numbers already; --save-dir wants a folder without";
    throw std::runtime_error(folder + ": " + why);
  }
  fs::path nearest = fs::absolute(folder);
  while (fs::symlink_status(nearest, error).type() == fs::file_type::not_found && nearest.has_relative_path()) {
    nearest = nearest.parent_path();
  }
  const int wrong = !fs::is_directory(nearest, error)             ? ENOTDIR
                    : ::access(nearest.c_str(), W_OK | X_OK) != 0 ? errno
                                                                  : 0;
  if (wrong != 0) {
    throw std::runtime_error(folder + ": " + std::generic_category().message(wrong));
  }
}

void writeSavedTable(const std::string& folder, const SavedTableCopy& saved) {
  std::error_code error;
  fs::create_directories(folder, error);
  if (error) {
    throw std::runtime_error(folder + ": " + error.message());
  }
  recording::writeSaved(folder, saved);
}

// Reads it to its end, so that of a damaged one nothing is written. What is no file can be read only once.
void needWhole(const Options& options) {
  std::error_code none;
  if (options.file == STANDARD_INPUT || !fs::is_regular_file(options.file, none)) {
    return;
  }
  std::ifstream file(options.file, std::ios::binary);
  RecordingReader reader(file);
  Event event;
  for (Events events(reader, options, nullptr); events.next(event);) {
  }
}

// A table that a service may have: there is more in it than any client leaves that attaches it, and no stand-in has
// ever claimed it. The bench writes "FuncInfo" beside its tables without a claim.
const Source* someServices() {
  const bool isBench = std::any_of(SOURCES.begin(), SOURCES.end(),
                                   [](const Source* source) { return recording::wasEverClaimed(*source); });
  const auto* const found = std::find_if(SOURCES.begin(), SOURCES.end(), [isBench](const Source* source) {
    const TableCopy copy = copyTableAtOnce(*source);
    const bool isBenchs = source->isTable ? recording::wasEverClaimed(*source) : isBench;
    return !copy.isAbsent() && !isBenchs && !comply::isUnwritten(*source, copy);
  });
  return found == SOURCES.end() ? nullptr : *found;
}

/// When each event is due.
class Pace {
 public:
  Pace(const Options& options, const Streams& streams, const Stopping& stopping)
      : mOptions(options), mStreams(streams), mStopping(stopping) {}

  /// Waits for it. @return whether a signal has come meanwhile
  bool await(const Event& event) const {
    if (mOptions.isStepped) {
      mStreams.err << describe(event) << " [Enter] " << std::flush;
      return mStopping.beforeEnter();
    }
    const auto due =
        mStart + std::chrono::duration<double, std::milli>(static_cast<double>(event.time.count()) / mOptions.speed);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - std::chrono::steady_clock::now());
    if (mStopping.within(std::max(left, std::chrono::milliseconds(0)))) {
      return true;
    }
    mStreams.err << describe(event) << std::endl;
    return false;
  }

 private:
  const Options& mOptions;
  const Streams& mStreams;
  const Stopping& mStopping;
  const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
};

int publish(const Options& options, const Streams& streams, RecordingReader& reader, const Stopping& stopping) {
  if (!options.saveFolder.empty()) {
    needSaveFolder(options.saveFolder);
    needWhole(options);
  }
  const Source* const taken = options.takesOver ? nullptr : someServices();
  if (taken != nullptr) {
    streams.err << "idlctl: " << taken->word << " (" << taken->segment
                << ") is there, and no stand-in has made it; --take-over writes over it all the same\n";
    return EXIT_NO;
  }
  const recording::TableClaims claims;
  const Pace pace(options, streams, stopping);
  recording::TableWriter writer;
  SavedTableCopy saved;
  Event event;
  for (Events events(reader, options, &stopping); events.next(event);) {
    if (pace.await(event)) {
      return EXIT_YES;
    }
    switch (event.kind) {
      case Event::Kind::FUNC_INFO:
        writer.putFuncInfo(event.copy);
        break;
      case Event::Kind::SAVED:
        saved = event.saved;
        break;
      case Event::Kind::BEGIN:  // a list that starts from now on has the same numbers
        if (!options.saveFolder.empty()) {
          writeSavedTable(options.saveFolder, saved);
        }
        break;
      case Event::Kind::TABLE:
        writer.put(*event.source, event.copy);
        break;
      case Event::Kind::END:
        break;
    }
  }
  return EXIT_YES;
}

int run(const Options& options, const Streams& streams) {
  if (options.isStepped && options.file == STANDARD_INPUT) {
    streams.err << "idlctl: --step reads Enter from the standard input, which the recording comes from\n";
    return EXIT_USAGE;
  }
  // The others leave nothing behind however they end.
  std::optional<Stopping> stopping;
  std::optional<StoppableInput> input;
  if (options.isHere || !(options.isChecked || options.isScenario)) {
    stopping.emplace();
  }
  if (stopping && options.file == STANDARD_INPUT) {
    input.emplace(*stopping);
  }
  int code = EXIT_YES;
  try {
    code = readRecording(options.file, streams, [&](RecordingReader& reader) {
      return options.isChecked    ? check(options, streams, reader, stopping ? &*stopping : nullptr)
             : options.isScenario ? tellScenario(options, streams, reader)
                                  : publish(options, streams, reader, *stopping);
    });
  } catch (const bench::TableTaken& taken) {
    streams.err << "idlctl: " << printable(taken.what()) << '\n';
    return EXIT_NO;
  }
  streams.out.flush();
  if (!streams.out) {
    streams.err << "idlctl: standard output could not be written to its end\n";
    return EXIT_CANNOT_OPEN;
  }
  return code;
}

}  // namespace

void addReplay(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("recording", options->file, "what idlctl record has written; - for standard input")
      .required()
      .typeName("FILE");
  const Argument speed = arguments.speed(options->speed, "so many times faster, 1");
  const Argument step = arguments.flag("--step", options->isStepped, "wait for Enter before each event");
  arguments.duration("--until", options->until, "end behind that time of the recording");
  const Argument saveFolder =
      arguments.option("--save-dir", options->saveFolder,
                       "also write the saved table there with which the recorded list began; made if need be");
  const Argument check =
      arguments.flag("--check", options->isChecked, "demand the recorded lists of the library, bit for bit");
  arguments
      .flag("--here", options->isHere, "check in the shared-memory folder that is there, which must have no tables")
      .needs(check);
  const Argument scenario = arguments.flag("--to-scenario", options->isScenario, "write it as a scenario");
  check.excludes(scenario);
  const Argument takeOver = arguments.flag("--take-over", options->takesOver,
                                           "write also over tables that no stand-in has made: a service's");
  for (const Argument& publishing : {speed, step, saveFolder, takeOver}) {
    publishing.excludes(check).excludes(scenario);
  }
  speed.excludes(step);
  arguments.footer(
      "Without --check and --to-scenario it stands in for all services, unless one of them seems to be there: stop\n"
      "services before --take-over.\n"
      "Exit codes:\n"
      "  0    played, or told, or the same lists\n"
      "  1    --check got another list, had no pass to check, or was stopped with --here; a table is somebody else's\n"
      "  2    wrong arguments, or another version of the format\n"
      "  3    the recording cannot be read, a table or the output not be written, --check has no folder of its own,\n"
      "       or --save-dir has saved numbers already\n"
      "  4    the recording is damaged\n"
      "Examples:\n  idlctl replay tuesday.jsonl --speed 10\n  idlctl replay tuesday.jsonl --check\n"
      "  idlctl replay tuesday.jsonl --until 90s --to-scenario >tuesday.scn");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
