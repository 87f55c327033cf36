// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_CHILD_H
#define DEMO_CHILD_H

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "demo/LineBuffer.h"

namespace demo {

/// What keeps the story from being told: a program that does not start, does not answer or says something else.
class Trouble : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One of the demonstration's programs, with pipes to its standard input and from its standard output and error.
///
/// Every wait is under a watchdog. The program does not outlive this object, nor the process: it ends with its input.
class Child {
 public:
  /// Starts `program` out of the folder of this executable; what DEMO_LAUNCHER holds, cut at its blanks, stands before
  /// it (an emulator). `variables` ("NAME=value") are added to its environment.
  /// @throw Trouble when there are no pipes or no process; a program that cannot be started shows as one that ends.
  explicit Child(const std::string& program, const std::vector<std::string>& variables = {});

  /// Kills and reaps it if it still lives.
  ~Child();

  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  const std::string& program() const { return mProgram; }
  pid_t pid() const { return mPid; }

  /// Sends one line. @throw Trouble when it has gone.
  void send(const std::string& line);

  /// Waits for its next line. @throw Trouble when it ends instead, or the watchdog's time is over.
  std::string readLine();

  /// The lines that it has written to standard error and that were not taken yet. Does not wait: what it wrote before
  /// an answer is there with the answer.
  std::vector<std::string> takeLog();

  /// Ends its input, waits for its end and reaps it. @return what waitpid() says.
  /// @throw Trouble when it does not end within the watchdog's time.
  int finish();

  /// Waits for an end that it has brought upon itself, and reaps it. Returns and throws as finish().
  int waitForEnd();

 private:
  void awaitOutput();
  void reap();

  const std::string mProgram;
  pid_t mPid = -1;  // -1 once reaped
  int mStatus = 0;
  int mInput = -1;
  int mOutput = -1;
  int mError = -1;
  bool mEnded = false;  // its standard output is at its end
  LineBuffer mLines;
  LineBuffer mLog;
};

}  // namespace demo

#endif
