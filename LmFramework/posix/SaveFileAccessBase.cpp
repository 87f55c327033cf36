// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/SaveFileAccessBase.h"

SaveFileAccessBase::~SaveFileAccessBase() = default;
