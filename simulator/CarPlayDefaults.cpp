// SPDX-License-Identifier: Apache-2.0
#include "simulator/CarPlayDefaults.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace idl::bench {

namespace {

constexpr std::size_t PAYLOAD_OFFSET = 8;

// Little-endian whatever the machine. Offsets count from the start of the segment.
void set(wire::CarPlaySharedMemStruct& table, unsigned width, std::uint32_t value,
         std::initializer_list<unsigned> offsets) {
  for (const unsigned offset : offsets) {
    for (unsigned i = 0; i < width; ++i) {
      const auto byte = static_cast<unsigned char>(value >> (8 * i));
      std::memcpy(reinterpret_cast<unsigned char*>(&table) + offset - PAYLOAD_OFFSET + i, &byte, 1);
    }
  }
}

}  // namespace

wire::CarPlaySharedMemStruct carPlayDefaults() {
  wire::CarPlaySharedMemStruct table = {};
  set(table, 1, 1, {456, 457, 458, 459, 460, 1760, 1761, 1769, 8046});
  set(table, 2, 7000, {8044});
  set(table, 4, 1, {736, 752});
  set(table, 4, 2, {1788, 5232});
  set(table, 4, 10, {452});
  set(table, 4, 100, {740, 744, 748, 756, 760, 764});
  set(table, 4, 149, {1496});
  set(table, 4, 255, {1368, 1376, 1380, 1384, 1412});
  set(table, 4, 44100, {11220});
  set(table, 4, 0xFFFFFFFF, {768, 772, 776, 1764, 5132, 7864});
  table.initialised = 1;
  return table;
}

}  // namespace idl::bench
