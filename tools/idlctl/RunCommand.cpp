// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/InputFile.h"
#include "tools/idlctl/PrivateBench.h"
#include "tools/idlctl/Stopping.h"
#include "tools/scenario/JUnit.h"
#include "tools/scenario/Parser.h"
#include "tools/scenario/ProcessBench.h"
#include "tools/scenario/Runner.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds LOOK{60000};

struct Options {
  std::vector<std::string> files;
  std::uint64_t seed = 1;
  double speed = 1;
  bool isStepped = false;
  std::string junit;
  std::string saveFolder;
};

/// Ends a scenario when a signal has come. Not an exception of the standard's, which a runner takes for trouble.
struct Stopped {};

// Waits for Enter before each command; the end of the input lets the rest run.
void awaitEnter(const scenario::Command& command, const Streams& streams, const Stopping& stopping) {
  streams.err << command.position.line << ": " << printable(command.text) << " [Enter] " << std::flush;
  if (stopping.beforeEnter()) {
    throw Stopped();
  }
}

scenario::Runner::Options runnerOptions(const Options& options, const Streams& streams, const Stopping& stopping) {
  scenario::Runner::Options how;
  how.seed = options.seed;
  how.speed = options.speed;
  how.colour = streams.colour;
  how.sleep = [&stopping](std::chrono::milliseconds duration) {
    const Deadline deadline(duration);
    do {
      if (stopping.within(deadline.atMost(LOOK))) {
        throw Stopped();
      }
    } while (!deadline.isOver());
  };
  how.beforeEach = [&options, &streams, &stopping](const scenario::Command& command) {
    if (stopping.within(std::chrono::milliseconds(0))) {
      throw Stopped();
    }
    if (options.isStepped) {
      awaitEnter(command, streams, stopping);
    }
    return true;
  };
  return how;
}

// A scenario that was not played, or not to its end, with the reason as its only step.
scenario::RunResult unplayed(const std::string& name, scenario::Outcome outcome, const std::string& why) {
  scenario::Step step;
  step.text = "(not played)";
  step.outcome = outcome;
  step.why = why;
  return {name, {step}};
}

scenario::RunResult mistaken(const std::string& name, const std::vector<scenario::Mistake>& mistakes) {
  scenario::RunResult result;
  result.file = name;
  for (const scenario::Mistake& mistake : mistakes) {
    scenario::Step step;
    step.position = mistake.position;
    step.text = "(not understood)";
    step.outcome = scenario::Outcome::MISTAKE;
    step.why = mistake.text;
    result.steps.push_back(step);
  }
  return result;
}

bool writeJUnit(const std::string& file, const std::vector<scenario::RunResult>& results) {
  std::ofstream output(file, std::ios::binary | std::ios::trunc);
  output << scenario::junitXml(results);
  output.close();
  return output.good();
}

std::string nameOf(const std::string& file) { return file == STANDARD_INPUT ? "standard input" : file; }

/// @throw std::runtime_error where it cannot be played, Stopped where it was stopped.
scenario::RunResult played(const std::string& file, const Options& options, const Streams& streams) {
  const std::string name = nameOf(file);
  const std::string text = file == STANDARD_INPUT ? contentOfStandardInput() : contentOf(file);
  const scenario::Parsing parsing = scenario::Parser(name).parse(text);
  if (!parsing.mistakes.empty()) {
    for (const scenario::Mistake& mistake : parsing.mistakes) {
      streams.err << scenario::mistakeText(mistake) << '\n';
    }
    return mistaken(name, parsing.mistakes);
  }
  const Stopping stopping;  // not before: until here there is nothing to clear up
  const std::string saveFolder = options.saveFolder.empty() ? privateSaveFolder() : options.saveFolder;
  const auto bench = saveFolder.empty() ? std::make_unique<scenario::ProcessBench>()
                                        : std::make_unique<scenario::ProcessBench>(saveFolder);
  scenario::RunResult result =
      scenario::Runner(*bench, runnerOptions(options, streams, stopping)).run(name, parsing.commands);
  if (result.exitCode() != EXIT_YES) {
    streams.out << result.report();
  } else {
    streams.out << printable(name) << ": " << result.steps.size() << " commands, all as expected" << std::endl;
  }
  return result;
}

int run(const Options& options, const Streams& streams) {
  if (options.isStepped && std::count(options.files.begin(), options.files.end(), STANDARD_INPUT) != 0) {
    streams.err << "idlctl: --step reads Enter from the standard input, which the scenario comes from\n";
    return EXIT_USAGE;
  }
  int worst = EXIT_YES;
  std::vector<scenario::RunResult> results;
  bool isStopped = false;
  for (std::size_t i = 0; i < options.files.size() && !isStopped; ++i) {
    const std::string& file = options.files[i];
    try {
      results.push_back(played(file, options, streams));
    } catch (const Stopped&) {
      isStopped = true;
      results.push_back(unplayed(nameOf(file), scenario::Outcome::TROUBLE, "stopped"));
    } catch (const std::runtime_error& wrong) {
      streams.err << "idlctl: " << printable(wrong.what()) << '\n';
      results.push_back(unplayed(nameOf(file), scenario::Outcome::TROUBLE, printable(wrong.what())));
    }
    worst = std::max(worst, isStopped ? EXIT_NO : results.back().exitCode());
  }
  if (!options.junit.empty() && !writeJUnit(options.junit, results)) {
    streams.err << "idlctl: " << quotedText(options.junit) << " could not be written\n";
    return EXIT_CANNOT_OPEN;
  }
  return worst;
}

}  // namespace

void addRun(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("scenario", options->files, "files; - for standard input").required().typeName("SCENARIO");
  arguments.option("--seed", options->seed, "of what the scenario leaves to chance, 1");
  arguments.speed(options->speed, "waits take so many times less, 1");
  arguments.flag("--step", options->isStepped, "wait for Enter before each command");
  arguments.option("--junit", options->junit, "write the results as JUnit XML").typeName("FILE");
  arguments
      .option("--save-dir", options->saveFolder,
              "the folder of the client's saved numbers, which begin empty; without it the private bench's, or one for "
              "this run alone")
      .typeName("FOLDER");
  arguments.footer(
      "The scenario has the unit's tables for itself: run it where no services are, or with --private.\n"
      "Exit codes, of several scenarios the highest:\n"
      "  0    all went as expected\n"
      "  1    an expectation was not met, or it was stopped\n"
      "  2    wrong arguments, or a scenario with a mistake\n"
      "  3    a file cannot be read or written, or the bench failed\n"
      "Examples:\n  idlctl run story.scn\n  echo 'phone add anna; bt pair anna; random 1000' | idlctl run - --seed 7\n"
      "  idlctl run examples/scenarios/*.scn --junit results.xml");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
