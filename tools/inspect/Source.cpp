// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/Source.h"

#include <cstring>

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

namespace idl::tools {

namespace {

namespace def = LmSIntegratedDeviceListDef;

template <class Payload>
constexpr Source sourceOfPayload(const char* word, const char* person, const char* segment, bool isTable,
                                 def::DeviceType type) {
  using Segment = LmSharedMemory<Payload, 1>;
  return {word, person, segment, Segment::DATA_OFFSET, Segment::SEGMENT_SIZE, isTable, type};
}

}  // namespace

const Source BT_SOURCE =
    sourceOfPayload<wire::BtPairedDeviceList>("bt", "Bluetooth", wire::BT_SEGMENT, true, def::DEVICE_TYPE_BT);
const Source CP_SOURCE = sourceOfPayload<wire::CarPlaySharedMemStruct>("cp", "CarPlay", wire::CARPLAY_SEGMENT, true,
                                                                       def::DEVICE_TYPE_CARPLAY);
const Source AAP_SOURCE =
    sourceOfPayload<wire::AapDeviceList>("aap", "Android Auto", wire::AAP_SEGMENT, true, def::DEVICE_TYPE_AAP);
const Source FUNC_INFO_SOURCE =
    sourceOfPayload<wire::FuncInfoStruct>("funcinfo", "the unit's functions", wire::FUNC_INFO_SEGMENT, false, {});

const std::array<const Source*, 3> TABLES = {&BT_SOURCE, &CP_SOURCE, &AAP_SOURCE};
const std::array<const Source*, 4> SOURCES = {&BT_SOURCE, &CP_SOURCE, &AAP_SOURCE, &FUNC_INFO_SOURCE};

const Source* sourceCalled(const char* word) {
  for (const Source* source : SOURCES) {
    if (std::strcmp(source->word, word) == 0) {
      return source;
    }
  }
  return nullptr;
}

const Source& sourceOf(def::DeviceType type) {
  for (const Source* source : TABLES) {
    if (source->type == type) {
      return *source;
    }
  }
  return BT_SOURCE;
}

}  // namespace idl::tools
