// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_HELPER_H
#define TOOLS_SCENARIO_HELPER_H

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "tools/scenario/Record.h"

namespace idl::tools::scenario {

/// The helper's end of the connection with the bench. In a process that Helper forked.
class BenchEnd {
 public:
  explicit BenchEnd(int fd) : mFd(fd) {}

  /// Becomes readable when there is a request, or the bench has gone.
  int fd() const { return mFd; }

  /// Waits for the next request; nothing when the bench has gone or has closed its end.
  std::optional<Record> receive() const;

  void answer(const Record& record) const;

  /// Answers each request with what `obey` makes of it, or with why it cannot, until the bench closes its end.
  void serve(const std::function<Record(Record&)>& obey) const;

  /// Answers one request in that way.
  void answerOne(Record& request, const std::function<Record(Record&)>& obey) const;

 private:
  const int mFd;
};

/// A process that does what the bench asks of it: a forked copy of this one that runs one function, connected by a
/// socket pair. It ends when the bench closes its end, and so does not outlive this process however that dies.
///
/// Forking takes a process without threads. For one thread.
class Helper {
 public:
  /// `name` is for what trouble is told of. In the new process `body` runs, all descriptors but its connection and
  /// the standard ones being closed; when it returns, the process ends as programs do, with exit().
  /// @throw BenchTrouble when there is no process.
  Helper(std::string name, const std::function<void(const BenchEnd&)>& body);

  /// Kills and reaps it if it still lives.
  ~Helper();

  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  /// Sends a request and waits for the answer.
  /// @throw BenchTrouble when it answers with trouble, ends instead, or does not answer within the watchdog's time.
  Record ask(const Record& request);

  /// Sends a request that ends it, and reaps it. @throw BenchTrouble when it answers, or lives on.
  void askToDie(const Record& request);

  /// Waits for an answer that no request of this end has to come before.
  Record awaitAnswer();

  /// Closes this end, waits for its end and reaps it. @throw BenchTrouble when it lives on, or did not end well.
  void finish();

  void kill();

 private:
  void send(const Record& request);
  std::optional<std::string> receive();
  int reap();
  [[noreturn]] void died();

  const std::string mName;
  pid_t mPid = -1;  // -1 once reaped
  int mFd = -1;
};

}  // namespace idl::tools::scenario

#endif
