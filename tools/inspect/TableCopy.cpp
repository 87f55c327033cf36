// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/TableCopy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tools/inspect/Descriptor.h"
#include "tools/inspect/LockVisit.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds LOCK_PATIENCE{100};
constexpr std::chrono::milliseconds AGREEMENT_PATIENCE{100};
constexpr std::chrono::microseconds PAUSE{500};

std::string readBytes(int descriptor, std::size_t size, int& error) {
  std::string bytes(size, '\0');
  bytes.resize(readAt(descriptor, 0, bytes.data(), size));
  error = errno;
  return bytes;
}

// A writer that does not hold the lock, or that we cannot wait for, is caught by a second look.
void readUntilTwoAgree(int descriptor, std::size_t size, TableCopy& copy) {
  const auto end = std::chrono::steady_clock::now() + AGREEMENT_PATIENCE;
  copy.bytes = readBytes(descriptor, size, copy.error);
  for (;;) {
    std::this_thread::sleep_for(PAUSE);
    std::string again = readBytes(descriptor, size, copy.error);
    copy.isSettled = again == copy.bytes;
    copy.bytes = std::move(again);
    if (copy.isSettled || std::chrono::steady_clock::now() >= end) {
      return;
    }
  }
}

// What the descriptor is; false when there is nothing to read.
bool describe(const Descriptor& file, TableCopy& copy) {
  if (!file.isOpen()) {
    copy.error = errno;
    const bool isOdd = copy.error == ELOOP || copy.error == EISDIR || copy.error == ENXIO;
    copy.state = copy.error == ENOENT ? TableCopy::State::ABSENT
                 : isOdd              ? TableCopy::State::NOT_A_TABLE
                                      : TableCopy::State::UNREADABLE;
    return false;
  }
  struct stat status = {};
  if (fstat(file.get(), &status) != 0) {
    copy.error = errno;
    copy.state = TableCopy::State::UNREADABLE;
    return false;
  }
  copy.objectSize = static_cast<std::uint64_t>(status.st_size);
  copy.mode = status.st_mode & 07777;
  copy.owner = status.st_uid;
  copy.group = status.st_gid;
  copy.state = S_ISREG(status.st_mode) ? TableCopy::State::READ : TableCopy::State::NOT_A_TABLE;
  return copy.isRead();
}

int openTable(const Source& source) {
  return shm_open((std::string("/") + source.segment).c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW, 0);
}

// Owns the descriptor, which may be none, with errno set.
TableCopy copyOnce(int descriptor, const Source& source) {
  TableCopy copy;
  const Descriptor file(descriptor);
  if (!describe(file, copy)) {
    return copy;
  }
  copy.bytes = readBytes(file.get(), source.segmentSize, copy.error);
  if (copy.error != 0) {
    copy.state = TableCopy::State::UNREADABLE;
  }
  return copy;
}

}  // namespace

TableCopy copyTable(const Source& source) {
  TableCopy copy;
  const Descriptor file(openTable(source));
  if (!describe(file, copy)) {
    return copy;
  }
  {
    const LockVisit lock(source.segment, LOCK_PATIENCE);
    copy.wasLocked = lock.isHeld();
    if (copy.wasLocked) {
      copy.bytes = readBytes(file.get(), source.segmentSize, copy.error);
    }
  }
  if (!copy.wasLocked) {
    readUntilTwoAgree(file.get(), source.segmentSize, copy);
  }
  if (copy.error != 0) {
    copy.state = TableCopy::State::UNREADABLE;
  }
  return copy;
}

TableCopy copyTableAtOnce(const Source& source) { return copyOnce(openTable(source), source); }

TableCopy copyFile(const Source& source, const std::string& path) {
  return copyOnce(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), source);
}

}  // namespace idl::tools
