// SPDX-License-Identifier: Apache-2.0
#include "SystemCallRecorder.h"

#include <signal.h>
#include <string.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace {

thread_local SystemCallRecorder* current = nullptr;

template <class... Arguments>
std::string text(const char* format, Arguments... arguments) {
  char buffer[200];
  std::snprintf(buffer, sizeof buffer, format, arguments...);
  return buffer;
}

/// Makes the call and writes it down, or only writes it down when it is to fail.
template <class Call>
auto recorded(const char* name, const std::string& arguments, const Call& call) -> decltype(call()) {
  SystemCallRecorder* const recorder = current;
  if (recorder == nullptr) {
    return call();
  }
  recorder->begin();
  using Result = decltype(call());
  const auto failure = static_cast<Result>(-1);
  const int planned = recorder->planned(name);
  Result result = failure;
  errno = planned;
  if (planned == 0) {
    result = call();
  }
  const int error = errno;
  recorder->end();
  recorder->write(name, arguments, result == failure ? error : 0);
  errno = error;
  return result;
}

std::string fdName(int fd) { return current == nullptr ? std::string() : current->nameOf(fd); }

std::size_t allowed(std::size_t size) { return current == nullptr ? size : current->allowed(size); }

}  // namespace

SystemCallRecorder::SystemCallRecorder() { current = this; }

SystemCallRecorder::~SystemCallRecorder() { current = nullptr; }

void SystemCallRecorder::fail(const std::string& name, unsigned occurrence, int error) {
  mPlans[name][mSeen[name] + occurrence].error = error;
}

void SystemCallRecorder::failAll(const std::string& name, int error) { mAlways[name] = error; }

void SystemCallRecorder::shorten(const std::string& name, unsigned occurrence, std::size_t count) {
  mPlans[name][mSeen[name] + occurrence].count = count;
}

std::vector<std::string> SystemCallRecorder::take() {
  std::vector<std::string> calls;
  calls.swap(mCalls);
  return calls;
}

SystemCallRecorder::Pause::Pause() : mPaused(current) { current = nullptr; }

SystemCallRecorder::Pause::~Pause() { current = mPaused; }

void SystemCallRecorder::begin() {
  if (++mCount == mKillBefore) {
    raise(SIGKILL);
  }
}

void SystemCallRecorder::end() const {
  if (mCount == mKillAfter) {
    raise(SIGKILL);
  }
}

int SystemCallRecorder::planned(const std::string& name) {
  const Plan plan = mPlans[name][++mSeen[name]];
  mAllowed = plan.count;
  const auto always = mAlways.find(name);
  return always != mAlways.end() ? always->second : plan.error;
}

std::size_t SystemCallRecorder::allowed(std::size_t size) const { return std::min(size, mAllowed); }

void SystemCallRecorder::write(const std::string& name, const std::string& arguments, int error) {
  mCalls.push_back(name + arguments + (error != 0 ? std::string(" -> ") + strerrorname_np(error) : std::string()));
}

std::string SystemCallRecorder::nameOf(int fd) const { return fd == mFd && fd != -1 ? "fd" : std::to_string(fd); }

// The linker sends each call X to __wrap_X, and gives X itself the name __real_X. C libraries have several symbols for
// one call; which of them the objects use depends on the machine and on the width of its file offsets.

#define LM_REAL(symbol) asm("__real_" symbol)
// Visible, because libraries that refer to a wrapped symbol make the linker look at them; they keep the C library's.
#define LM_WRAP(symbol) asm("__wrap_" symbol) __attribute__((visibility("default")))

