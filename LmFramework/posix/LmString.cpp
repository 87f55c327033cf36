// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/LmString.h"

LmString::LmString(const char* text, int /*codePage*/) : mText(text != nullptr ? text : "") {}

LmString& LmString::operator+=(const LmString& other) {
  mText += other.mText;
  return *this;
}

LmString& LmString::operator+=(const char* text) {
  if (text != nullptr) {
    mText += text;
  }
  return *this;
}

const char* LmString::ToCHAR(int /*codePage*/) const { return mText.c_str(); }
