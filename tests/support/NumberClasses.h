// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_NUMBERCLASSES_H
#define TESTS_SUPPORT_NUMBERCLASSES_H

#include <cstdint>
#include <set>

/// A 32-bit number of every class that a reader could take wrongly: each bit alone and alone missing, each value of
/// each byte with zeros and with ones around it, and the ends of the signed and the unsigned range.
inline std::set<std::uint32_t> numberClasses() {
  std::set<std::uint32_t> numbers = {0, 1, 0x7FFFFFFE, 0x7FFFFFFF, 0x80000000, 0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
  for (unsigned bit = 0; bit < 32; ++bit) {
    numbers.insert(std::uint32_t{1} << bit);
    numbers.insert(~(std::uint32_t{1} << bit));
  }
  for (unsigned shift = 0; shift < 32; shift += 8) {
    for (std::uint32_t byte = 0; byte <= 255; ++byte) {
      numbers.insert(byte << shift);
      numbers.insert(~(byte << shift));
    }
  }
  return numbers;
}

#endif
