// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/idlctl/Arguments.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

struct Options {
  std::vector<std::string> command;
};

int run(const Options& options, const Streams& streams) {
  std::vector<char*> words;
  for (const std::string& word : options.command) {
    words.push_back(const_cast<char*>(word.c_str()));  // execvp() writes to none
  }
  words.push_back(nullptr);
  execvp(words.front(), words.data());
  streams.err << "idlctl: " << quotedText(options.command.front()) << ": " << std::strerror(errno) << '\n';
  return EXIT_CANNOT_OPEN;
}

}  // namespace

void addExec(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("command", options->command, "the program and its arguments, behind --")
      .required()
      .typeName("COMMAND ...");
  arguments.footer(
      "Exit codes, beside the program's own:\n"
      "  2    wrong arguments\n"
      "  3    the program cannot be started\n"
      "Example, a user interface that meets the phones of a bench:\n  idlctl --private=lab exec -- ./phone-screen");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
