// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_TEXT_H
#define SIMULATOR_TEXT_H

#include <cstddef>
#include <cstring>
#include <string>

namespace idl::bench {

/// How texts come into the fields of a record.
enum class Texts {
  CUT,     ///< as a service writes them: as much as the field holds, and a NUL
  ENDLESS  ///< a fault: repeated up to the last byte of the field, with no NUL; an empty text stays empty
};

/// Writes `text`, up to its first NUL, to a field of zeros.
template <std::size_t SIZE>
void writeText(char (&field)[SIZE], const std::string& text, Texts texts) {
  const std::size_t length = std::strlen(text.c_str());
  const std::size_t room = texts == Texts::ENDLESS ? SIZE : SIZE - 1;
  const std::size_t end = texts == Texts::ENDLESS && length != 0 ? room : (length < room ? length : room);
  for (std::size_t i = 0; i < end; ++i) {
    field[i] = text[i % length];
  }
}

/// The text in a field: all of it where there is no NUL.
template <std::size_t SIZE>
std::string textIn(const char (&field)[SIZE]) {
  return {field, ::strnlen(field, SIZE)};
}

/// Whether the field holds `text`, or as much of it as a field can hold.
template <std::size_t SIZE>
bool holdsText(const char (&field)[SIZE], const std::string& text) {
  return std::strncmp(field, text.c_str(), SIZE - 1) == 0;
}

}  // namespace idl::bench

#endif
