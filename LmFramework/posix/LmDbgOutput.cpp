// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmDbgOutput.h"

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <mutex>

#include "LmFramework/posix/DbgOutputFork.h"
#include "LmFramework/posix/ForkHandlers.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

constexpr std::size_t MAX_LINE = 1023;

// Protects the sink and is held while a line is given out, so that lines do not mix and no thread is left in a sink
// that was replaced. The last in the order of locks. Its destructor is trivial: singletons may print at exit.
std::mutex outputMutex;
LmDbgOutput::Sink currentSink = nullptr;  // null: standard error
void* currentContext = nullptr;

/// Printing must not change the error that is being reported.
class ErrnoKeeper {
 public:
  ErrnoKeeper() : mSaved(errno) {}
  ~ErrnoKeeper() { errno = mSaved; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int mSaved;
};

/// A line under construction, NUL-terminated; what does not fit is dropped.
class Line {
 public:
  char* end() { return mText + mLength; }

  std::size_t space() const { return sizeof mText - mLength; }

  /// Takes over what one of the printf family wanted to put into the space at the end.
  void added(int wanted) {
    if (wanted < 0) {
      mText[mLength] = '\0';  // not to be formatted; the file and the line still say where to look
    } else {
      mLength += std::min(static_cast<std::size_t>(wanted), space() - 1);
    }
  }

  void dropNewline() {
    if (mLength > 0 && mText[mLength - 1] == '\n') {
      mText[--mLength] = '\0';
    }
  }

  void cut() {
    mLength = std::min(mLength, MAX_LINE);
    mText[mLength] = '\0';
  }

  void maskControlCharacters() {
    for (std::size_t i = 0; i < mLength; ++i) {
      const auto byte = static_cast<unsigned char>(mText[i]);
      if (byte < 0x20 || byte == 0x7F) {
        mText[i] = '?';
      } else if (byte == 0xC2 && i + 1 < mLength && (static_cast<unsigned char>(mText[i + 1]) & 0xE0U) == 0x80) {
        mText[i] = '?';  // U+0080 to U+009F in UTF-8, which some terminals obey
        mText[++i] = '?';
      }
    }
  }

  const char* text() const { return mText; }

  /// Adds the newline, for which there is always room, and writes all of it.
  void writeToStandardError() {
    mText[mLength] = '\n';
    std::size_t done = 0;
    while (done <= mLength) {
      const ssize_t written = retryInterrupted([&] { return write(STDERR_FILENO, mText + done, mLength + 1 - done); });
      if (written <= 0) {
        break;  // nobody is left to be told
      }
      done += static_cast<std::size_t>(written);
    }
    mText[mLength] = '\0';
  }

 private:
  char mText[MAX_LINE + 2] = "";  // one byte more than a line: its newline, which is not counted
  std::size_t mLength = 0;
};

void addMessage(Line& line, const char* format, va_list arguments) {
  line.added(std::vsnprintf(line.end(), line.space(), format, arguments));
  line.dropNewline();
  line.cut();
  line.maskControlCharacters();
}

/// Locks the output, in a process that can fork all the same.
std::unique_lock<std::mutex> lockOutput() {
  installForkHandlers();
  return std::unique_lock<std::mutex>(outputMutex);
}

const char* orUnknown(const char* text) { return text != nullptr ? text : "?"; }

enum class Destination { SINK, STANDARD_ERROR };

void giveOut(Line& line, Destination destination) {
  const std::unique_lock<std::mutex> lock = lockOutput();
  if (destination == Destination::SINK && currentSink != nullptr) {
    currentSink(currentContext, line.text());
  } else {
    line.writeToStandardError();
  }
}

void printToSyslog(void* /*context*/, const char* line) { syslog(LOG_DEBUG, "%s", line); }

}  // namespace

void LmDbgOutput::DbgPrint(const char* file, const char* function, int line, int tag, const char* format, ...) {
  const ErrnoKeeper keeper;
  Line text;
  text.added(
      std::snprintf(text.end(), text.space(), "%s:%d %s [%d] ", orUnknown(file), line, orUnknown(function), tag));
  va_list arguments;
  va_start(arguments, format);
  addMessage(text, format, arguments);
  va_end(arguments);
  giveOut(text, Destination::SINK);
}

void LmDbgOutput::DbgPrintStdErr(const char* file, const char* function, int line, const char* format, ...) {
  const ErrnoKeeper keeper;
  Line text;
  text.added(std::snprintf(text.end(), text.space(), "%s:%d %s ", orUnknown(file), line, orUnknown(function)));
  va_list arguments;
  va_start(arguments, format);
  addMessage(text, format, arguments);
  va_end(arguments);
  giveOut(text, Destination::STANDARD_ERROR);
}

void LmDbgOutput::setSink(Sink sink, void* context) {
  const std::unique_lock<std::mutex> lock = lockOutput();
  currentSink = sink;
  currentContext = context;
}

void LmDbgOutput::useSyslog() { setSink(&printToSyslog, nullptr); }

void forkPrepareLog() { outputMutex.lock(); }

void forkParentLog() { outputMutex.unlock(); }

void forkChildLog() { outputMutex.unlock(); }
