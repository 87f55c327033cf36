// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_IDLCTL_FOLDERPICTURE_H
#define TESTS_IDLCTL_FOLDERPICTURE_H

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <system_error>

/// What is in a folder and below, and the folder itself: of each name all that stat() tells but for when it was read
/// last, and of a file the contents, of a link where it leads. By the times, what was changed and changed back differs
/// as well.
inline std::map<std::string, std::string> pictureOf(const std::string& folder) {
  std::map<std::string, std::string> picture;
  const auto add = [&](const std::string& path) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    std::string& text = picture[path];
    for (const long long number :
         {static_cast<long long>(status.st_mode), static_cast<long long>(status.st_uid),
          static_cast<long long>(status.st_gid), static_cast<long long>(status.st_ino),
          static_cast<long long>(status.st_nlink), static_cast<long long>(status.st_size),
          static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
          static_cast<long long>(status.st_ctim.tv_sec), static_cast<long long>(status.st_ctim.tv_nsec)}) {
      text += std::to_string(number) + ' ';
    }
    if (S_ISREG(status.st_mode)) {
      std::ifstream file(path, std::ios::binary);
      text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    } else if (S_ISLNK(status.st_mode)) {
      std::error_code ignored;  // a link that leads nowhere is one as well
      text += std::filesystem::read_symlink(path, ignored).string();
    }
  };
  add(folder);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    add(entry.path().string());
  }
  return picture;
}

#endif
