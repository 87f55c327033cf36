// SPDX-License-Identifier: Apache-2.0
#include "tools/text/NearestWord.h"

#include <algorithm>

#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

char lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool same(char a, char b) { return lower(a) == lower(b); }

}  // namespace

std::size_t wordDistance(std::string_view a, std::string_view b) {
  // Three rows of the table of distances between beginnings: a swap looks back two.
  std::vector<std::size_t> beforeLast(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) {
    row[j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    beforeLast.swap(last);
    last.swap(row);
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1])) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
  }
  return row[b.size()];
}

std::optional<std::string> nearestWord(std::string_view word, const std::vector<std::string>& words) {
  std::optional<std::string> nearest;
  std::size_t nearestDistance = 0;
  for (const std::string& candidate : words) {
    const std::size_t distance = wordDistance(word, candidate);
    const bool isNear = distance <= std::max(word.size(), candidate.size()) / 3;
    if (isNear && (!nearest || distance < nearestDistance)) {
      nearest = candidate;
      nearestDistance = distance;
    }
  }
  return nearest;
}

std::string unknownWord(std::string_view kind, std::string_view word, const std::vector<std::string>& words) {
  std::string text = "unknown " + std::string(kind) + " '" + printable(word) + "'";
  if (const auto nearest = nearestWord(word, words)) {
    text += ", did you mean '" + *nearest + "'?";
  }
  return text;
}

}  // namespace idl::tools
