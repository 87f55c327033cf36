// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_FRAMEWORK_SHAREDMEMORYTESTING_H
#define TESTS_FRAMEWORK_SHAREDMEMORYTESTING_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <system_error>

/// A value that this process and the children it forks have in common.
template <class T>
class SharedValue {
 public:
  SharedValue() {
    if (mMemory == MAP_FAILED) {
      throw std::system_error(errno, std::generic_category(), "mmap");
    }
    mValue = new (mMemory) T();
  }
  ~SharedValue() { munmap(mMemory, sizeof(T)); }
  SharedValue(const SharedValue&) = delete;
  SharedValue& operator=(const SharedValue&) = delete;

  T& operator*() const { return *mValue; }
  T* operator->() const { return mValue; }

 private:
  void* const mMemory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  T* mValue;
};

inline void pauseFor(std::chrono::nanoseconds time) {
  const timespec pause = {static_cast<time_t>(time.count() / 1000000000), static_cast<long>(time.count() % 1000000000)};
  nanosleep(&pause, nullptr);
}

/// Waits for what another process brings about; false when the watchdog's time is over first.
template <class Condition>
bool eventually(const Condition& condition, std::chrono::milliseconds watchdog = std::chrono::seconds(60)) {
  const auto deadline = std::chrono::steady_clock::now() + watchdog;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    pauseFor(std::chrono::milliseconds(1));
  }
  return true;
}

inline std::filesystem::path sharedPath(const std::string& name) { return "/dev/shm/" + name; }

inline std::string sharedContents(const std::string& name) {
  std::ifstream file(sharedPath(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Overwrites the file from its beginning, in place; what lies behind `bytes` stays.
inline void overwriteShared(const std::string& name, const std::string& bytes) {
  const int descriptor = open(sharedPath(name).c_str(), O_WRONLY | O_CLOEXEC);
  const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), 0);
  close(descriptor);
  if (written != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(EIO, std::generic_category(), name);
  }
}

inline mode_t sharedMode(const std::string& name) {
  struct stat status = {};
  return stat(sharedPath(name).c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// Whether nobody at all holds the lock whose file that is; read from the file, past the class under test.
inline bool lockFileIsFree(const std::string& name) {
  constexpr std::size_t WORD = 16;
  const std::string contents = sharedContents(name);
  return contents.size() >= WORD + 4 && contents.compare(WORD, 4, std::string(4, '\0')) == 0;
}

#endif
