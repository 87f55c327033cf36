// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_RECORDING_FAILINGSHMOPEN_H
#define TESTS_RECORDING_FAILINGSHMOPEN_H

/// While one lives, shm_open of the objects linked into the program fails with that error number.
class FailingShmOpen {
 public:
  explicit FailingShmOpen(int error);
  ~FailingShmOpen();
  FailingShmOpen(const FailingShmOpen&) = delete;
  FailingShmOpen& operator=(const FailingShmOpen&) = delete;
};

#endif
