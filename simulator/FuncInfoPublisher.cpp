// SPDX-License-Identifier: Apache-2.0
#include "simulator/FuncInfoPublisher.h"

#include <cstdint>
#include <stdexcept>

#include "LmFramework/LmSyncGuard.h"

namespace idl::bench {

FuncInfoPublisher::FuncInfoPublisher() : mSegment(wire::FUNC_INFO_SEGMENT) {
  if (mSegment.data() == nullptr) {
    throw std::runtime_error("FuncInfo: no segment");
  }
}

void FuncInfoPublisher::setBluetooth(bool present) {
  const std::uint8_t flag = present ? 1 : 0;
  const LmSyncGuard guard(mSegment);
  if (!mSegment.write(decltype(mSegment)::DATA_OFFSET + offsetof(wire::FuncInfoStruct, btFunctionFlag), &flag,
                      sizeof(flag))) {
    throw std::runtime_error("FuncInfo: cannot be written");
  }
}

}  // namespace idl::bench
