// SPDX-License-Identifier: Apache-2.0
#include "simulator/CpPublisher.h"

#include <cstddef>

#include "LmFramework/LmSyncGuard.h"

namespace idl::bench {

namespace {

constexpr std::size_t CURRENT_PHONE =
    BenchSegment<CpFormat::Table>::DATA_OFFSET + offsetof(CpFormat::Table, currentPhone);

}  // namespace

std::uint32_t CpPublisher::setCurrentPhone(std::uint64_t identifier) {
  {
    const LmSyncGuard guard(segment().lock());
    segment().write(CURRENT_PHONE, &identifier, sizeof(identifier));
  }
  return tell();
}

std::uint64_t CpPublisher::currentPhone() const {
  std::uint64_t identifier = 0;
  const LmSyncGuard guard(segment().lock());
  segment().read(CURRENT_PHONE, &identifier, sizeof(identifier));
  return identifier;
}

}  // namespace idl::bench
