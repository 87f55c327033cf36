// SPDX-License-Identifier: Apache-2.0
// The save-file service and LmSingletonFinalizer of the recording framework.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "LmFramework/LmSingletonFinalizer.h"
#include "LmFramework/SaveFileAccess.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "recording/RecorderState.h"

LM_SINGLETON_DEFINE(SaveFileAccessFactory);

namespace {

void record(const std::string& event) { RecorderState::get().record(Recorder::SAVE_FILE, event); }

Recorder::SaveFileScript script() {
  RecorderState& state = RecorderState::get();
  const std::lock_guard<std::mutex> lock(state.guard);
  return state.script;
}

void throwIf(const std::string& call) {
  if (script().throwsIn == call) {
    throw std::bad_alloc();
  }
}

/// A save file in memory that does what the script says.
class RecordingSaveFile : public SaveFileAccess {
 public:
  explicit RecordingSaveFile(const std::string& name) : mName(name) {}

  ~RecordingSaveFile() override { record("delete " + mName); }

  bool FOpen() override {
    record("FOpen");
    mImage = script().opens ? Recorder::saveFile(mName) : "";
    mOffset = 0;
    return script().opens;
  }

  bool FClose() override {
    record("FClose");
    return true;
  }

  int Read(void* buffer, unsigned size) override {
    record("Read " + std::to_string(size) + " at " + std::to_string(mOffset));
    throwIf("Read");
    const std::size_t count = std::min(
        {static_cast<std::size_t>(size), mImage.size() - mOffset, static_cast<std::size_t>(script().readsAtMost)});
    std::memcpy(buffer, mImage.data() + mOffset, count);
    mOffset += count;
    return static_cast<int>(count);
  }

  int Write(const void* buffer, unsigned size) override {
    record("Write " + std::to_string(size) + " at " + std::to_string(mOffset));
    throwIf("Write");
    if (!script().writes) {
      return -1;
    }
    mImage.resize(std::max(mImage.size(), mOffset + size));
    std::memcpy(mImage.data() + mOffset, buffer, size);
    mOffset += size;
    return static_cast<int>(size);
  }

  bool Seek(long offset, int origin) override {
    record("Seek " + std::to_string(offset) + " " + std::to_string(origin));
    mOffset = static_cast<std::size_t>(offset);
    return true;
  }

  bool Flush() override {
    record("Flush");
    throwIf("Flush");
    if (script().flushes) {
      Recorder::putSaveFile(mName, mImage);
    }
    return script().flushes;
  }

 private:
  const std::string mName;
  std::string mImage;
  std::size_t mOffset = 0;
};

/// Gives the class mutex its name in the record.
struct FactoryClassMutex : LmSingleton<SaveFileAccessFactory> {
  FactoryClassMutex() = delete;

  static bool name() {
    Recorder::name(&sClassMutex, "class SaveFileAccessFactory");
    Recorder::name(reinterpret_cast<const void*>(&LmSingleton<SaveFileAccessFactory>::destroy),
                   "SaveFileAccessFactory::destroy");
    return true;
  }
};

const bool NAMED = FactoryClassMutex::name();

}  // namespace

SaveFileAccessBase::~SaveFileAccessBase() = default;

SaveFileAccessFactory::SaveFileAccessFactory() { record("construct SaveFileAccessFactory"); }

SaveFileAccessFactory::~SaveFileAccessFactory() { record("destroy SaveFileAccessFactory"); }

SaveFileAccess* SaveFileAccessFactory::Create(const char* name, const char* mode) {
  record(std::string("Create ") + name + " " + mode);
  return script().createGivesNull ? nullptr : new RecordingSaveFile(name);
}

void LmSingletonFinalizer::addDestroyFunc(DestroyFunc destroyFunc) {
  static const int registered = std::atexit(&Recorder::runFinalizer);
  RecorderState& state = RecorderState::get();
  const std::string name = state.nameOf(reinterpret_cast<const void*>(destroyFunc), "destroy function");
  state.record(Recorder::FINALIZER, "addDestroyFunc " + name + (registered == 0 ? "" : ", not registered"));
  const std::lock_guard<std::mutex> lock(state.guard);
  state.destroyFuncs.push_back(destroyFunc);
}

void Recorder::runFinalizer() {
  RecorderState& state = RecorderState::get();
  for (;;) {
    LmSingletonFinalizer::DestroyFunc function = nullptr;
    {
      const std::lock_guard<std::mutex> lock(state.guard);
      if (state.destroyFuncs.empty()) {
        return;
      }
      function = state.destroyFuncs.back();
      state.destroyFuncs.pop_back();
    }
    state.record(FINALIZER, "run " + state.nameOf(reinterpret_cast<const void*>(function), "destroy function"));
    function();
  }
}
