// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_IDLCTL_FOLDERPICTURE_H
#define TESTS_IDLCTL_FOLDERPICTURE_H

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

/// What is in a folder and below: of each name the mode, the owner and, of a file, the contents.
inline std::map<std::string, std::string> pictureOf(const std::string& folder) {
  std::map<std::string, std::string> picture;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    struct stat status = {};
    lstat(entry.path().c_str(), &status);
    std::string& text = picture[entry.path().string()];
    text = std::to_string(status.st_mode) + ' ' + std::to_string(status.st_uid) + ' ' + std::to_string(status.st_gid) +
           ' ' + std::to_string(status.st_ino) + '\n';
    if (S_ISREG(status.st_mode)) {
      std::ifstream file(entry.path(), std::ios::binary);
      text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
  }
  return picture;
}

#endif
