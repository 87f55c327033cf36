// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_DURATIONOPTION_H
#define TOOLS_IDLCTL_DURATIONOPTION_H

#include <CLI/CLI.hpp>
#include <chrono>
#include <optional>
#include <string>

#include "tools/text/Duration.h"

namespace idl::tools {

/// An option whose value is a duration: 200ms, 2s.
inline CLI::Option* addDuration(CLI::App& app, const std::string& name, std::optional<std::chrono::milliseconds>& value,
                                const std::string& description) {
  return app
      .add_option_function<std::string>(
          name,
          [&value, name](const std::string& text) {
            const Parsed<std::chrono::milliseconds> parsed = parseDuration(text);
            if (!parsed) {
              throw CLI::ValidationError(name, parsed.error);
            }
            value = parsed.value;
          },
          description)
      ->type_name("DURATION");
}

}  // namespace idl::tools

#endif
