// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_TEMPFOLDER_H
#define TESTS_SUPPORT_TEMPFOLDER_H

#include <stdlib.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

/// A folder of a unique name, empty at first and removed with all that it then holds.
class TempFolder {
 public:
  TempFolder() {
    const char* base = std::getenv("TMPDIR");
    // mkdtemp() puts six letters of its own in the place of the X's.
    std::string name = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/lm-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), name);
    }
    mPath = name;
  }

  ~TempFolder() {
    std::error_code ignored;  // what cannot be removed does not change what was tested
    std::filesystem::remove_all(mPath, ignored);
  }

  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return mPath; }

  std::filesystem::path operator/(const std::string& name) const { return mPath / name; }

  /// The bytes of a file; empty when there is none.
  std::string contents(const std::string& name) const {
    std::ifstream file(mPath / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  /// Writes a file in place, with the process's umask.
  void put(const std::string& name, const std::string& bytes) const {
    std::ofstream file(mPath / name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
      throw std::system_error(EIO, std::generic_category(), name);
    }
  }

 private:
  std::filesystem::path mPath;
};

#endif
