// SPDX-License-Identifier: Apache-2.0
#include "framework/CallRecorder.h"

#include <dirent.h>
#include <pthread.h>
#include <sys/types.h>

#include <cerrno>
#include <utility>

namespace {

thread_local CallRecorder* current = nullptr;

/// Writes the call down, and makes it unless it is to fail.
template <class Subject, class Call>
auto recorded(const char* name, Subject subject, const Call& call) -> decltype(call()) {
  const std::string about = current != nullptr ? current->nameOf(subject) : "";
  if (current != nullptr && current->counts(about)) {
    const int error = current->planned(std::string(name) + " " + about);
    if (error != 0) {
      errno = error;
      return static_cast<decltype(call())>(-1);
    }
  }
  return call();
}

template <class Call>
int recordedOpen(const char* name, const char* path, const Call& call) {
  const int descriptor = recorded(name, path, call);
  if (current != nullptr && descriptor >= 0) {
    current->opened(descriptor, path);
  }
  return descriptor;
}

std::size_t allowed(std::size_t size) { return current == nullptr ? size : current->allowed(size); }

}  // namespace

CallRecorder::CallRecorder(std::function<std::string(const std::string&)> label) : mLabel(std::move(label)) {
  current = this;
}

CallRecorder::~CallRecorder() { current = nullptr; }

void CallRecorder::failAt(std::size_t index, int error) {
  mUntilFailure = index;
  mError = error;
}

void CallRecorder::failAll(const std::string& call, int error) { mAlways[call] = error; }

std::vector<std::string> CallRecorder::take() {
  std::vector<std::string> calls;
  calls.swap(mCalls);
  return calls;
}

int CallRecorder::planned(const std::string& call) {
  mCalls.push_back(call);
  const bool isTurn = mUntilFailure == 0;
  if (mUntilFailure != NEVER) {
    mUntilFailure = isTurn ? NEVER : mUntilFailure - 1;
  }
  const auto always = mAlways.find(call);
  if (always != mAlways.end()) {
    return always->second;
  }
  return isTurn ? mError : 0;
}

std::string CallRecorder::nameOf(int descriptor) const {
  const auto found = mNames.find(descriptor);
  return found != mNames.end() ? found->second : UNKNOWN;
}

void CallRecorder::opened(int descriptor, const char* path) { mNames[descriptor] = mLabel(path); }

// The linker sends each call X to __wrap_X, and gives X itself the name __real_X. C libraries have several symbols for
// one call; which of them the objects use depends on the machine and on the width of its file offsets.

#define LM_REAL(symbol) asm("__real_" symbol)
// Visible, because libraries that refer to a wrapped symbol make the linker look at them; they keep the C library's.
#define LM_WRAP(symbol) asm("__wrap_" symbol) __attribute__((visibility("default")))

