// SPDX-License-Identifier: Apache-2.0
#include "CarPlayInfoSharedMem.h"

#include <cstring>

#include "IntegratedDeviceList/CarPlayDefaults.h"

namespace {

using idl::wire::CarPlaySharedMemStruct;

// In the payload: the word that keeps its value when the defaults are written, the word that becomes its copy, the
// flag.
constexpr std::size_t KEPT = 5120 - CarPlayInfoSharedMem::DATA_OFFSET;
constexpr std::size_t KEPT_COPY = KEPT + sizeof(std::uint32_t);
constexpr std::size_t INITIALISED = offsetof(CarPlaySharedMemStruct, initialised);

}  // namespace

CarPlayInfoSharedMem::CarPlayInfoSharedMem()
    : LmSharedMemory(idl::wire::CARPLAY_SEGMENT), notifier(false), observer(this, &CarPlayInfoSharedMem::update) {
  const unsigned ids[] = {idl::wire::CARPLAY_NOTIFICATION_ID};
  notifier.AddObserver(&observer, ids, 1);
  try {
    if (data() != nullptr) {
      initialiseDefaults();
    }
  } catch (...) {  // this port's lock throws nothing, another framework's may
    notifier.RemoveObserver(&observer);
    throw;
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
  read(DATA_OFFSET + INITIALISED, &initialised, sizeof(initialised));
  if (initialised != 0) {
    return;
  }
  CarPlaySharedMemStruct defaults = idl::wire::carPlayDefaults();
  auto* const payload = reinterpret_cast<unsigned char*>(&defaults);
  read(DATA_OFFSET + KEPT, payload + KEPT_COPY, sizeof(std::uint32_t));
  if (write(DATA_OFFSET, payload, KEPT) &&
      write(DATA_OFFSET + KEPT_COPY, payload + KEPT_COPY, INITIALISED - KEPT_COPY)) {
    write(DATA_OFFSET + INITIALISED, payload + INITIALISED, sizeof(defaults.initialised));
  }
}
