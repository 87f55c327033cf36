// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_FLOORS_H
#define BENCH_FLOORS_H

#include <vector>

#include "bench/Phones.h"

/// What cannot be done without, and nothing else: the least that a list read or a refresh may cost.
namespace idl::cost {

/// Ways to copy a list over another one of the same length. The fastest one is the floor.
enum class Copying {
  ASSIGNED,         ///< the records' own assignment
  INLINE_BYTES,     ///< texts assigned, all that lies between and behind them as bytes of a length that is known
  CALLED_BYTES,     ///< the same by calls of memcpy()
  TEXTS_IN_PLACE,   ///< the same, and texts of the same length are overwritten in place
  FIELDS_IN_PLACE,  ///< the header's fields one by one, texts in place, the source records by one call of memcpy()
  CHUNKS            ///< the same without calls: 64 bytes at a time, which the compiler makes moves of
};

constexpr Copying COPYINGS[] = {Copying::ASSIGNED,       Copying::INLINE_BYTES,    Copying::CALLED_BYTES,
                                Copying::TEXTS_IN_PLACE, Copying::FIELDS_IN_PLACE, Copying::CHUNKS};

const char* nameOf(Copying copying);

/// `to` has as many records as `from`.
void copyList(Copying copying, const std::vector<IntegratedDevice>& from, std::vector<IntegratedDevice>& to);

/// The bytes of as many records, texts and all, as though they were bytes: no list comes of it.
void copyBytes(const std::vector<IntegratedDevice>& from, std::vector<unsigned char>& to);

/// One source's table as a reader has it: mapped, with its lock.
class Source {
 public:
  virtual ~Source() = default;

  /// Copies the occupied slots out of the mapping, without a lock.
  virtual void copySlots() = 0;

  /// Takes the lock as often as a refresh of this source has to, and copies what it has to out of the table, guarded as
  /// the library guards it against a table that is cut short.
  virtual void read() = 0;

  static Source& of(DeviceType source);
};

}  // namespace idl::cost

#endif