extern "C" {

int realShmOpen(const char*, int, mode_t) LM_REAL("shm_open");
int wrapShmOpen(const char*, int, mode_t) LM_WRAP("shm_open");
int wrapShmOpen(const char* name, int flags, mode_t mode) {
  const int fd =
      recorded("shm_open", text(" %s 0x%x 0%o", name, static_cast<unsigned>(flags), static_cast<unsigned>(mode)),
               [&] { return realShmOpen(name, flags, mode); });
  if (current != nullptr) {
    current->opened(fd);
  }
  return fd;
}

int realFchmod(int, mode_t) LM_REAL("fchmod");
int wrapFchmod(int, mode_t) LM_WRAP("fchmod");
int wrapFchmod(int fd, mode_t mode) {
  return recorded("fchmod", text(" %s 0%o", fdName(fd).c_str(), static_cast<unsigned>(mode)),
                  [&] { return realFchmod(fd, mode); });
}

int realClose(int) LM_REAL("close");
int wrapClose(int) LM_WRAP("close");
int wrapClose(int fd) {
  return recorded("close", " " + fdName(fd), [&] { return realClose(fd); });
}

int realMunmap(void*, std::size_t) LM_REAL("munmap");
int wrapMunmap(void*, std::size_t) LM_WRAP("munmap");
int wrapMunmap(void* address, std::size_t size) {
  return recorded("munmap", " " + std::to_string(size), [&] { return realMunmap(address, size); });
}

#define LM_WRAP_FTRUNCATE(suffix, symbol, Offset)                               \
  int realFtruncate##suffix(int, Offset) LM_REAL(symbol);                       \
  int wrapFtruncate##suffix(int, Offset) LM_WRAP(symbol);                       \
  int wrapFtruncate##suffix(int fd, Offset size) {                              \
    return recorded("ftruncate", " " + fdName(fd) + " " + std::to_string(size), \
                    [&] { return realFtruncate##suffix(fd, size); });           \
  }

#define LM_WRAP_MMAP(suffix, symbol, Offset)                                                                     \
  void* realMmap##suffix(void*, std::size_t, int, int, int, Offset) LM_REAL(symbol);                             \
  void* wrapMmap##suffix(void*, std::size_t, int, int, int, Offset) LM_WRAP(symbol);                             \
  void* wrapMmap##suffix(void* address, std::size_t size, int prot, int flags, int fd, Offset offset) {          \
    const std::string arguments =                                                                                \
        (address == nullptr ? " " : " at ") + std::to_string(size) +                                             \
        text(" prot=0x%x flags=0x%x ", static_cast<unsigned>(prot), static_cast<unsigned>(flags)) + fdName(fd) + \
        " offset=" + std::to_string(offset);                                                                     \
    return reinterpret_cast<void*>(recorded("mmap", arguments, [&] {                                             \
      return reinterpret_cast<std::intptr_t>(realMmap##suffix(address, size, prot, flags, fd, offset));          \
    }));                                                                                                         \
  }

#define LM_WRAP_FSTAT(suffix, symbol)                                                          \
  int realFstat##suffix(int, void*) LM_REAL(symbol);                                           \
  int wrapFstat##suffix(int, void*) LM_WRAP(symbol);                                           \
  int wrapFstat##suffix(int fd, void* status) {                                                \
    return recorded("fstat", " " + fdName(fd), [&] { return realFstat##suffix(fd, status); }); \
  }

#define LM_WRAP_TRANSFER(suffix, symbol, name, Buffer, Offset)                                          \
  ssize_t real##suffix(int, Buffer, std::size_t, Offset) LM_REAL(symbol);                               \
  ssize_t wrap##suffix(int, Buffer, std::size_t, Offset) LM_WRAP(symbol);                               \
  ssize_t wrap##suffix(int fd, Buffer buffer, std::size_t size, Offset offset) {                        \
    return recorded(name, " " + fdName(fd) + " " + std::to_string(size) + "@" + std::to_string(offset), \
                    [&] { return real##suffix(fd, buffer, allowed(size), offset); });                   \
  }

LM_WRAP_FTRUNCATE(Plain, "ftruncate", long)
LM_WRAP_FTRUNCATE(64, "ftruncate64", std::int64_t)
LM_WRAP_MMAP(Plain, "mmap", long)
LM_WRAP_MMAP(64, "mmap64", std::int64_t)
LM_WRAP_FSTAT(Plain, "fstat")
LM_WRAP_FSTAT(64, "fstat64")
#if defined(__TIMESIZE) && __TIMESIZE == 32
LM_WRAP_FSTAT(64Time64, "__fstat64_time64")
#endif
LM_WRAP_TRANSFER(PreadPlain, "pread", "pread", void*, long)
LM_WRAP_TRANSFER(Pread64, "pread64", "pread", void*, std::int64_t)
LM_WRAP_TRANSFER(PwritePlain, "pwrite", "pwrite", const void*, long)
LM_WRAP_TRANSFER(Pwrite64, "pwrite64", "pwrite", const void*, std::int64_t)

}  // extern "C"
