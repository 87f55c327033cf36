// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_SEGMENTTEST_H
#define TESTS_SUPPORT_SEGMENTTEST_H

#include <dirent.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

/// A test that begins and ends without any of the system's segments, and without "/LmTest". To be run in a
/// shared-memory folder of its own (scripts/private-shm).
class SegmentTest : public ::testing::Test {
 protected:
  SegmentTest() { removeAll(); }
  ~SegmentTest() override { removeAll(); }

  /// How many mappings of the object this process has.
  static std::size_t mappings(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    std::size_t found = 0;
    for (std::string line; std::getline(maps, line);) {
      if (line.find("/dev/shm" + name) != std::string::npos) {
        ++found;
      }
    }
    return found;
  }

  /// How many descriptors of the object this process has.
  static std::size_t descriptors(const std::string& name) {
    std::size_t found = 0;
    DIR* folder = opendir("/proc/self/fd");
    if (folder == nullptr) {
      throw std::system_error(errno, std::generic_category(), "/proc/self/fd");
    }
    while (const dirent* entry = readdir(folder)) {
      char target[PATH_MAX] = "";
      const std::string link = std::string("/proc/self/fd/") + static_cast<const char*>(entry->d_name);
      const ssize_t length = readlink(link.c_str(), target, sizeof target);
      if (length > 0 && std::string(target, static_cast<std::size_t>(length)) == "/dev/shm" + name) {
        ++found;
      }
    }
    closedir(folder);
    return found;
  }

 private:
  static void removeAll() {
    for (const char* name : {"BtPairedDeviceList", "AapDeviceList", "LmSCarplayResource", "FuncInfo", "LmTest"}) {
      std::error_code ignored;  // mostly there is none
      std::filesystem::remove_all(std::string("/dev/shm/") + name, ignored);
    }
  }
};

#endif