extern "C" {

#define LM_WRAP_OPEN(suffix, symbol)                                                        \
  int realOpen##suffix(const char*, int, mode_t) LM_REAL(symbol);                           \
  int wrapOpen##suffix(const char*, int, mode_t) LM_WRAP(symbol);                           \
  int wrapOpen##suffix(const char* path, int flags, mode_t mode) {                          \
    return recordedOpen("open", path, [&] { return realOpen##suffix(path, flags, mode); }); \
  }

#define LM_WRAP_OPENAT(suffix, symbol)                                                                  \
  int realOpenat##suffix(int, const char*, int, mode_t) LM_REAL(symbol);                                \
  int wrapOpenat##suffix(int, const char*, int, mode_t) LM_WRAP(symbol);                                \
  int wrapOpenat##suffix(int folder, const char* path, int flags, mode_t mode) {                        \
    return recordedOpen("openat", path, [&] { return realOpenat##suffix(folder, path, flags, mode); }); \
  }

#define LM_WRAP_FSTAT(suffix, symbol)                                            \
  int realFstat##suffix(int, void*) LM_REAL(symbol);                             \
  int wrapFstat##suffix(int, void*) LM_WRAP(symbol);                             \
  int wrapFstat##suffix(int fd, void* status) {                                  \
    return recorded("fstat", fd, [&] { return realFstat##suffix(fd, status); }); \
  }

#define LM_WRAP_STAT(suffix, symbol)                                               \
  int realStat##suffix(const char*, void*) LM_REAL(symbol);                        \
  int wrapStat##suffix(const char*, void*) LM_WRAP(symbol);                        \
  int wrapStat##suffix(const char* path, void* status) {                           \
    return recorded("stat", path, [&] { return realStat##suffix(path, status); }); \
  }

#define LM_WRAP_FSTATAT(suffix, symbol)                                                                 \
  int realFstatat##suffix(int, const char*, void*, int) LM_REAL(symbol);                                \
  int wrapFstatat##suffix(int, const char*, void*, int) LM_WRAP(symbol);                                \
  int wrapFstatat##suffix(int folder, const char* path, void* status, int flags) {                      \
    return recorded("fstatat", path, [&] { return realFstatat##suffix(folder, path, status, flags); }); \
  }

LM_WRAP_OPEN(Plain, "open")
LM_WRAP_OPEN(64, "open64")
LM_WRAP_OPENAT(Plain, "openat")
LM_WRAP_OPENAT(64, "openat64")
LM_WRAP_FSTAT(Plain, "fstat")
LM_WRAP_FSTAT(64, "fstat64")
LM_WRAP_STAT(Plain, "stat")
LM_WRAP_STAT(64, "stat64")
LM_WRAP_FSTATAT(Plain, "fstatat")
LM_WRAP_FSTATAT(64, "fstatat64")
#if defined(__TIMESIZE) && __TIMESIZE == 32
LM_WRAP_FSTAT(64Time64, "__fstat64_time64")
LM_WRAP_STAT(64Time64, "__stat64_time64")
LM_WRAP_FSTATAT(64Time64, "__fstatat64_time64")
#endif

ssize_t realRead(int, void*, std::size_t) LM_REAL("read");
ssize_t wrapRead(int, void*, std::size_t) LM_WRAP("read");
ssize_t wrapRead(int fd, void* buffer, std::size_t size) {
  return recorded("read", fd, [&] { return realRead(fd, buffer, allowed(size)); });
}

ssize_t realWrite(int, const void*, std::size_t) LM_REAL("write");
ssize_t wrapWrite(int, const void*, std::size_t) LM_WRAP("write");
ssize_t wrapWrite(int fd, const void* buffer, std::size_t size) {
  return recorded("write", fd, [&] { return realWrite(fd, buffer, allowed(size)); });
}

// What is closed is not written down, only forgotten: the next that gets the number has another name.
int realClose(int) LM_REAL("close");
int wrapClose(int) LM_WRAP("close");
int wrapClose(int fd) {
  if (current != nullptr) {
    current->closed(fd);
  }
  return realClose(fd);
}

int realClosedir(DIR*) LM_REAL("closedir");
int wrapClosedir(DIR*) LM_WRAP("closedir");
int wrapClosedir(DIR* folder) {
  if (current != nullptr) {
    current->closed(dirfd(folder));
  }
  return realClosedir(folder);
}

int realFsync(int) LM_REAL("fsync");
int wrapFsync(int) LM_WRAP("fsync");
int wrapFsync(int fd) {
  return recorded("fsync", fd, [&] { return realFsync(fd); });
}

int realFlock(int, int) LM_REAL("flock");
int wrapFlock(int, int) LM_WRAP("flock");
int wrapFlock(int fd, int operation) {
  return recorded("flock", fd, [&] { return realFlock(fd, operation); });
}

int realFchmod(int, mode_t) LM_REAL("fchmod");
int wrapFchmod(int, mode_t) LM_WRAP("fchmod");
int wrapFchmod(int fd, mode_t mode) {
  return recorded("fchmod", fd, [&] { return realFchmod(fd, mode); });
}

int realChmod(const char*, mode_t) LM_REAL("chmod");
int wrapChmod(const char*, mode_t) LM_WRAP("chmod");
int wrapChmod(const char* path, mode_t mode) {
  return recorded("chmod", path, [&] { return realChmod(path, mode); });
}

int realMkdir(const char*, mode_t) LM_REAL("mkdir");
int wrapMkdir(const char*, mode_t) LM_WRAP("mkdir");
int wrapMkdir(const char* path, mode_t mode) {
  return recorded("mkdir", path, [&] { return realMkdir(path, mode); });
}

int realRename(const char*, const char*) LM_REAL("rename");
int wrapRename(const char*, const char*) LM_WRAP("rename");
int wrapRename(const char* from, const char* to) {
  return recorded("rename", from, [&] { return realRename(from, to); });
}

int realRenameat(int, const char*, int, const char*) LM_REAL("renameat");
int wrapRenameat(int, const char*, int, const char*) LM_WRAP("renameat");
int wrapRenameat(int fromFolder, const char* from, int toFolder, const char* to) {
  return recorded("renameat", from, [&] { return realRenameat(fromFolder, from, toFolder, to); });
}

int realRenameat2(int, const char*, int, const char*, unsigned) LM_REAL("renameat2");
int wrapRenameat2(int, const char*, int, const char*, unsigned) LM_WRAP("renameat2");
int wrapRenameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  return recorded("renameat2", from, [&] { return realRenameat2(fromFolder, from, toFolder, to, flags); });
}

int realUnlinkat(int, const char*, int) LM_REAL("unlinkat");
int wrapUnlinkat(int, const char*, int) LM_WRAP("unlinkat");
int wrapUnlinkat(int folder, const char* path, int flags) {
  return recorded("unlinkat", path, [&] { return realUnlinkat(folder, path, flags); });
}

int realThreadCreate(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) LM_REAL("pthread_create");
int wrapThreadCreate(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) LM_WRAP("pthread_create");
int wrapThreadCreate(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
  const int result =
      recorded("pthread_create", "", [&] { return realThreadCreate(thread, attributes, body, argument); });
  return result == -1 ? errno : result;  // it returns the error
}

}  // extern "C"
