// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmObserver_.h"

LmObserver_::~LmObserver_() = default;
