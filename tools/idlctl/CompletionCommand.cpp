// SPDX-License-Identifier: Apache-2.0
#include <memory>
#include <sstream>

#include "tools/idlctl/Command.h"
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

// The words that may follow the words of `app`.
std::vector<std::string> wordsOf(const CLI::App& app) {
  std::vector<std::string> words;
  for (const CLI::App* command :
       app.get_subcommands([](const CLI::App* candidate) { return !candidate->get_name().empty(); })) {
    words.push_back(command->get_name());
  }
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      words.push_back("--" + name);
    }
    for (const std::string& name : option->get_snames()) {
      words.push_back("-" + name);
    }
  }
  return words;
}

// A line of a shell's case for `app` and each of its commands: the words before, and the words to choose from.
void addCases(const CLI::App& app, const std::string& path, std::ostream& out) {
  out << "    '" << path << "') words='" << joined(wordsOf(app)) << "' ;;\n";
  for (const CLI::App* command :
       app.get_subcommands([](const CLI::App* candidate) { return !candidate->get_name().empty(); })) {
    addCases(*command, path.empty() ? command->get_name() : path + ' ' + command->get_name(), out);
  }
}

std::string cases() {
  CLI::App app;
  Action unused;
  std::string noBench;
  addCommands(app, unused, noBench);
  std::ostringstream out;
  addCases(app, "", out);
  return out.str();
}

constexpr char PATH_OF_WORDS[] =
    "  local path= word\n"
    "  for word in \"${before[@]}\"; do\n"
    "    case \"$word\" in -*) ;; *) path=\"${path:+$path }$word\" ;; esac\n"
    "  done\n"
    "  local words=\n"
    "  case \"$path\" in\n";

int run(const Options& options, const Streams& streams) {
  if (options.shell == "bash") {
    streams.out << "# bash completion for idlctl\n_idlctl() {\n  local before=(\"${COMP_WORDS[@]:1:COMP_CWORD-1}\")\n"
                << PATH_OF_WORDS << cases()
                << "  esac\n"
                   "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
                   "}\ncomplete -o default -F _idlctl idlctl\n";
  } else {
    streams.out << "#compdef idlctl\n_idlctl() {\n  local -a before=(\"${(@)words[2,CURRENT-1]}\")\n"
                << PATH_OF_WORDS << cases()
                << "  esac\n"
                   "  compadd -- ${=words} || _files\n"
                   "}\n_idlctl \"$@\"\n";
  }
  return EXIT_YES;
}

}  // namespace

void addCompletion(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  app.add_option("shell", options->shell, "the shell")->required()->check(CLI::IsMember({"bash", "zsh"}));
  app.footer(
      "Exit codes:\n"
      "  0    told\n"
      "  2    wrong arguments\n"
      "Example:\n  source <(idlctl completion bash)");
  onChosen(app, action, options, run);
}

}  // namespace idl::tools
