// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Escape.h"

#include <utf8proc.h>

#include <cstddef>

#include "tools/text/Utf8.h"

namespace idl::tools {

namespace {

constexpr char DIGITS[] = "0123456789abcdef";
constexpr char32_t LAST_CHARACTER = 0x10FFFF;

enum class Seen { AS_ITSELF, ON_THE_ONE_BEFORE, NOT };

Seen seen(char32_t character) {
  const auto code = static_cast<utf8proc_int32_t>(character);
  switch (utf8proc_category(code)) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_CO:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
      return Seen::NOT;
    case UTF8PROC_CATEGORY_ZS:
      return character == U' ' ? Seen::AS_ITSELF : Seen::NOT;
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
      return utf8proc_get_property(code)->ignorable != 0 ? Seen::NOT : Seen::ON_THE_ONE_BEFORE;
    default:
      // The fillers of Hangul count as letters, the braille pattern without dots as a sign.
      return utf8proc_get_property(code)->ignorable != 0 || character == U'\u2800' ? Seen::NOT : Seen::AS_ITSELF;
  }
}

void appendHexByte(std::string& text, char byte) {
  const auto value = static_cast<unsigned char>(byte);
  text += "\\x";
  text += DIGITS[value >> 4U];
  text += DIGITS[value & 15U];
}

void appendCode(std::string& text, char32_t character) {
  std::string digits;
  for (char32_t rest = character; rest != 0; rest >>= 4U) {
    digits.insert(digits.begin(), DIGITS[rest & 15U]);
  }
  text += "\\u{" + digits + '}';
}

void appendControl(std::string& text, char control) {
  switch (control) {
    case '\n':
      text += "\\n";
      break;
    case '\r':
      text += "\\r";
      break;
    case '\t':
      text += "\\t";
      break;
    default:
      appendHexByte(text, control);
  }
}

std::string escaped(std::string_view bytes, bool alsoQuotes) {
  std::string text;
  text.reserve(bytes.size() + 2);
  bool carriesMarks = false;  // what was shown last is a character that a mark may stand on
  for (std::size_t at = 0; at < bytes.size();) {
    const Utf8Unit unit = utf8At(bytes, at);
    const Seen how = unit.isCharacter ? seen(unit.character) : Seen::NOT;
    const bool isQuote = alsoQuotes && (bytes[at] == '"' || bytes[at] == '\\');
    const bool asItIs = how == Seen::AS_ITSELF || (how == Seen::ON_THE_ONE_BEFORE && carriesMarks);
    if (!unit.isCharacter) {
      appendHexByte(text, bytes[at]);
    } else if (isQuote) {
      text += '\\';
      text += bytes[at];
    } else if (asItIs) {
      text += bytes.substr(at, unit.length);
    } else if (unit.character < 0x80) {
      appendControl(text, bytes[at]);
    } else {
      appendCode(text, unit.character);
    }
    carriesMarks = asItIs && !isQuote && unit.character != U' ';
    at += unit.length;
  }
  return text;
}

int digitOf(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  if (character >= 'a' && character <= 'f') {
    return character - 'a' + 10;
  }
  if (character >= 'A' && character <= 'F') {
    return character - 'A' + 10;
  }
  return -1;
}

/// Reads what follows a backslash, from `at` on, which it moves behind that. @return why that is no escape, else empty.
class EscapeReader {
 public:
  EscapeReader(std::string_view text, std::size_t& at, std::string& bytes) : mText(text), mAt(at), mBytes(bytes) {}

  std::string read() {
    const char kind = next();
    switch (kind) {
      case '"':
      case '\\':
        mBytes += kind;
        return {};
      case 'n':
        mBytes += '\n';
        return {};
      case 'r':
        mBytes += '\r';
        return {};
      case 't':
        mBytes += '\t';
        return {};
      case 'x':
        return readByte();
      case 'u':
        return readCharacter();
      default:
        return R"(there is no such escape; there are \" \\ \n \r \t \xNN \u{N})";
    }
  }

 private:
  char next() { return mAt < mText.size() ? mText[mAt++] : '\0'; }

  std::string readByte() {
    const int high = digitOf(next());
    const int low = high < 0 ? -1 : digitOf(next());
    if (low < 0) {
      return "\\x takes two hexadecimal digits";
    }
    mBytes += static_cast<char>(high * 16 + low);
    return {};
  }

  std::string readCharacter() {
    static constexpr char WRONG[] = "\\u takes one to six hexadecimal digits in braces";
    if (next() != '{') {
      return WRONG;
    }
    char32_t character = 0;
    for (unsigned count = 0;; ++count) {
      const char read = next();
      if (read == '}' && count > 0) {
        break;
      }
      const int digit = digitOf(read);
      if (digit < 0 || count == 6) {
        return WRONG;
      }
      character = character * 16 + static_cast<char32_t>(digit);
    }
    if (character > LAST_CHARACTER || (character >= 0xD800 && character <= 0xDFFF)) {
      return "there is no character of this number";
    }
    appendUtf8(mBytes, character);
    return {};
  }

  const std::string_view mText;
  std::size_t& mAt;
  std::string& mBytes;
};

}  // namespace

std::string quotedText(std::string_view bytes) { return '"' + escaped(bytes, true) + '"'; }

std::string printable(std::string_view bytes) { return escaped(bytes, false); }

Parsed<Unquoted> unquoted(std::string_view text) {
  std::string bytes;
  for (std::size_t at = 1; at < text.size();) {
    const char character = text[at++];
    if (character == '"') {
      return Parsed<Unquoted>::of({bytes, at});
    }
    if (character == '\n' || character == '\r') {
      break;
    }
    if (character != '\\') {
      bytes += character;
      continue;
    }
    const std::string error = EscapeReader(text, at, bytes).read();
    if (!error.empty()) {
      return Parsed<Unquoted>::failed(error);
    }
  }
  return Parsed<Unquoted>::failed("the text is not ended by a double quote");
}

}  // namespace idl::tools
