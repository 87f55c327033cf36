// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_IDLCTL_INVOCATION_H
#define TESTS_IDLCTL_INVOCATION_H

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tools/idlctl/Idlctl.h"

/// One run of idlctl in this process.
class Invocation {
 public:
  explicit Invocation(const std::vector<std::string>& arguments)
      : mExit(idl::tools::idlctl(arguments, {mOut, mErr, false})) {}

  int exitCode() const { return mExit; }
  std::string out() const { return mOut.str(); }
  std::string err() const { return mErr.str(); }

  /// Of an invocation with --json.
  nlohmann::json json() const { return nlohmann::json::parse(out()); }

 private:
  std::ostringstream mOut;
  std::ostringstream mErr;
  const int mExit;
};

#endif
