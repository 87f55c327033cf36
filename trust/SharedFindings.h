// SPDX-License-Identifier: Apache-2.0
#ifndef TRUST_SHAREDFINDINGS_H
#define TRUST_SHAREDFINDINGS_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include "framework/SharedMemoryTesting.h"
#include "trust/Campaign.h"

/// What children find wrong, for the parent to tell the campaign: the count of it and the first texts. It lies in
/// memory that they share with their parent, so what a child has found outlives it.
class SharedFindings {
 public:
  void add(const std::string& text) const {
    const std::uint32_t index = mBoard->count++;
    if (index < TEXTS) {
      std::snprintf(mBoard->texts[index], sizeof mBoard->texts[index], "%s", text.c_str());
    }
  }

  std::uint32_t count() const { return mBoard->count; }

  /// Tells what has come since the last call. The parent's.
  void tell(Campaign& campaign) {
    const std::uint32_t found = count();
    for (; mTold < found; ++mTold) {
      campaign.violation(mTold < TEXTS ? mBoard->texts[mTold] : "one more");
    }
  }

 private:
  static constexpr std::uint32_t TEXTS = 20;

  struct Board {
    std::atomic<std::uint32_t> count{0};
    char texts[TEXTS][200] = {};
  };

  const SharedValue<Board> mBoard;
  std::uint32_t mTold = 0;
};

#endif
