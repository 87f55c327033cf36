// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_COMPLY_EAR_H
#define TOOLS_COMPLY_EAR_H

#include <cstdint>

#include "LmFramework/posix/NotifierRing.h"

namespace idl::tools::comply {

/// Counts the notifications of one id, without making or changing what they go through. For one thread.
class Ear {
 public:
  explicit Ear(unsigned id) : mId(id) {}

  /// Takes what has come since the last call. @return how many there were since the first one
  std::uint64_t listen();

  /// Whether none can have been missed: false when they come faster than this listens, and where nobody may listen.
  bool isSure() const { return mIsSure; }

 private:
  bool open();

  const unsigned mId;
  NotifierRing mRing;
  bool mHasListened = false;
  bool mIsSure = true;
  NotifierRing::Position mNext;
  std::uint64_t mCount = 0;
};

}  // namespace idl::tools::comply

#endif
