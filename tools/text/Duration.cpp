// SPDX-License-Identifier: Apache-2.0
#include "tools/text/Duration.h"

#include <cstdint>
#include <utility>

namespace idl::tools {

namespace {

using Result = Parsed<std::chrono::milliseconds>;

constexpr char UNITS[] = "the units are ms, s, m and h";

std::int64_t millisecondsIn(std::string_view unit) {
  if (unit == "ms") {
    return 1;
  }
  if (unit == "s") {
    return 1000;
  }
  if (unit == "m") {
    return std::int64_t{60} * 1000;
  }
  return unit == "h" ? std::int64_t{60} * 60 * 1000 : 0;
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

// As many of the digits as cannot overflow; more of them are too long or too fine anyway.
constexpr std::size_t MOST_DIGITS = 9;

std::int64_t valueOf(std::string_view digits) {
  std::int64_t value = 0;
  for (const char digit : digits) {
    value = value * 10 + (digit - '0');
  }
  return value;
}

std::string_view digitsAt(std::string_view text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && isDigit(text[end])) {
    ++end;
  }
  return text.substr(at, end - at);
}

std::string_view withoutZerosAtStart(std::string_view digits) {
  const std::size_t first = digits.find_first_not_of('0');
  return first == std::string_view::npos ? std::string_view() : digits.substr(first);
}

std::string_view withoutZerosAtEnd(std::string_view digits) {
  const std::size_t last = digits.find_last_not_of('0');
  return last == std::string_view::npos ? std::string_view() : digits.substr(0, last + 1);
}

}  // namespace

Parsed<std::chrono::milliseconds> parseDuration(std::string_view text) {
  std::string_view whole = digitsAt(text, 0);
  std::size_t at = whole.size();
  std::string_view fraction;
  if (at < text.size() && text[at] == '.') {
    fraction = digitsAt(text, at + 1);
    at += 1 + fraction.size();
    if (fraction.empty()) {
      whole = {};
    }
  }
  if (whole.empty()) {
    return Result::failed(std::string("no duration such as 200ms, 2s or 1.5s; ") + UNITS);
  }
  if (at == text.size()) {
    return Result::failed(std::string("a number without a unit; ") + UNITS);
  }
  const std::int64_t unit = millisecondsIn(text.substr(at));
  if (unit == 0) {
    return Result::failed(std::string("no such unit; ") + UNITS);
  }

  whole = withoutZerosAtStart(whole);
  fraction = withoutZerosAtEnd(fraction);
  if (whole.size() > MOST_DIGITS || valueOf(whole) * unit > LONGEST_DURATION.count()) {
    return Result::failed("longer than 24h");
  }
  std::int64_t scale = 1;
  for (std::size_t i = 0; i < fraction.size() && i < MOST_DIGITS; ++i) {
    scale *= 10;
  }
  if (fraction.size() > MOST_DIGITS || valueOf(fraction) * unit % scale != 0) {
    return Result::failed("finer than a millisecond");
  }
  const std::int64_t total = valueOf(whole) * unit + valueOf(fraction) * unit / scale;
  if (total > LONGEST_DURATION.count()) {
    return Result::failed("longer than 24h");
  }
  return Result::of(std::chrono::milliseconds(total));
}

std::string durationText(std::chrono::milliseconds duration) {
  const std::int64_t total = duration.count();
  if (total < 1000) {
    return std::to_string(total) + "ms";
  }
  for (const auto& [unit, word] : {std::pair{std::int64_t{3600000}, "h"}, std::pair{std::int64_t{60000}, "m"}}) {
    if (total % unit == 0) {
      return std::to_string(total / unit) + word;
    }
  }
  std::string text = std::to_string(total / 1000);
  if (total % 1000 != 0) {
    const std::string thousandths = std::to_string(1000 + total % 1000).substr(1);
    text += '.' + std::string(withoutZerosAtEnd(thousandths));
  }
  return text + 's';
}

}  // namespace idl::tools
