// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_RAWSEGMENT_H
#define TESTS_SUPPORT_RAWSEGMENT_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

/// A shared-memory object as bare bytes: a publisher that knows offsets and nothing else. Takes no lock.
class RawSegment {
 public:
  /// Makes the object anew, of `size` bytes that all are `fill`. `name` begins with a slash.
  RawSegment(const std::string& name, std::size_t size, unsigned char fill = 0)
      : mFd(checked(shm_open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0664), name)) {
    resize(size);
    put(0, std::string(size, static_cast<char>(fill)));
  }

  /// Opens what is there; throws when there is nothing.
  explicit RawSegment(const std::string& name) : mFd(checked(shm_open(name.c_str(), O_RDWR, 0), name)) {}

  ~RawSegment() { close(mFd); }

  RawSegment(const RawSegment&) = delete;
  RawSegment& operator=(const RawSegment&) = delete;

  static bool exists(const std::string& name) {
    const int fd = shm_open(name.c_str(), O_RDONLY, 0);
    if (fd == -1) {
      return false;
    }
    close(fd);
    return true;
  }

  /// Takes the name away, if there is one.
  static void remove(const std::string& name) { shm_unlink(name.c_str()); }

  void put(std::size_t offset, const std::string& bytes) {
    const ssize_t count = pwrite(mFd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count != static_cast<ssize_t>(bytes.size())) {
      throw std::system_error(errno, std::generic_category(), "pwrite");
    }
  }

  void put8(std::size_t offset, unsigned value) { put(offset, littleEndian(value, 1)); }
  void put32(std::size_t offset, std::uint32_t value) { put(offset, littleEndian(value, 4)); }
  void put64(std::size_t offset, std::uint64_t value) { put(offset, littleEndian(value, 8)); }

  /// The text and its NUL.
  void putText(std::size_t offset, const std::string& text) { put(offset, text + '\0'); }

  /// Fewer bytes than asked for where the object ends before.
  std::string bytes(std::size_t offset, std::size_t size) const {
    std::string found(size, '\0');
    const ssize_t count = pread(mFd, found.data(), size, static_cast<off_t>(offset));
    if (count < 0) {
      throw std::system_error(errno, std::generic_category(), "pread");
    }
    found.resize(static_cast<std::size_t>(count));
    return found;
  }

  std::string all() const { return bytes(0, size()); }

  unsigned get8(std::size_t offset) const { return static_cast<unsigned char>(bytes(offset, 1).at(0)); }

  std::size_t size() const { return static_cast<std::size_t>(status().st_size); }

  /// The permission bits.
  unsigned mode() const { return static_cast<unsigned>(status().st_mode) & 07777U; }

  void resize(std::size_t size) {
    if (ftruncate(mFd, static_cast<off_t>(size)) != 0) {
      throw std::system_error(errno, std::generic_category(), "ftruncate");
    }
  }

  static std::string littleEndian(std::uint64_t value, unsigned width) {
    std::string bytes;
    for (unsigned i = 0; i < width; ++i) {
      bytes += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    }
    return bytes;
  }

 private:
  static int checked(int fd, const std::string& name) {
    if (fd == -1) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    return fd;
  }

  struct stat status() const {
    struct stat result = {};
    if (fstat(mFd, &result) != 0) {
      throw std::system_error(errno, std::generic_category(), "fstat");
    }
    return result;
  }

  const int mFd;
};

#endif
