// SPDX-License-Identifier: Apache-2.0
// Preloaded into a publisher: ends it with a message where it writes to a table without holding that table's lock. The
// file that WRITES_SEEN names is given a line with the table's name for each write.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "IntegratedDeviceList/WireFormat.h"

namespace {

constexpr char FOLDER[] = "/dev/shm/";
constexpr off_t WORD_OFFSET = 16;  // of the word in the lock's file; 0: free

void demandLock(int fd) {
  char path[256] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  if (::readlink(link.c_str(), path, sizeof(path) - 1) < 0 || std::string(path).find(FOLDER) != 0) {
    return;
  }
  const std::string name = std::string(path).substr(sizeof(FOLDER) - 1);
  if (name != idl::wire::BT_SEGMENT && name != idl::wire::CARPLAY_SEGMENT && name != idl::wire::AAP_SEGMENT) {
    return;  // the port's own files
  }
  if (std::FILE* const seen = std::fopen(std::getenv("WRITES_SEEN"), "a")) {
    std::fprintf(seen, "%s\n", name.c_str());
    std::fclose(seen);
  }
  std::uint32_t word = 0;
  const int lock = ::open((FOLDER + ("LmLock." + name)).c_str(), O_RDONLY | O_CLOEXEC);
  if (lock < 0 || ::pread(lock, &word, sizeof(word), WORD_OFFSET) != sizeof(word) || word == 0) {
    std::fprintf(stderr, "%s is written without its lock\n", name.c_str());
    ::_exit(99);
  }
  ::close(lock);
}

}  // namespace

// Compiled with 64-bit offsets, as the publishers are, this is called pwrite64.
extern "C" __attribute__((visibility("default"))) ssize_t pwrite(int fd, const void* bytes, std::size_t size,
                                                                 off_t offset) {
  demandLock(fd);
  using Write = ssize_t (*)(int, const void*, std::size_t, off_t);
  static const auto next = reinterpret_cast<Write>(::dlsym(RTLD_NEXT, "pwrite64"));
  return next(fd, bytes, size, offset);
}
