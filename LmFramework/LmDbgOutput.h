// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMDBGOUTPUT_H
#define LMFRAMEWORK_LMDBGOUTPUT_H

#include "LmFramework/LmFrameworkExport.h"

/// The debug log: one line a message, with the file, the function and the line that it names:
///
///     src/Clock:12 setTime [1] the clock is not set
///
/// The number in brackets is DbgPrint's tag; DbgPrintStdErr has none.
///
/// Any thread may print; lines of several threads never mix. The newline that a message ends in is
/// the end of its line; control characters inside are shown as '?', so that nothing that came from
/// a phone can forge a line. A line is cut at 1,023 bytes. Nothing here allocates (syslog may) or throws,
/// and errno is kept. A line for standard error is one write() of a whole line, unless the system takes
/// only a part at once; what it refuses is lost.
class LM_FRAMEWORK_API LmDbgOutput {
 public:
  /// Takes one finished line without its newline. `line` is valid during the call only. It runs with the
  /// log's mutex held: it must not print through this class, directly or not, nor change the sink, nor
  /// make, use or destroy an LmSharedSyncObject, nor fork, and it must not throw.
  using Sink = void (*)(void* context, const char* line);

  LmDbgOutput() = delete;

  /// Prints to the sink in force; standard error, unless one of the functions below set another.
  /// `tag` is the caller's. `format` as for printf.
  static void DbgPrint(const char* file, const char* function, int line, int tag, const char* format, ...)
      __attribute__((format(printf, 5, 6)));

  /// Prints to standard error, whatever sink is in force.
  static void DbgPrintStdErr(const char* file, const char* function, int line, const char* format, ...)
      __attribute__((format(printf, 4, 5)));

  /// DbgPrint goes to `sink` from now on; null means standard error again. When it returns, no thread
  /// is inside the sink that was in force before.
  static void setSink(Sink sink, void* context);

  /// DbgPrint goes to syslog from now on, at priority debug.
  static void useSyslog();
};

#endif
