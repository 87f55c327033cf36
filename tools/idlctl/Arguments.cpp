// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "tools/text/Duration.h"

namespace idl::tools {

const Argument& Argument::required() const {
  mOption->required();
  return *this;
}

const Argument& Argument::typeName(const std::string& name) const {
  mOption->type_name(name);
  return *this;
}

const Argument& Argument::oneOf(std::initializer_list<const char*> words) const {
  mOption->check(CLI::IsMember(std::vector<std::string>(words.begin(), words.end())));
  return *this;
}

const Argument& Argument::inRange(int lowest, int highest) const {
  mOption->check(CLI::Range(lowest, highest));
  return *this;
}

const Argument& Argument::notNegative() const {
  mOption->check(CLI::NonNegativeNumber);
  return *this;
}

const Argument& Argument::atLeastOne() const {
  mOption->check(CLI::PositiveNumber.description("1 or more"));
  return *this;
}

const Argument& Argument::repeatable() const {
  mOption->expected(1)->take_all();
  return *this;
}

const Argument& Argument::checked(std::function<std::string(const std::string&)> check) const {
  mOption->check(std::move(check));
  return *this;
}

const Argument& Argument::excludes(const Argument& other) const {
  mOption->excludes(other.mOption);
  return *this;
}

const Argument& Argument::needs(const Argument& other) const {
  mOption->needs(other.mOption);
  return *this;
}

Argument Arguments::flag(const std::string& name, bool& value, const std::string& description) {
  return Argument(*mCommand->add_flag(name, value, description));
}

Argument Arguments::option(const std::string& name, std::string& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::option(const std::string& name, std::vector<std::string>& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::option(const std::string& name, std::optional<std::string>& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::option(const std::string& name, unsigned& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::option(const std::string& name, std::optional<unsigned>& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::option(const std::string& name, std::uint64_t& value, const std::string& description) {
  return Argument(*mCommand->add_option(name, value, description));
}

Argument Arguments::duration(const std::string& name, std::optional<std::chrono::milliseconds>& value,
                             const std::string& description) {
  const auto parse = [&value, name](const std::string& text) {
    const Parsed<std::chrono::milliseconds> parsed = parseDuration(text);
    if (!parsed) {
      throw CLI::ValidationError(name, parsed.error);
    }
    value = parsed.value;
  };
  return Argument(*mCommand->add_option_function<std::string>(name, parse, description)->type_name("DURATION"));
}

Argument Arguments::speed(double& value, const std::string& description) {
  return Argument(*mCommand->add_option("--speed", value, description)
                       ->check(CLI::Range(0.001, 1000000.0))
                       ->check([](const std::string& text) {
                         // Which no range excludes.
                         return std::isnan(std::strtod(text.c_str(), nullptr)) ? "no number: " + text : std::string();
                       }));
}

void Arguments::requireAny(const std::vector<Argument>& arguments, const std::string& missing) {
  mCommand->parse_complete_callback([arguments, missing] {
    if (std::all_of(arguments.begin(), arguments.end(),
                    [](const Argument& argument) { return argument.mOption->empty(); })) {
      throw CLI::RequiredError(missing);
    }
  });
}

Arguments Arguments::exactlyOneOf(const std::string& group) {
  CLI::Option_group& added = *mCommand->add_option_group(group);
  added.require_option(1);
  return {added, *mAction};
}

void Arguments::requireCommand() { mCommand->require_subcommand(1); }

Arguments Arguments::command(const std::string& name, const std::string& summary) {
  return {*mCommand->add_subcommand(name, summary), *mAction};
}

void Arguments::footer(const std::string& text) { mCommand->footer(text); }

void Arguments::setAction(Action action) {
  mCommand->callback([target = mAction, action = std::move(action)] { *target = action; });
}

}  // namespace idl::tools
