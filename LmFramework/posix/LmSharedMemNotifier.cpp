// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"

#include "LmFramework/posix/NotifierHub.h"

static_assert(LmSharedMemNotifier::MAX_DATA_SIZE == NotifierRingSlot::DATA_SIZE);

LmSharedMemNotifier::LmSharedMemNotifier(bool /*flag*/) { NotifierHub::instance(); }

LmSharedMemNotifier::~LmSharedMemNotifier() { NotifierHub::instance().removeAll(this); }

bool LmSharedMemNotifier::AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count) {
  return NotifierHub::instance().addObserver(this, observer, ids, count);
}

void LmSharedMemNotifier::RemoveObserver(LmObserver_* observer) { NotifierHub::instance().removeObserver(observer); }

bool LmSharedMemNotifier::Publish(unsigned id, const void* data, unsigned size) {
  return NotifierHub::instance().publish(id, data, size);
}
