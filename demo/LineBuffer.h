// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_LINEBUFFER_H
#define DEMO_LINEBUFFER_H

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

namespace demo {

/// Lines out of a pipe that is waited for with poll(), where a buffering stream would hide what has already come.
class LineBuffer {
 public:
  /// Takes what `fd` holds, after poll() has reported it. @return false at the end of the input or on an error.
  bool fill(int fd) {
    char bytes[4096];
    ssize_t count = 0;
    do {
      count = ::read(fd, bytes, sizeof(bytes));
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
      return false;
    }
    mText.append(bytes, static_cast<std::size_t>(count));
    return true;
  }

  /// The next complete line, without its end.
  std::optional<std::string> take() {
    const std::size_t end = mText.find('\n');
    if (end == std::string::npos) {
      return std::nullopt;
    }
    std::string line = mText.substr(0, end);
    mText.erase(0, end + 1);
    return line;
  }

 private:
  std::string mText;
};

}  // namespace demo

#endif
