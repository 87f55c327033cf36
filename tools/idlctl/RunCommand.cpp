// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "tools/idlctl/Command.h"
#include "tools/idlctl/PrivateBench.h"
#include "tools/scenario/JUnit.h"
#include "tools/scenario/Parser.h"
#include "tools/scenario/ProcessBench.h"
#include "tools/scenario/Runner.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr char STANDARD_INPUT[] = "-";

struct Options {
  std::vector<std::string> files;
  std::uint64_t seed = 1;
  double speed = 1;
  bool isStepped = false;
  std::string junit;
  std::string saveFolder;
};

bool readAll(const std::string& file, std::string& text) {
  std::ifstream opened;
  if (file != STANDARD_INPUT) {
    opened.open(file, std::ios::binary);
    if (!opened) {
      return false;
    }
  }
  std::istream& input = file == STANDARD_INPUT ? std::cin : opened;
  text.assign(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
  return !input.bad();
}

// Waits for Enter before each command; the end of the input lets the rest run.
std::function<bool(const scenario::Command&)> stepper(const Streams& streams) {
  return [&streams](const scenario::Command& command) {
    streams.err << command.position.line << ": " << printable(command.text) << " [Enter] " << std::flush;
    std::string line;
    std::getline(std::cin, line);
    return true;
  };
}

bool writeJUnit(const std::string& file, const std::vector<scenario::RunResult>& results) {
  std::ofstream output(file, std::ios::binary | std::ios::trunc);
  output << scenario::junitXml(results);
  output.close();
  return output.good();
}

int play(const std::string& file, const Options& options, const Streams& streams,
         std::vector<scenario::RunResult>& results) {
  std::string text;
  if (!readAll(file, text)) {
    streams.err << "idlctl: " << quotedText(file) << ": " << std::strerror(errno) << '\n';
    return EXIT_CANNOT_OPEN;
  }
  const std::string name = file == STANDARD_INPUT ? "standard input" : file;
  const scenario::Parsing parsing = scenario::Parser(name).parse(text);
  for (const scenario::Mistake& mistake : parsing.mistakes) {
    streams.err << scenario::mistakeText(mistake) << '\n';
  }
  if (!parsing.mistakes.empty()) {
    return EXIT_USAGE;
  }
  const std::string saveFolder = options.saveFolder.empty() ? privateSaveFolder() : options.saveFolder;
  const auto bench = saveFolder.empty() ? std::make_unique<scenario::ProcessBench>()
                                        : std::make_unique<scenario::ProcessBench>(saveFolder);
  scenario::Runner::Options how;
  how.seed = options.seed;
  how.speed = options.speed;
  how.colour = streams.colour;
  if (options.isStepped) {
    how.beforeEach = stepper(streams);
  }
  results.push_back(scenario::Runner(*bench, how).run(name, parsing.commands));
  const scenario::RunResult& result = results.back();
  if (result.exitCode() != EXIT_YES) {
    streams.out << result.report();
  } else {
    streams.out << printable(name) << ": " << result.steps.size() << " commands, all as expected" << std::endl;
  }
  return result.exitCode();
}

int run(const Options& options, const Streams& streams) {
  int worst = EXIT_YES;
  std::vector<scenario::RunResult> results;
  for (const std::string& file : options.files) {
    worst = std::max(worst, play(file, options, streams, results));
  }
  if (!options.junit.empty() && !writeJUnit(options.junit, results)) {
    streams.err << "idlctl: " << quotedText(options.junit) << " could not be written\n";
    return EXIT_CANNOT_OPEN;
  }
  return worst;
}

}  // namespace

void addRun(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  app.add_option("scenario", options->files, "files; - for standard input")->required()->type_name("SCENARIO");
  app.add_option("--seed", options->seed, "of what the scenario leaves to chance, 1");
  app.add_option("--speed", options->speed, "waits take so many times less, 1")->check(CLI::Range(0.001, 1000000.0));
  app.add_flag("--step", options->isStepped, "wait for Enter before each command");
  app.add_option("--junit", options->junit, "write the results as JUnit XML")->type_name("FILE");
  app.add_option(
         "--save-dir", options->saveFolder,
         "the folder of the client's saved numbers, which begin empty; without it the private bench's, or one for "
         "this run alone")
      ->type_name("FOLDER");
  app.footer(
      "The scenario has the unit's tables for itself: run it where no services are, or with --private.\n"
      "Exit codes, of several scenarios the highest:\n"
      "  0    all went as expected\n"
      "  1    an expectation was not met\n"
      "  2    wrong arguments, or a scenario with a mistake\n"
      "  3    a file cannot be read or written, or the bench failed\n"
      "Examples:\n  idlctl run story.scn\n  echo 'phone add anna; bt pair anna; random 1000' | idlctl run - --seed 7\n"
      "  idlctl run examples/scenarios/*.scn --junit results.xml");
  onChosen(app, action, options, run);
}

}  // namespace idl::tools
