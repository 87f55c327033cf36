// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SUFFIXRECORD_H
#define INTEGRATEDDEVICELIST_PRIVATE_SUFFIXRECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

/// One record of the system-data file "IDLSuffix.ini": the number of one paired phone.
///
///     0      inUse     1: the record holds a phone; 0: it does not, and no later one does
///     1      btid
///     2      name      260 bytes, NUL-terminated: at most 259 bytes of text, zeros behind
///     262    suffix
struct SuffixRecord {
  std::uint8_t inUse;
  std::uint8_t btid;
  char name[260];
  std::uint8_t suffix;
};
static_assert(sizeof(SuffixRecord) == 263 && alignof(SuffixRecord) == 1);
static_assert(offsetof(SuffixRecord, btid) == 1 && offsetof(SuffixRecord, name) == 2 &&
              offsetof(SuffixRecord, suffix) == 262);
static_assert(std::is_trivial_v<SuffixRecord> && std::is_standard_layout_v<SuffixRecord>);

/// The file: ten records, nothing before or behind them.
using SuffixFileImage = std::array<SuffixRecord, 10>;
static_assert(sizeof(SuffixFileImage) == 2630);

#endif
