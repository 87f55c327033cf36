// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_RECORDING_RECORDER_H
#define TESTS_RECORDING_RECORDER_H

#include <string>
#include <vector>

/// What the recording framework was asked to do, as one text for each call, in order.
///
/// The recording framework stands behind the same declarations as the real one and does the little that its caller
/// needs: locks exclude the threads of this process, observers are called at once, save files lie in memory. Nothing
/// leaves the process but the segments that the caller opens itself.
///
/// How calls read, with "NAME" the name given to an object by name(), or its kind and a number:
///
///     construct LmSync NAME     Lock NAME -1       Unlock NAME        destroy LmSync NAME
///     construct Lock            lock Lock 1        unlock Lock 0      destroy Lock         (named locks; depth after)
///     guard NAME                unguard NAME       guard named lock   unguard named lock
///     LmString "/" 32           += "Table"         ToCHAR 32 "/Table"
///     lm_strncpy "" 80
///     DbgPrint FILE FUNCTION LINE TAG MESSAGE      DbgPrintStdErr FILE FUNCTION LINE MESSAGE
///     construct LmSubject       NotifyObserver 7 0 0 without data     destroy LmSubject
///     construct notifier false  AddObserver {6} 1  RemoveObserver     destroy observer     destroy notifier
///     addDestroyFunc NAME       run NAME
///     Create IDLSuffix.ini r+   FOpen, Read 2630 at 0, Write 2630 at 0, Seek 0 0, Flush, FClose    delete
///     IDLSuffix.ini
///     pread Table 1120@4        pwrite Table 4@0
///
/// Any thread may call anything here.
class __attribute__((visibility("default"))) Recorder {
 public:
  enum Kind : unsigned {
    SYNC = 1,
    SHARED_SYNC = 2,
    GUARD = 4,
    TEXT = 8,  // LmString
    TEXT_COPY = 16,
    LOG = 32,
    SUBJECT = 64,
    OBSERVER = 128,  // observers' ends and the notifier's calls
    FINALIZER = 256,
    SAVE_FILE = 512,
    TRANSFER = 1024,  // pread and pwrite of segments, in a program that wraps them
    EVERYTHING_BUT_TEXT_COPY = 1023 - TEXT_COPY,
  };

  struct LogLine {
    bool standardError;  // printed by DbgPrintStdErr, which has no tag
    std::string file;
    std::string function;
    int line;
    int tag;
    std::string format;  // as it was passed
    std::string message;
  };

  /// How the save files behave from now on.
  struct SaveFileScript {
    bool createGivesNull = false;
    bool opens = true;
    int readsAtMost = 1 << 20;  // bytes
    bool writes = true;
    bool flushes = true;
    std::string throwsIn;  // the name of the call that throws std::bad_alloc, if any
  };

  Recorder() = delete;

  /// Forgets everything so far, save files and their script too, and records calls of `kinds` from now on. Names
  /// given to objects stay.
  static void begin(unsigned kinds = EVERYTHING_BUT_TEXT_COPY);

  /// The calls since begin().
  static std::vector<std::string> events();

  /// Those since begin() that went to the log, whatever kinds are recorded.
  static std::vector<LogLine> logLines();

  /// Forgets the calls so far and nothing else.
  static void clear();

  /// What `object`, a mutex or a function, is called in the record.
  static void name(const void* object, const std::string& name);

  /// The names of the mutexes that were constructed before the first begin(), in order.
  static std::vector<std::string> mutexesAtLoad();

  static void script(const SaveFileScript& script);
  static void putSaveFile(const std::string& name, const std::string& bytes);
  static std::string saveFile(const std::string& name);

  /// Takes a pread or a pwrite of a descriptor into the record.
  static void transfer(const char* call, int fd, unsigned long long size, unsigned long long offset);

  /// Calls the observers that are registered for `id` at any notifier.
  static void notify(unsigned id, void* data, unsigned size);

  /// Runs the registered destroy functions, newest first, as the end of the process would.
  static void runFinalizer();

  /// Whether any mutex or named lock is held by anybody.
  static bool anyLockHeld();
};

#endif
