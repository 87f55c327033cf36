// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/Idlctl.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <optional>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/PrivateBench.h"
#include "tools/text/Escape.h"
#include "tools/text/NearestWord.h"

namespace idl::tools {

namespace {

constexpr Command COMMANDS[] = {
    {"list", "the list of phones that a client gets which starts now", addList},
    {"watch", "the list, and then whatever changes in it", addWatch},
    {"wait", "wait until something is true of the list or a source", addWait},
    {"dump", "one table, decoded", addDump},
    {"publish", "stand in for a service until stopped", addPublish},
    {"run", "play scenarios on a bench of processes", addRun},
    {"record", "what happens to the tables and the list, as a file", addRecord},
    {"replay", "stand in for the services as recorded, or check a recording", addReplay},
    {"comply", "whether a live service keeps to the rules of its table", addComply},
    {"suffixes", "the saved numbers", addSuffixes},
    {"doctor", "what is there, what is wrong with it, and what to do", addDoctor},
    {"exec", "start a program, where --private says", addExec},
    {"completion", "what a shell needs to complete arguments", addCompletion},
};

constexpr char FOOTER[] =
    "Standard output is data, standard error is messages. Exit codes: 0 yes, 1 the answer is no, 2 wrong arguments,\n"
    "3 cannot open, 4 damaged, 124 timed out.\n"
    "list, watch, wait, dump, record and doctor change nothing on the unit. --private=NAME may stand before or after "
    "a command.";

const CLI::Option* optionCalled(const std::string& name, const CLI::App& command, const CLI::App& app) {
  const CLI::Option* const own = command.get_option_no_throw(name);
  return own != nullptr ? own : app.get_option_no_throw(name);
}

// The parser itself only misses a command where a word is none.
std::optional<std::string> unknownCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
  const CLI::App* at = &app;
  for (std::size_t i = 0; i < arguments.size() && arguments[i] != "--"; ++i) {
    const std::string& word = arguments[i];
    if (word.size() > 1 && word.front() == '-') {
      const CLI::Option* const option = optionCalled(word, *at, app);
      if (option != nullptr && option->get_items_expected_min() > 0) {
        ++i;
      }
      continue;
    }
    std::vector<std::string> names;
    const CLI::App* next = nullptr;
    for (const CLI::App* command :
         at->get_subcommands([](const CLI::App* candidate) { return !candidate->get_name().empty(); })) {
      names.push_back(command->get_name());
      next = command->get_name() == word ? command : next;
    }
    if (names.empty()) {
      return std::nullopt;
    }
    if (next == nullptr) {
      return unknownWord("command", word, names);
    }
    at = next;
  }
  return std::nullopt;
}

}  // namespace

void addCommands(CLI::App& app, Action& action, std::string& privateBench) {
  app.require_subcommand(1);
  app.add_option("--private", privateBench,
                 "have the shared memory and the saved numbers of the bench NAME in the place of the system's")
      ->type_name("NAME")
      ->check([](const std::string& name) {
        return canBePrivateBench(name)
                   ? std::string()
                   : "a bench's name has 1 to 64 letters, digits, '-', '_' and '.', and no '.' first";
      });
  app.footer(FOOTER);
  app.set_version_flag("--version", "idlctl " IDLCTL_VERSION);
  app.set_help_all_flag("--help-all", "the help of all commands");
  for (const Command& command : COMMANDS) {
    CLI::App& added = *app.add_subcommand(command.name, command.summary);
    added.fallthrough();
    Arguments arguments(added, action);
    command.add(arguments);
  }
}

int idlctl(const std::vector<std::string>& arguments, const Streams& streams) {
  CLI::App app("looks into the list of phones of a unit, and stands in for its services on a bench", "idlctl");
  Action action;
  std::string privateBench;
  addCommands(app, action, privateBench);
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());  // as the parser takes them
    app.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    streams.out << app.help();
    return EXIT_YES;
  } catch (const CLI::CallForAllHelp&) {
    streams.out << app.help("", CLI::AppFormatMode::All);
    return EXIT_YES;
  } catch (const CLI::CallForVersion& version) {
    streams.out << version.what() << '\n';
    return EXIT_YES;
  } catch (const CLI::ParseError& error) {
    streams.err << "idlctl: " << unknownCommand(app, arguments).value_or(printable(error.what())) << '\n';
    return EXIT_USAGE;
  }
  try {
    if (!privateBench.empty()) {
      enterPrivateBench(privateBench);
    }
    return action(streams);
  } catch (const std::exception& error) {
    streams.err << "idlctl: " << printable(error.what()) << '\n';
    return EXIT_CANNOT_OPEN;
  }
}

}  // namespace idl::tools
