// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SUPPORT_SEGMENTFORMAT_H
#define TESTS_SUPPORT_SEGMENTFORMAT_H

#include <cstddef>

class AapDeviceListSharedMem;
class BtPairedDeviceListSharedMem;
class CarPlayInfoSharedMem;
class FuncInfoSharedMem;

/// What is known of a segment in numbers, which are written down here and taken from nowhere.
struct SegmentFormat {
  const char* name;    // with its slash
  std::size_t offset;  // of the payload
  std::size_t data;    // bytes of the payload

  constexpr std::size_t size() const { return offset + data; }
};

template <class SegmentClass>
constexpr SegmentFormat formatOf();

template <>
constexpr SegmentFormat formatOf<FuncInfoSharedMem>() {
  return {"/FuncInfo", 4, 2104};
}

template <>
constexpr SegmentFormat formatOf<BtPairedDeviceListSharedMem>() {
  return {"/BtPairedDeviceList", 4, 1120};
}

template <>
constexpr SegmentFormat formatOf<AapDeviceListSharedMem>() {
  return {"/AapDeviceList", 4, 6288};
}

template <>
constexpr SegmentFormat formatOf<CarPlayInfoSharedMem>() {
  return {"/LmSCarplayResource", 8, 13728};
}

#endif
