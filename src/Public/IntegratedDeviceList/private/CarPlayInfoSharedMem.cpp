// SPDX-License-Identifier: Apache-2.0
#include "CarPlayInfoSharedMem.h"

#include <array>
#include <cstring>

namespace {

// Offsets below count from the start of the segment.
constexpr std::size_t INITIALISED_OFFSET = 13732;

// The one word that keeps its value when the defaults are written, and the word that becomes its copy.
constexpr std::size_t KEPT_OFFSET = 5120;
constexpr std::size_t KEPT_COPY_OFFSET = 5124;

struct Default {
  unsigned offset;
  unsigned width;  // bytes
  std::uint32_t value;
};

// What the CarPlay service writes into a resource that it creates, beside zeros. Only that service knows what it means.
constexpr Default DEFAULTS[] = {
    {452, 4, 10},          {456, 1, 1},          {457, 1, 1},    {458, 1, 1},           {459, 1, 1},
    {460, 1, 1},           {736, 4, 1},          {740, 4, 100},  {744, 4, 100},         {748, 4, 100},
    {752, 4, 1},           {756, 4, 100},        {760, 4, 100},  {764, 4, 100},         {768, 4, 0xFFFFFFFF},
    {772, 4, 0xFFFFFFFF},  {776, 4, 0xFFFFFFFF}, {1368, 4, 255}, {1376, 4, 255},        {1380, 4, 255},
    {1384, 4, 255},        {1412, 4, 255},       {1496, 4, 149}, {1760, 1, 1},          {1761, 1, 1},
    {1764, 4, 0xFFFFFFFF}, {1769, 1, 1},         {1788, 4, 2},   {5132, 4, 0xFFFFFFFF}, {5232, 4, 2},
    {7864, 4, 0xFFFFFFFF}, {8044, 2, 7000},      {8046, 1, 1},   {11220, 4, 44100},
};

void putLittleEndian(unsigned char* destination, std::uint32_t value, unsigned width) {
  for (unsigned i = 0; i < width; ++i) {
    destination[i] = static_cast<unsigned char>(value >> (8 * i));
  }
}

}  // namespace

CarPlayInfoSharedMem::CarPlayInfoSharedMem()
    : LmSharedMemory(idl::wire::CARPLAY_SEGMENT), notifier(false), observer(this, &CarPlayInfoSharedMem::update) {
  const unsigned ids[] = {idl::wire::CARPLAY_NOTIFICATION_ID};
  notifier.AddObserver(&observer, ids, 1);
  if (data() != nullptr) {
    initialiseDefaults();
  }
}

CarPlayInfoSharedMem::~CarPlayInfoSharedMem() { notifier.RemoveObserver(&observer); }

unsigned CarPlayInfoSharedMem::update(unsigned id, void* data, unsigned size) {
  std::uint32_t value = 0;
  if (id == idl::wire::CARPLAY_NOTIFICATION_ID && size == sizeof(value)) {
    std::memcpy(&value, data, sizeof(value));
    NotifyObserver(value, nullptr, 0, EN_NTF_TYPE_SYNC);
  }
  return 0;
}

// Zeros and defaults first, the flag last: whoever dies in between leaves it to the next to begin anew.
void CarPlayInfoSharedMem::initialiseDefaults() {
  LmSyncGuard guard(*this);
  std::uint8_t initialised = 1;  // nothing is written to a resource too short to have the flag
  read(INITIALISED_OFFSET, &initialised, sizeof(initialised));
  if (initialised != 0) {
    return;
  }
  std::array<unsigned char, INITIALISED_OFFSET> image = {};
  for (const Default& entry : DEFAULTS) {
    putLittleEndian(&image[entry.offset], entry.value, entry.width);
  }
  read(KEPT_OFFSET, &image[KEPT_COPY_OFFSET], sizeof(std::uint32_t));
  if (write(DATA_OFFSET, &image[DATA_OFFSET], KEPT_OFFSET - DATA_OFFSET) &&
      write(KEPT_COPY_OFFSET, &image[KEPT_COPY_OFFSET], INITIALISED_OFFSET - KEPT_COPY_OFFSET)) {
    initialised = 1;
    write(INITIALISED_OFFSET, &initialised, sizeof(initialised));
  }
}
