// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <memory>
#include <sstream>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/Idlctl.h"

namespace idl::tools {

namespace {

struct Options {
  std::string shell;
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : " ") + word;
  }
  return text;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* candidate) { return !candidate->get_name().empty(); });
}

// With those of its groups, which have no name.
std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> options = app.get_options();
  for (const CLI::App* group :
       app.get_subcommands([](const CLI::App* candidate) { return candidate->get_name().empty(); })) {
    const std::vector<const CLI::Option*> more = optionsOf(*group);
    options.insert(options.end(), more.begin(), more.end());
  }
  return options;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  for (const std::string& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  return names;
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_min() > 0; }

// The words that it may be given, where those are few: the parser tells them in braces behind the type.
std::vector<std::string> valuesOf(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  if (type.compare(0, 6, "SOURCE") == 0) {
    return {"bt", "cp", "aap", "funcinfo"};
  }
  std::vector<std::string> values;
  const std::size_t open = type.find('{');
  const std::size_t end = type.find('}');
  if (open != std::string::npos && end != std::string::npos) {
    std::istringstream input(type.substr(open + 1, end - open - 1));
    for (std::string value; std::getline(input, value, ',');) {
      values.push_back(value);
    }
  }
  return values;
}

std::string behind(const std::string& place, const std::string& name) {
  std::string whole = place;
  whole += ' ';
  whole += name;
  return whole;
}

// What the shell's cases are made of. A place is the words of a command, as "suffixes forget"; the first one is empty.
struct Cases {
  std::ostringstream steps;   // from a place by a word to the next one, or to an option that takes the word behind it
  std::ostringstream values;  // of those options
  std::ostringstream words;   // of each place
};

// `everywhere`: the options of the program that may stand behind its commands as well.
void addCases(const CLI::App& app, const std::string& place, std::vector<const CLI::Option*> everywhere, Cases& cases) {
  std::vector<std::string> words;
  std::vector<const CLI::Option*> options = optionsOf(app);
  options.insert(options.end(), everywhere.begin(), everywhere.end());
  for (const CLI::App* command : commandsOf(app)) {
    const std::string& name = command->get_name();
    words.push_back(name);
    const std::string next = place.empty() ? name : behind(place, name);
    cases.steps << "      '" << place << ' ' << name << "') place='" << next << "' ;;\n";
  }
  for (const CLI::Option* option : options) {
    const std::vector<std::string> names = namesOf(*option);
    const std::vector<std::string> values = valuesOf(*option);
    words.insert(words.end(), names.begin(), names.end());
    if (names.empty()) {
      words.insert(words.end(), values.begin(), values.end());
    } else if (takesValue(*option)) {
      for (const std::string& name : names) {
        const std::string here = behind(place, name);
        cases.steps << "      '" << here << "') option='" << here << "' ;;\n";
        cases.values << "    '" << here << "') offers='" << joined(values) << "' ;;\n";
      }
    }
  }
  cases.words << "    'in " << place << "') offers='" << joined(words) << "' ;;\n";
  if (place.empty()) {
    std::copy_if(options.begin(), options.end(), std::back_inserter(everywhere),
                 [](const CLI::Option* option) { return takesValue(*option); });
  }
  for (const CLI::App* command : commandsOf(app)) {
    addCases(*command, place.empty() ? command->get_name() : behind(place, command->get_name()), everywhere, cases);
  }
}

// Both shells read this: from the words in `before` to the words in `offers`.
std::string offering() {
  CLI::App app;
  Action unused;
  std::string noBench;
  addCommands(app, unused, noBench);
  Cases cases;
  addCases(app, "", {}, cases);
  return "  local place= option= word offers= ended=\n"
         "  for word in \"${before[@]}\"; do\n"
         "    if [[ $word == '=' ]]; then continue; fi\n"  // bash has it as a word of its own
         "    if [[ -n $option ]]; then option=; continue; fi\n"
         "    if [[ $word == -- ]]; then ended=1; break; fi\n"
         "    case \"$place $word\" in\n" +
         cases.steps.str() +
         "    esac\n"
         "  done\n"
         "  if [[ -z $ended ]]; then case \"${option:-in $place}\" in\n" +
         cases.values.str() + cases.words.str() + "  esac; fi\n";
}

int run(const Options& options, const Streams& streams) {
  if (options.shell == "bash") {
    streams.out << "# bash completion for idlctl\n_idlctl() {\n  local before=(\"${COMP_WORDS[@]:1:COMP_CWORD-1}\")\n"
                << "  local current=\"${COMP_WORDS[COMP_CWORD]}\"\n"
                << "  if [[ $current == '=' ]]; then current=; fi\n"
                << offering()
                << "  mapfile -t COMPREPLY < <(compgen -W \"$offers\" -- \"$current\")\n"
                   "}\ncomplete -o default -F _idlctl idlctl\n";
  } else {
    streams.out << "#compdef idlctl\n_idlctl() {\n  local -a before=(\"${(@)words[2,CURRENT-1]}\")\n"
                << offering()
                << "  compadd -- ${=offers} || _files\n"
                   "}\n_idlctl \"$@\"\n";
  }
  return EXIT_YES;
}

}  // namespace

void addCompletion(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("shell", options->shell, "the shell").required().oneOf({"bash", "zsh"});
  arguments.footer(
      "Exit codes:\n"
      "  0    told\n"
      "  2    wrong arguments\n"
      "Example:\n  source <(idlctl completion bash)");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
