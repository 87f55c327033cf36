// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/RecordingInput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/recording/Pseudonyms.h"
#include "tools/recording/Recorder.h"
#include "tools/recording/RecordingWriter.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

namespace fs = std::filesystem;

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

int cannotOpen(const std::string& path, int error, const Streams& streams) {
  streams.err << "idlctl: " << quotedText(path) << ": " << std::strerror(error) << '\n';
  return EXIT_CANNOT_OPEN;
}

int cannotWrite(const Streams& streams) {
  streams.err << "idlctl: the recording could not be written to its end\n";
  return EXIT_CANNOT_OPEN;
}

/// A new file beside the one that it is to become, which stays as it is until then; gone at the end if it became none.
class FileBeside {
 public:
  /// isThere() says whether it could be made; else error() does. A link is followed.
  explicit FileBeside(const std::string& path) {
    std::error_code none;
    const fs::path followed = fs::canonical(path, none);
    mTarget = none ? fs::path(path) : followed;
    mPath = mTarget.parent_path() / ('.' + mTarget.filename().string() + '.' + std::to_string(::getpid()));
    const int file = ::open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    mError = errno;
    if (file == -1) {
      return;
    }
    mIsThere = true;
    struct stat status = {};
    if (::stat(mTarget.c_str(), &status) == 0) {
      static_cast<void>(::fchmod(file, status.st_mode & 0777));  // it is ours, so there is no way to fail
    }
    ::close(file);
    mStream.open(mPath, std::ios::binary);
  }

  ~FileBeside() {
    if (mIsThere) {
      ::unlink(mPath.c_str());
    }
  }

  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;

  bool isThere() const { return mIsThere; }
  int error() const { return mError; }
  std::ostream& stream() { return mStream; }

  /// Takes the other's place. @return whether all was written, and it has
  bool become() {
    mStream.close();
    if (!mStream || std::rename(mPath.c_str(), mTarget.c_str()) != 0) {
      return false;
    }
    mIsThere = false;
    return true;
  }

 private:
  fs::path mTarget;
  fs::path mPath;
  std::ofstream mStream;
  bool mIsThere = false;
  int mError = 0;
};

// What was at the output before is lost only to a whole copy.
int copyToFile(const Options& options, const Streams& streams) {
  std::error_code none;
  if (options.from != "-" && fs::equivalent(options.from, options.output, none)) {
    streams.err << "idlctl: " << quotedText(options.output) << " is what --from reads\n";
    return EXIT_USAGE;
  }
  FileBeside file(options.output);
  if (!file.isThere()) {
    return cannotOpen(options.output, file.error(), streams);
  }
  const int code = copyRecording(options, streams, file.stream());
  if (!file.stream()) {
    return cannotWrite(streams);
  }
  if (code != EXIT_YES) {
    return code;
  }
  return file.become() ? EXIT_YES : cannotWrite(streams);
}

// A device, a pipe: nothing can take its place.
bool isFile(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

int run(const Options& options, const Streams& streams) {
  if (!options.from.empty() && !options.output.empty() && isFile(options.output)) {
    return copyToFile(options, streams);
  }
  std::ofstream file;
  if (!options.output.empty()) {
    file.open(options.output, std::ios::binary | std::ios::trunc);
    if (!file) {
      return cannotOpen(options.output, errno, streams);
    }
  }
  std::ostream& output = options.output.empty() ? streams.out : file;
  const int code = options.from.empty() ? follow(options, output) : copyRecording(options, streams, output);
  output.flush();
  return output ? code : cannotWrite(streams);
}

}  // namespace

void addRecord(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("--output,-o", options->output, "write the recording there, not to standard output")
      .typeName("FILE");
  const Argument saveFolder =
      arguments.option("--save-dir", options->saveFolder,
                       "the folder of the saved numbers; else LM_SAVE_FILE_DIR, else this user's own");
  arguments.flag("--pseudonymise", options->isPseudonymised,
                 "other names, addresses and identifiers, by a salt that nobody keeps");
  const Argument timeout = arguments.duration("--timeout", options->timeout, "end after that time; else when stopped");
  const Argument interval = arguments.duration("--interval", options->interval, "look that often, 100ms");
  arguments.option("--from", options->from, "copy that recording instead of making one; - for standard input")
      .typeName("FILE")
      .excludes(saveFolder)
      .excludes(timeout)
      .excludes(interval);
  arguments.footer(
      "JSON Lines: what changed in the tables, byte by byte and decoded, and what the list became.\n"
      "Exit codes:\n"
      "  0    stopped, or the time is over\n"
      "  2    wrong arguments, --from and -o are the same file, or --from is of another version of the format\n"
      "  3    --from cannot be read, or the recording not be written\n"
      "  4    --from is damaged\n"
      "Examples:\n  idlctl record -o tuesday.jsonl\n  idlctl record --pseudonymise --timeout 1h >tuesday.jsonl\n"
      "  idlctl record --from tuesday.jsonl --pseudonymise -o to-send.jsonl");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
