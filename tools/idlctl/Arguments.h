// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_IDLCTL_ARGUMENTS_H
#define TOOLS_IDLCTL_ARGUMENTS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/idlctl/Command.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace idl::tools {

/// One argument of a command, as it is declared. Its calls can be chained.
class Argument {
 public:
  explicit Argument(CLI::Option& option) : mOption(&option) {}

  const Argument& required() const;
  const Argument& typeName(const std::string& name) const;
  const Argument& oneOf(std::initializer_list<const char*> words) const;
  const Argument& inRange(int lowest, int highest) const;
  const Argument& notNegative() const;
  const Argument& atLeastOne() const;
  /// May be given several times, a value each.
  const Argument& repeatable() const;
  /// `check` says what is wrong with a value; nothing where nothing is.
  const Argument& checked(std::function<std::string(const std::string&)> check) const;
  const Argument& excludes(const Argument& other) const;
  const Argument& needs(const Argument& other) const;

 private:
  friend class Arguments;
  CLI::Option* mOption;
};

/// What a command declares its arguments with. The parser behind it is in Arguments.cpp alone: a file that includes it
/// takes ten seconds to compile.
class Arguments {
 public:
  /// Borrows both, which have to live until the arguments are parsed; so has every value below.
  Arguments(CLI::App& app, Action& action) : mCommand(&app), mAction(&action) {}

  Argument flag(const std::string& name, bool& value, const std::string& description);
  Argument option(const std::string& name, std::string& value, const std::string& description);
  Argument option(const std::string& name, std::vector<std::string>& value, const std::string& description);
  Argument option(const std::string& name, std::optional<std::string>& value, const std::string& description);
  Argument option(const std::string& name, unsigned& value, const std::string& description);
  Argument option(const std::string& name, std::optional<unsigned>& value, const std::string& description);
  Argument option(const std::string& name, std::uint64_t& value, const std::string& description);
  /// 200ms, 2s.
  Argument duration(const std::string& name, std::optional<std::chrono::milliseconds>& value,
                    const std::string& description);
  /// --speed, a factor.
  Argument speed(double& value, const std::string& description);

  /// Wrong without any of these; `missing` says so.
  void requireAny(const std::vector<Argument>& arguments, const std::string& missing);
  /// Of the arguments declared with what this returns, exactly one has to be given.
  Arguments exactlyOneOf(const std::string& group);

  void requireCommand();
  Arguments command(const std::string& name, const std::string& summary);
  /// What stands below the arguments in the help.
  void footer(const std::string& text);

  /// Has `run(options, streams)` done when this command is chosen.
  template <class Options>
  void onChosen(const std::shared_ptr<Options>& options, int (*run)(const Options&, const Streams&)) {
    setAction([options, run](const Streams& streams) { return run(*options, streams); });
  }

 private:
  void setAction(Action action);

  CLI::App* mCommand;
  Action* mAction;
};

}  // namespace idl::tools

#endif
