// SPDX-License-Identifier: Apache-2.0
#include "recording/Recorder.h"

#include <filesystem>
#include <system_error>

#include "LmFramework/LmObserver_.h"
#include "recording/RecorderState.h"

RecorderState& RecorderState::get() {
  static auto* const state = new RecorderState;
  return *state;
}

void RecorderState::record(Recorder::Kind kind, const std::string& event) {
  const std::lock_guard<std::mutex> lock(guard);
  if ((kinds & kind) != 0) {
    events.push_back(event);
  }
}

std::string RecorderState::nameOf(const void* object, const std::string& kind) {
  const std::lock_guard<std::mutex> lock(guard);
  std::string& name = names[object];
  if (name.empty()) {
    name = kind + " " + std::to_string(++namesGiven);
  }
  return name;
}

void Recorder::begin(unsigned kinds) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  state.loading = false;
  state.kinds = kinds;
  state.events.clear();
  state.logLines.clear();
  state.namesGiven = 0;
  state.saveFiles.clear();
  state.script = SaveFileScript();
}

std::vector<std::string> Recorder::events() {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  return state.events;
}

std::vector<Recorder::LogLine> Recorder::logLines() {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  return state.logLines;
}

void Recorder::clear() {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  state.events.clear();
  state.logLines.clear();
}

void Recorder::name(const void* object, const std::string& name) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  state.names[object] = name;
}

std::vector<std::string> Recorder::mutexesAtLoad() {
  RecorderState& state = RecorderState::get();
  std::vector<const void*> mutexes;
  {
    const std::lock_guard<std::mutex> lock(state.guard);
    mutexes = state.mutexesAtLoad;
  }
  std::vector<std::string> names;
  names.reserve(mutexes.size());
  for (const void* mutex : mutexes) {
    names.push_back(state.nameOf(mutex, "LmSync"));
  }
  return names;
}

void Recorder::script(const SaveFileScript& script) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  state.script = script;
}

void Recorder::putSaveFile(const std::string& name, const std::string& bytes) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  state.saveFiles[name] = bytes;
}

std::string Recorder::saveFile(const std::string& name) {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  return state.saveFiles[name];
}

void Recorder::transfer(const char* call, int fd, unsigned long long size, unsigned long long offset) {
  static const std::string FOLDER = "/dev/shm/";
  std::error_code error;
  const std::string path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error).string();
  const std::string name = path.compare(0, FOLDER.size(), FOLDER) == 0 ? path.substr(FOLDER.size()) : path;
  RecorderState::get().record(
      TRANSFER, std::string(call) + " " + name + " " + std::to_string(size) + "@" + std::to_string(offset));
}

void Recorder::notify(unsigned id, void* data, unsigned size) {
  RecorderState& state = RecorderState::get();
  std::vector<std::pair<unsigned, LmObserver_*>> observers;
  {
    const std::lock_guard<std::mutex> lock(state.guard);
    observers = state.observers;
  }
  for (const auto& [observedId, observer] : observers) {
    if (observedId == id) {
      observer->Update(id, data, size);
    }
  }
}

bool Recorder::anyLockHeld() {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  for (const auto& [object, mutex] : state.mutexes) {
    if (mutex->depth != 0) {
      return true;
    }
  }
  return state.namedLockDepth != 0;
}
