// SPDX-License-Identifier: Apache-2.0
#include "simulator/BenchSegment.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <system_error>

namespace idl::bench {

void removeObject(const std::string& name) {
  if (::shm_unlink(("/" + name).c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), name + ": cannot be removed");
  }
}

void resizeObject(const std::string& name, std::size_t size) {
  const int file = ::shm_open(("/" + name).c_str(), O_RDWR, 0);
  if (file == -1) {
    throw std::system_error(errno, std::generic_category(), name + ": cannot be opened");
  }
  const int error = ::ftruncate(file, static_cast<off_t>(size)) == 0 ? 0 : errno;
  ::close(file);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), name + ": cannot be resized");
  }
}

std::string garbageOf(std::uint32_t seed, std::size_t size) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random() & 0xFFU);
  }
  return bytes;
}

void dieHere() {
  ::kill(::getpid(), SIGKILL);
  for (;;) {
    ::pause();
  }
}

}  // namespace idl::bench
