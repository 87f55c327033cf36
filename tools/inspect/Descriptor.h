// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_DESCRIPTOR_H
#define TOOLS_INSPECT_DESCRIPTOR_H

#include <unistd.h>

#include <cstddef>

#include "LmFramework/posix/SystemCall.h"

namespace idl::tools {

/// Owns a file descriptor, or none.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : mDescriptor(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (isOpen()) {
      ::close(mDescriptor);
    }
  }

  bool isOpen() const { return mDescriptor != -1; }
  int get() const { return mDescriptor; }

 private:
  const int mDescriptor;
};

/// Copies `size` bytes at `offset`, or as many as there are.
/// @return how many; after an error those before it, with errno set, which is 0 otherwise.
inline std::size_t readAt(int descriptor, std::size_t offset, void* bytes, std::size_t size) {
  std::size_t done = 0;
  errno = 0;
  while (done < size) {
    const ssize_t count = retryInterrupted([&] {
      return ::pread(descriptor, static_cast<char*>(bytes) + done, size - done, static_cast<off_t>(offset + done));
    });
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

}  // namespace idl::tools

#endif
