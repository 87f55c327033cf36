// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/RandomCommands.h"

#include "tools/text/Escape.h"

namespace idl::tools::scenario {

namespace {

constexpr std::size_t MOST_PHONES = 6;  // no table is full with as many

std::string sessionOf(std::size_t number) { return number == 0 ? "" : " session=" + std::to_string(number); }

}  // namespace

std::string RandomCommands::next(const Roster& roster, bool clientRuns) {
  if (!clientRuns) {
    return "client start";
  }
  const std::vector<std::string> handles = roster.handles();
  if (handles.empty() || (handles.size() < MOST_PHONES && below(4) == 0)) {
    return newPhone(roster);
  }
  return below(8) == 0 ? aboutProcesses(roster) : aboutPhone(roster, oneOf(handles));
}

std::string RandomCommands::newPhone(const Roster& roster) {
  std::size_t number = 1;
  while (roster.has("r" + std::to_string(number))) {
    ++number;
  }
  std::string command = "phone add r" + std::to_string(number) + " name=" + name();
  if (below(2) == 0) {
    command += " port=" + std::to_string(1 + below(3));
  }
  return command;
}

std::string RandomCommands::aboutPhone(const Roster& roster, const std::string& handle) {
  std::vector<std::string> ideas = {"phone rename " + handle + ' ' + name()};
  if (roster.listing(Source::BT, handle) == nullptr) {
    ideas.push_back("bt pair " + handle);
  } else {
    ideas.push_back("bt unpair " + handle);
    ideas.push_back("bt rename " + handle + ' ' + name());
  }
  ideas.push_back("cp connect " + handle + sessionOf(below(3)));
  ideas.push_back("cp known " + handle);
  ideas.emplace_back("cp disconnect");
  if (roster.listing(Source::CP, handle) != nullptr) {
    ideas.push_back("cp forget " + handle);
  }
  // One by one: which operand of a plus is made first is the compiler's choice.
  const std::string port = std::to_string(1 + below(3));
  const std::string session = sessionOf(below(3));
  ideas.push_back("aap plug " + handle + " port=" + port + session);
  ideas.push_back("aap known " + handle);
  if (roster.listing(Source::AAP, handle) != nullptr) {
    ideas.push_back("aap unplug " + handle);
    ideas.push_back("aap forget " + handle);
  }
  return oneOf(ideas);
}

std::string RandomCommands::aboutProcesses(const Roster& roster) {
  const Source source = SOURCES.at(below(SOURCES.size()));
  const std::string word = wordOf(source);
  std::vector<std::string> ideas = {word + " clear",
                                    word + " restart",
                                    word + " restart keep=no",
                                    word + " crash while=locked",
                                    "client refresh " + word,
                                    "client restart",
                                    "client kill"};
  if (roster.firstListed(source)) {
    ideas.push_back(word + " crash while=half");
    ideas.push_back(word + " crash while=notify");
  }
  return oneOf(ideas);
}

std::string RandomCommands::name() {
  // Few, so that many phones share one; with some that look like another one's displayed name.
  static const std::vector<std::string> NAMES = {
      "iPhone",     "iPhone",
      "iPhone 2",   "Pixel",
      "Pixel 2",    "",
      "Anna \"A\"", "T\xc3\xa9l\xc3\xa9phone",
      "\xff\xfe",   "\xe6\x90\xba\xe5\xb8\xaf",
  };
  return quotedText(oneOf(NAMES));
}

}  // namespace idl::tools::scenario
