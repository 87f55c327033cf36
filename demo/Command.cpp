// SPDX-License-Identifier: Apache-2.0
#include "demo/Command.h"

#include <stdexcept>
#include <vector>

namespace demo {

namespace {

// Cuts a line at the blanks outside quotes, and drops the quotes.
std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  bool quoted = false;
  bool inWord = false;
  for (const char character : line) {
    if (character == ' ' && !quoted) {
      inWord = false;
      continue;
    }
    if (!inWord) {
      words.emplace_back();
      inWord = true;
    }
    if (character == '"') {
      quoted = !quoted;
    } else {
      words.back() += character;
    }
  }
  if (quoted) {
    throw std::invalid_argument("a quote is not closed");
  }
  return words;
}

std::uint64_t numberOf(const std::string& text, std::uint64_t highest) {
  std::size_t used = 0;
  std::uint64_t number = 0;
  if (!text.empty() && text.front() != '-') {
    try {
      number = std::stoull(text, &used, 0);
    } catch (const std::out_of_range&) {
      used = 0;
    } catch (const std::invalid_argument&) {
      used = 0;
    }
  }
  if (used == 0 || used != text.size() || number > highest) {
    throw std::invalid_argument("\"" + text + "\" is no number up to " + std::to_string(highest));
  }
  return number;
}

}  // namespace

Command::Command(const std::string& line) {
  for (const std::string& word : wordsOf(line)) {
    const std::size_t equals = word.find('=');
    if (equals != std::string::npos) {
      mFields[word.substr(0, equals)] = word.substr(equals + 1);
    } else if (mName.empty()) {
      mName = word;
    } else if (mArgument.empty()) {
      mArgument = word;
    } else {
      throw std::invalid_argument("\"" + word + "\" is one word too many");
    }
  }
}

std::uint64_t Command::number(std::uint64_t highest) const { return numberOf(mArgument, highest); }

std::string Command::text(const std::string& key, const std::string& absent) const {
  const auto field = mFields.find(key);
  return field == mFields.end() ? absent : field->second;
}

std::uint64_t Command::number(const std::string& key, std::uint64_t highest, std::uint64_t absent) const {
  const auto field = mFields.find(key);
  return field == mFields.end() ? absent : numberOf(field->second, highest);
}

}  // namespace demo
