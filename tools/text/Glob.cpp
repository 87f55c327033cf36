// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Glob.h"

#include <cstddef>
#include <string>

#include "tools/text/Utf8.h"

namespace idl::tools {

namespace {

// Behind the last character, so that no bad byte is like a character.
constexpr char32_t FIRST_BYTE = 0x110000;

std::u32string unitsOf(std::string_view text) {
  std::u32string units;
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Unit unit = utf8At(text, at);
    units += unit.isCharacter ? unit.character : FIRST_BYTE + static_cast<unsigned char>(text[at]);
    at += unit.length;
  }
  return units;
}

/// What one character may be, by a piece of the pattern.
struct Piece {
  bool matches = false;
  std::size_t length = 1;  // of the piece
};

/// The set whose bracket opens at `at`; of length 0 when it is not closed.
Piece matchSet(const std::u32string& pattern, std::size_t at, char32_t character) {
  std::size_t i = at + 1;
  const bool isNot = i < pattern.size() && (pattern[i] == U'!' || pattern[i] == U'^');
  i += isNot ? 1U : 0U;
  const auto next = [&] {
    i += pattern[i] == U'\\' && i + 1 < pattern.size() ? 1U : 0U;
    return pattern[i++];
  };
  bool isIn = false;
  for (bool isFirst = true; i < pattern.size(); isFirst = false) {
    if (pattern[i] == U']' && !isFirst) {
      return {isIn != isNot, i + 1 - at};
    }
    const char32_t low = next();
    char32_t high = low;
    if (i + 1 < pattern.size() && pattern[i] == U'-' && pattern[i + 1] != U']') {
      ++i;
      high = next();
    }
    isIn = isIn || (low <= character && character <= high);
  }
  return {false, 0};
}

Piece matchOne(const std::u32string& pattern, std::size_t at, char32_t character) {
  switch (pattern[at]) {
    case U'?':
      return {true, 1};
    case U'\\':
      if (at + 1 < pattern.size()) {
        return {pattern[at + 1] == character, 2};
      }
      break;
    case U'[': {
      const Piece set = matchSet(pattern, at, character);
      if (set.length != 0) {
        return set;
      }
      break;
    }
    default:
      break;
  }
  return {pattern[at] == character, 1};
}

}  // namespace

bool globMatches(std::string_view pattern, std::string_view name) {
  const std::u32string pieces = unitsOf(pattern);
  const std::u32string units = unitsOf(name);
  std::size_t p = 0;
  std::size_t n = 0;
  // Behind the last star, and what it has not taken yet. An earlier star need never take more than it has.
  std::size_t starP = std::u32string::npos;
  std::size_t starN = 0;
  while (n < units.size()) {
    if (p < pieces.size() && pieces[p] == U'*') {
      starP = ++p;
      starN = n;
      continue;
    }
    const Piece piece = p < pieces.size() ? matchOne(pieces, p, units[n]) : Piece{false, 0};
    if (piece.matches) {
      p += piece.length;
      ++n;
    } else if (starP != std::u32string::npos) {
      p = starP;
      n = ++starN;
    } else {
      return false;
    }
  }
  return pieces.find_first_not_of(U'*', p) == std::u32string::npos;
}

}  // namespace idl::tools
