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
#include <sstream>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/InputFile.h"
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
  bool isForced = false;
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

  void take(const recording::Event& event) {
    if (!mPseudonyms) {
      mWriter.write(event);
      return;
    }
    mNames.take(event);
    mWriter.write(mPseudonyms->event(event));
  }

  /// Says what other names have lost.
  void warn(const Streams& streams) const {
    if (mPseudonyms && !mNames.lost().empty()) {
      streams.err
          << "idlctl: " << quotedText(mNames.lost())
          << " has three numbers at its end, of which the first is another now: the lists may not be what replay "
             "--check makes of the tables\n";
    }
  }

 private:
  static recording::Header with(recording::Header header, bool isPseudonymised) {
    header.isPseudonymised = header.isPseudonymised || isPseudonymised;
    return header;
  }

  recording::RecordingWriter mWriter;
  std::optional<recording::Pseudonyms> mPseudonyms;
  recording::NamesWithNumbers mNames;
};

int copyRecording(const Options& options, const Streams& streams, std::ostream& output) {
  return readRecording(options.from, streams, [&](recording::RecordingReader& reader) {
    Sink sink(output, reader.header(), options.isPseudonymised);
    recording::Event event;
    while (reader.next(event)) {
      sink.take(event);
    }
    sink.warn(streams);
    return EXIT_YES;
  });
}

int follow(const Options& options, const Streams& streams, std::ostream& output) {
  const Stopping stopping;
  const Deadline deadline(options.timeout);
  Sink sink(output, {nowText(), false}, options.isPseudonymised);
  recording::Recorder recorder(options.saveFolder, [&sink](const recording::Event& event) { sink.take(event); });
  const std::chrono::milliseconds interval = std::max(SHORTEST_INTERVAL, options.interval.value_or(INTERVAL));
  while (!deadline.isOver() && !stopping.within(deadline.atMost(interval)) && output) {
    recorder.poll();
  }
  recorder.end();
  sink.warn(streams);
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

// Where the links lead to, be anything there or not; the path itself if they lead nowhere.
fs::path targetOf(const std::string& path) {
  constexpr int MOST_LINKS = 40;
  fs::path target = path;
  for (int k = 0; k < MOST_LINKS; ++k) {
    std::error_code none;
    const fs::path next = fs::read_symlink(target, none);
    if (none) {
      return target;
    }
    target = target.parent_path() / next;
  }
  return path;
}

bool writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(file, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      return false;
    }
    text.remove_prefix(count < 0 ? 0 : static_cast<std::size_t>(count));
  }
  return ::fsync(file) == 0;
}

// A rename, too, is on the disk only when its folder is.
void syncFolder(const fs::path& folder) {
  const int descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor != -1) {
    static_cast<void>(::fsync(descriptor));  // there are file systems that cannot
    ::close(descriptor);
  }
}

// In the place of what is there, which stays as it is until all is written. @return 0, or the error
int replaceFile(const fs::path& target, const std::string& text) {
  const fs::path beside = target.parent_path() / (".idlctl-record-" + std::to_string(::getpid()));
  const int file = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file == -1) {
    return errno;
  }
  struct stat status = {};
  if (::stat(target.c_str(), &status) == 0) {
    static_cast<void>(::fchmod(file, status.st_mode & 0777));  // it is ours, so there is no way to fail
  }
  const bool isWritten = writeAll(file, text);
  int error = isWritten ? 0 : errno;
  ::close(file);
  if (isWritten && std::rename(beside.c_str(), target.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(beside.c_str());
    return error;
  }
  syncFolder(target.parent_path());
  return 0;
}

// The file itself, where its folder is not this user's. @return 0, or the error
int overwriteFile(const fs::path& target, const std::string& text) {
  const int file = ::open(target.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (file == -1) {
    return errno;
  }
  const int error = writeAll(file, text) ? 0 : errno;
  ::close(file);
  return error;
}

// What was at the output before is lost only to a whole copy. Until that is read it is in memory alone, so that
// whatever ends this program leaves no names behind.
int copyToFile(const Options& options, const Streams& streams) {
  std::error_code none;
  if (options.from != STANDARD_INPUT && fs::equivalent(options.from, options.output, none)) {
    streams.err << "idlctl: " << quotedText(options.output) << " is what --from reads\n";
    return EXIT_USAGE;
  }
  const fs::path target = targetOf(options.output);
  if (!fs::is_directory(target.parent_path().empty() ? "." : target.parent_path(), none)) {
    return cannotOpen(options.output, ENOENT, streams);
  }
  std::ostringstream text;
  const int code = copyRecording(options, streams, text);
  if (code != EXIT_YES) {
    return code;
  }
  const Stopping stopping;  // one that comes now comes too late
  int error = replaceFile(target, text.str());
  if ((error == EACCES || error == EPERM || error == EROFS) && fs::is_regular_file(target, none)) {
    error = overwriteFile(target, text.str());
  }
  return error == 0 ? EXIT_YES : cannotOpen(options.output, error, streams);
}

// A device, a pipe: nothing can take its place, and it holds nothing that could be lost.
bool isFile(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

// Whether a recording is there already; makes the file if nothing is. Of two recorders one has it.
bool wouldLoseARecording(const Options& options) {
  const int file = ::open(options.output.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file != -1) {
    ::close(file);
    return false;
  }
  struct stat status = {};
  return !options.isForced && ::stat(options.output.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size > 0;
}

int run(const Options& options, const Streams& streams) {
  const bool isStandardOutput = options.output.empty() || options.output == "-";
  if (!options.from.empty() && !isStandardOutput && isFile(options.output)) {
    return copyToFile(options, streams);
  }
  std::ofstream file;
  if (!isStandardOutput) {
    if (options.from.empty() && wouldLoseARecording(options)) {
      streams.err << "idlctl: " << quotedText(options.output) << ": is there already; --force writes over it\n";
      return EXIT_CANNOT_OPEN;
    }
    file.open(options.output, std::ios::binary | std::ios::trunc);
    if (!file) {
      return cannotOpen(options.output, errno, streams);
    }
  }
  std::ostream& output = isStandardOutput ? streams.out : file;
  const int code = options.from.empty() ? follow(options, streams, output) : copyRecording(options, streams, output);
  output.flush();
  return output ? code : cannotWrite(streams);
}

}  // namespace

void addRecord(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("--output,-o", options->output, "write the recording there; - or nothing for standard output")
      .typeName("FILE");
  const Argument force = arguments.flag("--force", options->isForced, "write over a recording that is there already");
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
      .excludes(force)
      .excludes(timeout)
      .excludes(interval);
  arguments.footer(
      "JSON Lines: what changed in the tables, byte by byte and decoded, and what the list became.\n"
      "What comes and goes between two looks is not in it: --interval 10ms for what changes fast.\n"
      "Exit codes:\n"
      "  0    stopped, or the time is over\n"
      "  2    wrong arguments, --from and -o are the same file, or --from is of another version of the format\n"
      "  3    --from cannot be read, the recording not be written, or a recording is there without --force\n"
      "  4    --from is damaged\n"
      "Examples:\n  idlctl record -o tuesday.jsonl\n  idlctl record --pseudonymise --timeout 1h >tuesday.jsonl\n"
      "  idlctl record --from tuesday.jsonl --pseudonymise -o to-send.jsonl");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
