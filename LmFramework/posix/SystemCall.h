// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_SYSTEMCALL_H
#define LMFRAMEWORK_POSIX_SYSTEMCALL_H

#include <string.h>

#include <cerrno>

/// Makes a system call again for as long as a signal interrupts it.
template <class Call>
auto retryInterrupted(const Call& call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) {
      return result;
    }
  }
}

/// The text of an error number, for a log line; any thread may make one.
class ErrorText {
 public:
  explicit ErrorText(int error) : mText(strerror_r(error, mBuffer, sizeof mBuffer)) {}
  ErrorText(const ErrorText&) = delete;
  ErrorText& operator=(const ErrorText&) = delete;

  const char* get() const { return mText; }

 private:
  char mBuffer[128];
  const char* const mText;  // in mBuffer, or the C library's own
};

#endif
