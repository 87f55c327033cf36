// SPDX-License-Identifier: Apache-2.0
// LmSubject, LmObserver_ and LmSharedMemNotifier of the recording framework.
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LmFramework/LmObserver_.h"
#include "LmFramework/LmSubject.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "recording/RecorderState.h"

namespace {

std::string listOf(const unsigned* ids, unsigned count) {
  std::string list = "{";
  for (unsigned i = 0; i < count; ++i) {
    list += (i == 0 ? "" : ",") + std::to_string(ids[i]);
  }
  return list + "} " + std::to_string(count);
}

}  // namespace

/// The observers of one subject with the id that each is attached to.
class ObserverList {
 public:
  std::vector<std::pair<unsigned, LmObserver_*>> entries;
};

LmObserver_::~LmObserver_() { RecorderState::get().record(Recorder::OBSERVER, "destroy observer"); }

LmSubject::LmSubject() : mObservers(std::make_unique<ObserverList>()) {
  RecorderState::get().record(Recorder::SUBJECT, "construct LmSubject");
}

LmSubject::~LmSubject() { RecorderState::get().record(Recorder::SUBJECT, "destroy LmSubject"); }

bool LmSubject::AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count) {
  RecorderState::get().record(Recorder::SUBJECT, "LmSubject::AddObserver " + listOf(ids, count));
  for (unsigned i = 0; i < count; ++i) {
    mObservers->entries.emplace_back(ids[i], observer);
  }
  return true;
}

void LmSubject::RemoveObserver(LmObserver_* observer) {
  RecorderState::get().record(Recorder::SUBJECT, "LmSubject::RemoveObserver");
  auto& entries = mObservers->entries;
  entries.erase(std::remove_if(entries.begin(), entries.end(),
                               [observer](const auto& entry) { return entry.second == observer; }),
                entries.end());
}

void LmSubject::NotifyObserver(unsigned id, void* data, unsigned size, EN_NTF_TYPE type) {
  RecorderState::get().record(Recorder::SUBJECT, "NotifyObserver " + std::to_string(id) + " " + std::to_string(size) +
                                                     " " + std::to_string(static_cast<int>(type)) +
                                                     (data == nullptr ? " without data" : " with data"));
  for (const auto& [observedId, observer] : mObservers->entries) {
    if (observedId == id) {
      observer->Update(id, data, size);
    }
  }
}

LmSharedMemNotifier::LmSharedMemNotifier(bool flag) {
  RecorderState::get().record(Recorder::OBSERVER, std::string("construct notifier ") + (flag ? "true" : "false"));
}

LmSharedMemNotifier::~LmSharedMemNotifier() { RecorderState::get().record(Recorder::OBSERVER, "destroy notifier"); }

bool LmSharedMemNotifier::AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count) {
  RecorderState& state = RecorderState::get();
  state.record(Recorder::OBSERVER, "AddObserver " + listOf(ids, count));
  const std::lock_guard<std::mutex> lock(state.guard);
  for (unsigned i = 0; i < count; ++i) {
    state.observers.emplace_back(ids[i], observer);
  }
  return true;
}

void LmSharedMemNotifier::RemoveObserver(LmObserver_* observer) {
  RecorderState& state = RecorderState::get();
  state.record(Recorder::OBSERVER, "RemoveObserver");
  const std::lock_guard<std::mutex> lock(state.guard);
  auto& observers = state.observers;
  observers.erase(std::remove_if(observers.begin(), observers.end(),
                                 [observer](const auto& entry) { return entry.second == observer; }),
                  observers.end());
}

bool LmSharedMemNotifier::Publish(unsigned id, const void* /*data*/, unsigned size) {
  RecorderState::get().record(Recorder::OBSERVER, "Publish " + std::to_string(id) + " " + std::to_string(size));
  return true;
}
