// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_CAPTUREDSTDERR_H
#define TESTS_SUPPORT_CAPTUREDSTDERR_H

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

/// Catches what this process and its children write to descriptor 2 while it lives.
class CapturedStdErr {
 public:
  CapturedStdErr() : mFile(std::tmpfile()), mSaved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    if (mFile == nullptr || mSaved < 0 || dup2(fileno(mFile), STDERR_FILENO) < 0) {
      throw std::system_error(errno, std::generic_category(), "standard error cannot be caught");
    }
  }

  ~CapturedStdErr() {
    dup2(mSaved, STDERR_FILENO);
    close(mSaved);
    std::fclose(mFile);
  }

  CapturedStdErr(const CapturedStdErr&) = delete;
  CapturedStdErr& operator=(const CapturedStdErr&) = delete;

  /// All of it so far.
  std::string text() const {
    std::string all;
    char part[4096];
    for (;;) {
      const ssize_t got = pread(fileno(mFile), part, sizeof part, static_cast<off_t>(all.size()));
      if (got <= 0) {
        return all;
      }
      all.append(part, static_cast<std::size_t>(got));
    }
  }

  std::vector<std::string> lines() const {
    std::istringstream stream(text());
    std::vector<std::string> found;
    for (std::string line; std::getline(stream, line);) {
      found.push_back(line);
    }
    return found;
  }

 private:
  std::FILE* const mFile;
  const int mSaved;
};

#endif
