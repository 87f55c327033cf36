// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_RECORDING_RECORDERSTATE_H
#define TESTS_RECORDING_RECORDERSTATE_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LmFramework/LmSingletonFinalizer.h"
#include "recording/Recorder.h"

class LmObserver_;

/// What the recording framework keeps. Never destroyed: mutexes of other libraries outlive every static object here.
struct RecorderState {
  struct Mutex {
    std::recursive_timed_mutex mutex;
    int depth = 0;  // guarded by RecorderState::guard
  };

  static RecorderState& get();

  /// Adds `event` to the record if its kind is recorded.
  void record(Recorder::Kind kind, const std::string& event);

  /// The name of `object`; one is made of `kind` and a number if it has none.
  std::string nameOf(const void* object, const std::string& kind);

  std::mutex guard;  // protects everything below; no call is made with it held

  unsigned kinds = Recorder::EVERYTHING_BUT_TEXT_COPY;
  bool loading = true;
  unsigned namesGiven = 0;
  std::vector<std::string> events;
  std::vector<Recorder::LogLine> logLines;
  std::vector<const void*> mutexesAtLoad;
  std::map<const void*, std::string> names;
  std::map<const void*, std::shared_ptr<Mutex>> mutexes;
  int namedLockDepth = 0;  // of all named locks together

  Recorder::SaveFileScript script;
  std::map<std::string, std::string> saveFiles;
  std::vector<std::pair<unsigned, LmObserver_*>> observers;
  std::vector<LmSingletonFinalizer::DestroyFunc> destroyFuncs;
};

#endif
