// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_KEYEDHASH_H
#define TOOLS_RECORDING_KEYEDHASH_H

#include <cstdint>
#include <string_view>

namespace idl::tools::recording {

/// Numbers that follow from a key of 16 bytes, a word and some bytes, and that nobody foresees who does not have the
/// key: SipHash-2-4 of these, and what SplitMix64 makes of it.
class KeyedHash {
 public:
  KeyedHash(std::string_view key, std::string_view word, std::string_view bytes);

  /// 64 bits; another number each time.
  std::uint64_t next();

 private:
  std::uint64_t mState;
};

/// SipHash-2-4, as its authors define it.
std::uint64_t sipHash(const std::uint64_t (&keys)[2], std::string_view bytes);

}  // namespace idl::tools::recording

#endif
