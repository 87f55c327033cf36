// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_CARPLAYDEFAULTS_H
#define INTEGRATEDDEVICELIST_CARPLAYDEFAULTS_H

#include <cstddef>
#include <cstdint>

#include "IntegratedDeviceList/WireFormat.h"

namespace idl::wire {

/// A value that a new CarPlay resource begins with. Only the CarPlay service knows what it means.
struct CarPlayDefault {
  unsigned offset;  ///< from the start of the segment
  unsigned width;   ///< bytes
  std::uint32_t value;
};

/// All values of a new resource that are not zero, but for the flag `initialised`.
constexpr CarPlayDefault CARPLAY_DEFAULTS[] = {
    {452, 4, 10},          {456, 1, 1},          {457, 1, 1},    {458, 1, 1},           {459, 1, 1},
    {460, 1, 1},           {736, 4, 1},          {740, 4, 100},  {744, 4, 100},         {748, 4, 100},
    {752, 4, 1},           {756, 4, 100},        {760, 4, 100},  {764, 4, 100},         {768, 4, 0xFFFFFFFF},
    {772, 4, 0xFFFFFFFF},  {776, 4, 0xFFFFFFFF}, {1368, 4, 255}, {1376, 4, 255},        {1380, 4, 255},
    {1384, 4, 255},        {1412, 4, 255},       {1496, 4, 149}, {1760, 1, 1},          {1761, 1, 1},
    {1764, 4, 0xFFFFFFFF}, {1769, 1, 1},         {1788, 4, 2},   {5132, 4, 0xFFFFFFFF}, {5232, 4, 2},
    {7864, 4, 0xFFFFFFFF}, {8044, 2, 7000},      {8046, 1, 1},   {11220, 4, 44100},
};

/// A new resource's payload: no phones, the values above, and the flag `initialised`. Where the flag of an existing
/// resource is 0, the 32-bit word at 5120 of the segment keeps its value and is copied to 5124, and the flag is written
/// last.
inline CarPlaySharedMemStruct carPlayDefaults() {
  constexpr std::size_t PAYLOAD_OFFSET = 8;
  CarPlaySharedMemStruct payload = {};
  auto* const bytes = reinterpret_cast<unsigned char*>(&payload);
  for (const CarPlayDefault& entry : CARPLAY_DEFAULTS) {
    for (unsigned i = 0; i < entry.width; ++i) {
      bytes[entry.offset - PAYLOAD_OFFSET + i] = static_cast<unsigned char>(entry.value >> (8 * i));
    }
  }
  payload.initialised = 1;
  return payload;
}

}  // namespace idl::wire

#endif
