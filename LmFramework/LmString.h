// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_LMSTRING_H
#define LMFRAMEWORK_LMSTRING_H

#include <string>

#include "LmFramework/LmFrameworkExport.h"

/// A text that knows in which code page it came and in which it is wanted.
///
/// This port keeps texts as UTF-8 and knows one code page, EN_CP_UTF8; a text in any other is taken
/// and given byte for byte. The names of shared-memory objects are ASCII and pass unchanged.
class LM_FRAMEWORK_API LmString {
 public:
  enum EN_CP { EN_CP_UTF8 = 32 };

  LmString() = default;

  /// `text` is NUL-terminated and copied; null counts as empty.
  LmString(const char* text, int codePage);

  LmString& operator+=(const LmString& other);

  /// As above; the text is taken as EN_CP_UTF8.
  LmString& operator+=(const char* text);

  /// The text in `codePage`, NUL-terminated; valid until this object is changed or destroyed.
  const char* ToCHAR(int codePage) const;

 private:
  std::string mText;
};

#endif
