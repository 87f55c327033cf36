// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmSubject.h"

#include "LmFramework/posix/ObserverList.h"

LmSubject::LmSubject() : mObservers(std::make_unique<ObserverList>()) {}

LmSubject::~LmSubject() = default;

bool LmSubject::AddObserver(LmObserver_* observer, const unsigned* ids, unsigned count) {
  return mObservers->add(observer, ids, count);
}

void LmSubject::RemoveObserver(LmObserver_* observer) { mObservers->remove(observer); }

void LmSubject::NotifyObserver(unsigned id, void* data, unsigned size, EN_NTF_TYPE /*type*/) {
  mObservers->notify(id, data, size);
}
