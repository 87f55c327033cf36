// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_SPEEDOPTION_H
#define TOOLS_IDLCTL_SPEEDOPTION_H

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <string>

namespace idl::tools {

/// The option --speed: a factor.
inline CLI::Option* addSpeed(CLI::App& app, double& value, const std::string& description) {
  return app.add_option("--speed", value, description)
      ->check(CLI::Range(0.001, 1000000.0))
      ->check([](const std::string& text) {
        // Which no range excludes.
        return std::isnan(std::strtod(text.c_str(), nullptr)) ? "no number: " + text : std::string();
      });
}

}  // namespace idl::tools

#endif
