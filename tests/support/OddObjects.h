// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_ODDOBJECTS_H
#define TESTS_SUPPORT_ODDOBJECTS_H

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

/// Something that is no table and lies in a table's place.
struct OddObject {
  const char* name;
  /// Makes one at `path`, where nothing is. False where the system does not let it be made.
  bool (*make)(const std::string& path);
};

namespace odd {

/// Where links lead to. Nobody may follow one.
inline std::string target() { return "/dev/shm/lm-link-target"; }

inline bool makeFolder(const std::string& path) { return mkdir(path.c_str(), 0755) == 0; }

inline bool makeFullFolder(const std::string& path) { return makeFolder(path) && makeFolder(path + "/folder"); }

inline bool makePipe(const std::string& path) { return mkfifo(path.c_str(), 0664) == 0; }

inline bool makeSocket(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool made = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return made;
}

inline bool makeLink(const std::string& path) {
  if (access(target().c_str(), F_OK) != 0) {
    std::ofstream(target()) << std::string(20000, 'x');
  }
  return symlink(target().c_str(), path.c_str()) == 0;
}

inline bool makeLinkToNothing(const std::string& path) {
  return symlink("/dev/shm/lm-link-nowhere", path.c_str()) == 0;
}

inline bool makeLinkToItself(const std::string& path) { return symlink(path.c_str(), path.c_str()) == 0; }

inline bool makeDevice(const std::string& path, unsigned minor) {
  if (mknod(path.c_str(), S_IFCHR | 0666, makedev(1, minor)) != 0) {
    return false;
  }
  // A file system may forbid to use what it let be made.
  const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd == -1) {
    unlink(path.c_str());
    return false;
  }
  close(fd);
  return true;
}

inline bool makeNullDevice(const std::string& path) { return makeDevice(path, 3); }

/// It can be mapped and read like a table of zeros.
inline bool makeZeroDevice(const std::string& path) { return makeDevice(path, 5); }

}  // namespace odd

constexpr OddObject ODD_OBJECTS[] = {
    {"Folder", odd::makeFolder},
    {"FullFolder", odd::makeFullFolder},
    {"Pipe", odd::makePipe},
    {"Socket", odd::makeSocket},
    {"Link", odd::makeLink},
    {"LinkToNothing", odd::makeLinkToNothing},
    {"LinkToItself", odd::makeLinkToItself},
    {"NullDevice", odd::makeNullDevice},
    {"ZeroDevice", odd::makeZeroDevice},
};

/// Takes away whatever has the name.
inline void removeOddObject(const std::string& path) {
  std::error_code ignored;  // mostly there is something
  std::filesystem::remove_all(path, ignored);
}

/// Whether the file that links lead to is as it was made, if it was, and the one that a link to nothing names is not
/// there.
inline bool noLinkWasFollowed() {
  if (access("/dev/shm/lm-link-nowhere", F_OK) == 0) {
    return false;
  }
  std::ifstream file(odd::target(), std::ios::binary);
  if (!file) {
    return true;
  }
  const std::string contents{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return contents == std::string(20000, 'x');
}

#endif
