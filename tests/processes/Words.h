// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_PROCESSES_WORDS_H
#define TESTS_PROCESSES_WORDS_H

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

/// A line of an agent's input, word by word. A text is written in hexadecimal, with a dot in front: ".50" is "P", and
/// "." is empty.
class Words {
 public:
  explicit Words(const std::string& line) : mStream(line) {}

  /// @throw std::invalid_argument from each of these, when there is no such word.
  std::string word() {
    std::string found;
    if (!(mStream >> found)) {
      throw std::invalid_argument("a word is missing");
    }
    return found;
  }

  template <class Integer>
  Integer number() {
    const std::string found = word();
    return found[0] == '-' ? static_cast<Integer>(std::stoll(found)) : static_cast<Integer>(std::stoull(found));
  }

  std::string text() {
    const std::string digits = word();
    std::string found;
    for (std::size_t i = 1; i + 1 < digits.size(); i += 2) {
      found += static_cast<char>(std::stoul(digits.substr(i, 2), nullptr, 16));
    }
    return found;
  }

  static std::string written(const std::string& text) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string digits = ".";
    for (const char character : text) {
      const auto byte = static_cast<std::uint8_t>(character);
      digits += DIGITS[byte >> 4U];
      digits += DIGITS[byte & 15U];
    }
    return digits;
  }

 private:
  std::istringstream mStream;
};

#endif
