// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "tools/comply/TableWatch.h"
#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/text/Hexadecimal.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

using comply::Finding;
using comply::Verdict;

constexpr std::chrono::milliseconds DURATION{10000};

struct Options {
  std::string source;
  bool isJson = false;
  std::optional<std::chrono::milliseconds> duration;
  std::optional<unsigned> notification;
};

const char* wordOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::PASSED:
      return "passed";
    case Verdict::BROKEN:
      return "broken";
    case Verdict::UNKNOWN:
      break;
  }
  return "unknown";
}

nlohmann::json jsonOf(const Finding& finding) {
  nlohmann::json object;
  object["id"] = comply::idOf(finding.rule);
  object["verdict"] = wordOf(finding.verdict);
  object["seen"] = finding.seen;
  object["why"] = finding.why;
  if (finding.offence) {
    object["offending"] = {{"at", finding.offence->at}, {"hex", hexadecimalOf(finding.offence->bytes)}};
  }
  return object;
}

void print(const Finding& finding, const Streams& streams) {
  const char* colour = !streams.colour                      ? ""
                       : finding.verdict == Verdict::BROKEN ? "\x1b[31m"
                       : finding.verdict == Verdict::PASSED ? "\x1b[32m"
                                                            : "\x1b[33m";
  const std::string word = wordOf(finding.verdict);
  streams.out << colour << word << (streams.colour ? "\x1b[0m" : "") << std::string(9 - word.size(), ' ')
              << comply::titleOf(finding.rule) << ": " << finding.why << '\n';
  if (finding.offence) {
    streams.out << "         at " << finding.offence->at << ": " << hexadecimalOf(finding.offence->bytes) << '\n';
  }
}

int run(const Options& options, const Streams& streams) {
  const Source& source = *sourceCalled(options.source.c_str());
  const Stopping stopping;
  const auto start = std::chrono::steady_clock::now();
  const Deadline deadline(options.duration.value_or(DURATION));
  comply::TableWatch watch(source, options.notification);
  bool isStopped = false;
  while (!isStopped && !deadline.isOver()) {
    watch.sample();
    isStopped = stopping.within(std::chrono::milliseconds(0));
  }
  while (!isStopped && watch.isChangePending()) {
    watch.awaitNotification();
    isStopped = stopping.within(std::chrono::milliseconds(0));
  }
  if (!watch.wasThere()) {
    streams.err << "idlctl: " << source.word << " (" << source.segment << "): was not there, or not to be read\n";
    return EXIT_CANNOT_OPEN;
  }
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  bool isBroken = false;
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  object["source"] = source.word;
  object["durationMs"] = took.count();
  object["samples"] = watch.samples();
  object["samplesUnderLock"] = watch.samplesUnderLock();
  object["changes"] = watch.changes();
  object["rules"] = nlohmann::json::array();
  for (const comply::Rule rule : comply::RULES) {
    const Finding finding = watch.findingOf(rule);
    isBroken = isBroken || finding.verdict == Verdict::BROKEN;
    object["rules"].push_back(jsonOf(finding));
    if (!options.isJson) {
      print(finding, streams);
    }
  }
  if (options.isJson) {
    streams.out << jsonText(object) << '\n';
  } else {
    streams.err << watch.samples() << " looks, " << watch.samplesUnderLock() << " of them with the lock held, "
                << watch.changes() << " changes\n";
  }
  streams.out.flush();
  if (!streams.out) {
    streams.err << "idlctl: standard output could not be written to its end\n";
    return EXIT_CANNOT_OPEN;
  }
  return isBroken ? EXIT_NO : EXIT_YES;
}

}  // namespace

void addComply(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("source", options->source, "bt, cp or aap").required().oneOf({"bt", "cp", "aap"});
  arguments.flag("--json", options->isJson, "one JSON object");
  arguments.duration("--for", options->duration, "watch for that long, 10s");
  arguments.option("--notification", options->notification,
                   "the id under which this service tells of its changes; CarPlay's is known");
  arguments.footer(
      "Run it beside the service while that is at work. What cannot be seen is unknown. It holds the table's lock for\n"
      "3 ms at a time.\n"
      "Exit codes:\n"
      "  0    no rule was seen broken\n"
      "  1    a rule is broken\n"
      "  2    wrong arguments\n"
      "  3    the table was never there, or cannot be read, or the output not be written\n"
      "Examples:\n  idlctl comply cp\n  idlctl comply bt --for 60s --json");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
