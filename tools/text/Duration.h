// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_DURATION_H
#define TOOLS_TEXT_DURATION_H

#include <chrono>
#include <string>
#include <string_view>

#include "tools/text/Parsed.h"

namespace idl::tools {

constexpr std::chrono::milliseconds LONGEST_DURATION = std::chrono::hours(24);

/// Reads "200ms", "2s", "1.5s", "3m" or "1h": whole milliseconds from 0 to 24 hours, without a sign or blanks.
Parsed<std::chrono::milliseconds> parseDuration(std::string_view text);

/// The shortest form that parseDuration() reads back: "1.5s", "90s", "2m". Not for negative durations.
std::string durationText(std::chrono::milliseconds duration);

}  // namespace idl::tools

#endif
