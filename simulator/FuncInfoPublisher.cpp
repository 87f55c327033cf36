// SPDX-License-Identifier: Apache-2.0
#include "simulator/FuncInfoPublisher.h"

#include "LmFramework/LmSyncGuard.h"

namespace idl::bench {

namespace {

constexpr std::size_t BLUETOOTH =
    BenchSegment<wire::FuncInfoStruct>::DATA_OFFSET + offsetof(wire::FuncInfoStruct, btFunctionFlag);

}  // namespace

FuncInfoPublisher::FuncInfoPublisher() : mSegment(wire::FUNC_INFO_SEGMENT) {}

void FuncInfoPublisher::setBluetooth(bool present) {
  const std::uint8_t flag = present ? 1 : 0;
  const LmSyncGuard guard(mSegment.lock());
  mSegment.write(BLUETOOTH, &flag, sizeof(flag));
}

bool FuncInfoPublisher::hasBluetooth() const {
  std::uint8_t flag = 0;
  const LmSyncGuard guard(mSegment.lock());
  mSegment.read(BLUETOOTH, &flag, sizeof(flag));
  return flag != 0;
}

void FuncInfoPublisher::crash() {
  const LmSyncGuard guard(mSegment.lock());
  dieHere();
}

void FuncInfoPublisher::writeGarbage(std::uint32_t seed) { mSegment.writeGarbage(seed); }

void FuncInfoPublisher::replaceImage(const std::string& image, std::size_t size) { mSegment.replaceImage(image, size); }

void FuncInfoPublisher::vanish() { mSegment.vanish(); }

void FuncInfoPublisher::comeBack() { mSegment.comeBack({}); }

void FuncInfoPublisher::resize(std::size_t bytes) { mSegment.resize(bytes); }

}  // namespace idl::bench
