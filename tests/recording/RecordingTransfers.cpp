// SPDX-License-Identifier: Apache-2.0
// pread, pwrite and shm_open of the objects linked into the program, which the linker sends here.
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "recording/FailingShmOpen.h"
#include "recording/Recorder.h"

namespace {

int shmOpenError = 0;  // 0: it is not to fail

}  // namespace

FailingShmOpen::FailingShmOpen(int error) { shmOpenError = error; }

FailingShmOpen::~FailingShmOpen() { shmOpenError = 0; }

// Visible, because libraries that refer to a wrapped symbol make the linker look at them; they keep the C library's.
#define LM_WRAP_TRANSFER(suffix, symbol, name, Buffer, Offset)                                                         \
  ssize_t real##suffix(int, Buffer, std::size_t, Offset) asm("__real_" symbol);                                        \
  ssize_t wrap##suffix(int, Buffer, std::size_t, Offset) asm("__wrap_" symbol) __attribute__((visibility("default"))); \
  ssize_t wrap##suffix(int fd, Buffer buffer, std::size_t size, Offset offset) {                                       \
    Recorder::transfer(name, fd, size, static_cast<unsigned long long>(offset));                                       \
    return real##suffix(fd, buffer, size, offset);                                                                     \
  }

extern "C" {

LM_WRAP_TRANSFER(PreadPlain, "pread", "pread", void*, long)
LM_WRAP_TRANSFER(Pread64, "pread64", "pread", void*, std::int64_t)
LM_WRAP_TRANSFER(PwritePlain, "pwrite", "pwrite", const void*, long)
LM_WRAP_TRANSFER(Pwrite64, "pwrite64", "pwrite", const void*, std::int64_t)

int realShmOpen(const char*, int, mode_t) asm("__real_shm_open");
int wrapShmOpen(const char*, int, mode_t) asm("__wrap_shm_open") __attribute__((visibility("default")));
int wrapShmOpen(const char* name, int flags, mode_t mode) {
  if (shmOpenError == 0) {
    return realShmOpen(name, flags, mode);
  }
  errno = shmOpenError;
  return -1;
}

}  // extern "C"
