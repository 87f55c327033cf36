// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <memory>

#include "tools/idlctl/Command.h"
#include "tools/idlctl/DurationOption.h"
#include "tools/idlctl/RecordingInput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/recording/Pseudonyms.h"
#include "tools/recording/Recorder.h"
#include "tools/recording/RecordingWriter.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds INTERVAL{100};
constexpr std::chrono::milliseconds SHORTEST_INTERVAL{1};  // 0 would have the unit's processor for itself

struct Options {
  std::string saveFolder;
  std::string output;
  std::string from;
  bool isPseudonymised = false;
  std::optional<std::chrono::milliseconds> timeout;
  std::optional<std::chrono::milliseconds> interval;
};

std::string nowText() {
  const std::time_t now = std::time(nullptr);
  std::tm fields = {};
  gmtime_r(&now, &fields);
  char text[sizeof "2026-01-31T23:59:59Z"];
  return std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields) != 0 ? text : "";
}

/// What is taken goes to the output, with other names if that is wished.
class Sink {
 public:
  Sink(std::ostream& output, recording::Header header, bool isPseudonymised)
      : mWriter(output, with(std::move(header), isPseudonymised)) {
    if (isPseudonymised) {
      mPseudonyms.emplace();
    }
  }

  void take(const recording::Event& event) { mWriter.write(mPseudonyms ? mPseudonyms->event(event) : event); }

 private:
  static recording::Header with(recording::Header header, bool isPseudonymised) {
    header.isPseudonymised = header.isPseudonymised || isPseudonymised;
    return header;
  }

  recording::RecordingWriter mWriter;
  std::optional<recording::Pseudonyms> mPseudonyms;
};

int copyRecording(const Options& options, const Streams& streams, std::ostream& output) {
  return readRecording(options.from, streams, [&](recording::RecordingReader& reader) {
    Sink sink(output, reader.header(), options.isPseudonymised);
    recording::Event event;
    while (reader.next(event)) {
      sink.take(event);
    }
    return EXIT_YES;
  });
}

int follow(const Options& options, std::ostream& output) {
  const Stopping stopping;
  const Deadline deadline(options.timeout);
  Sink sink(output, {nowText(), false}, options.isPseudonymised);
  recording::Recorder recorder(options.saveFolder, [&sink](const recording::Event& event) { sink.take(event); });
  const std::chrono::milliseconds interval = std::max(SHORTEST_INTERVAL, options.interval.value_or(INTERVAL));
  while (!deadline.isOver() && !stopping.within(deadline.atMost(interval)) && output) {
    recorder.poll();
  }
  recorder.end();
  return EXIT_YES;
}

int run(const Options& options, const Streams& streams) {
  std::ofstream file;
  if (!options.output.empty()) {
    file.open(options.output, std::ios::binary | std::ios::trunc);
    if (!file) {
      streams.err << "idlctl: " << quotedText(options.output) << ": " << std::strerror(errno) << '\n';
      return EXIT_CANNOT_OPEN;
    }
  }
  std::ostream& output = options.output.empty() ? streams.out : file;
  const int code = options.from.empty() ? follow(options, output) : copyRecording(options, streams, output);
  if (!output) {
    streams.err << "idlctl: the recording could not be written to its end\n";
    return EXIT_CANNOT_OPEN;
  }
  return code;
}

}  // namespace

void addRecord(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  app.add_option("--output,-o", options->output, "write the recording there, not to standard output")
      ->type_name("FILE");
  CLI::Option* saveFolder =
      app.add_option("--save-dir", options->saveFolder,
                     "the folder of the saved numbers; else LM_SAVE_FILE_DIR, else this user's own");
  app.add_flag("--pseudonymise", options->isPseudonymised,
               "other names, addresses and identifiers, by a salt that nobody keeps");
  CLI::Option* timeout = addDuration(app, "--timeout", options->timeout, "end after that time; else when stopped");
  CLI::Option* interval = addDuration(app, "--interval", options->interval, "look that often, 100ms");
  app.add_option("--from", options->from, "copy that recording instead of making one; - for standard input")
      ->type_name("FILE")
      ->excludes(saveFolder)
      ->excludes(timeout)
      ->excludes(interval);
  app.footer(
      "JSON Lines: what changed in the tables, byte by byte and decoded, and what the list became.\n"
      "Exit codes:\n"
      "  0    stopped, or the time is over\n"
      "  2    wrong arguments, or --from is of another version of the format\n"
      "  3    --from cannot be read, or the recording not be written\n"
      "  4    --from is damaged\n"
      "Examples:\n  idlctl record -o tuesday.jsonl\n  idlctl record --pseudonymise --timeout 1h >tuesday.jsonl\n"
      "  idlctl record --from tuesday.jsonl --pseudonymise -o to-send.jsonl");
  onChosen(app, action, options, run);
}

}  // namespace idl::tools
