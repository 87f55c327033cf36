// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/KeyedHash.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace idl::tools::recording {

namespace {

constexpr std::uint64_t rotated(std::uint64_t value, unsigned bits) { return value << bits | value >> (64U - bits); }

struct State {
  std::uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1;
    v1 = rotated(v1, 13) ^ v0;
    v0 = rotated(v0, 32);
    v2 += v3;
    v3 = rotated(v3, 16) ^ v2;
    v0 += v3;
    v3 = rotated(v3, 21) ^ v0;
    v2 += v1;
    v1 = rotated(v1, 17) ^ v2;
    v2 = rotated(v2, 32);
  }

  void take(std::uint64_t word) {
    v3 ^= word;
    round();
    round();
    v0 ^= word;
  }
};

}  // namespace

KeyedHash::KeyedHash(std::string_view key, std::string_view word, std::string_view bytes) {
  std::uint64_t keys[2] = {};
  std::memcpy(keys, key.data(), std::min(key.size(), sizeof(keys)));
  std::string text(word);
  text += '\0';
  text += bytes;
  mState = sipHash(keys, text);
}

std::uint64_t KeyedHash::next() {
  mState += 0x9e3779b97f4a7c15;
  std::uint64_t mixed = (mState ^ mState >> 30U) * 0xbf58476d1ce4e5b9;
  mixed = (mixed ^ mixed >> 27U) * 0x94d049bb133111eb;
  return mixed ^ mixed >> 31U;
}

std::uint64_t sipHash(const std::uint64_t (&keys)[2], std::string_view bytes) {
  State state = {keys[0] ^ 0x736f6d6570736575, keys[1] ^ 0x646f72616e646f6d, keys[0] ^ 0x6c7967656e657261,
                 keys[1] ^ 0x7465646279746573};
  std::uint64_t word = 0;
  std::size_t at = 0;
  for (; at + sizeof(word) <= bytes.size(); at += sizeof(word)) {
    std::memcpy(&word, bytes.data() + at, sizeof(word));
    state.take(word);
  }
  word = std::uint64_t{bytes.size()} << 56U;
  for (unsigned k = 0; at + k < bytes.size(); ++k) {
    word |= std::uint64_t{static_cast<unsigned char>(bytes[at + k])} << 8U * k;
  }
  state.take(word);
  state.v2 ^= 0xff;
  for (int k = 0; k < 4; ++k) {
    state.round();
  }
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace idl::tools::recording
