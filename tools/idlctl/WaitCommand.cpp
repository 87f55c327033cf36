// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <memory>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/idlctl/Stopping.h"
#include "tools/inspect/LiveList.h"
#include "tools/text/Glob.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds INTERVAL{50};

struct Options {
  std::string saveFolder;
  std::optional<std::string> name;
  std::optional<unsigned> btid;
  std::optional<std::string> type;
  std::optional<unsigned> count;
  std::string source;
  std::string state;
  bool isJson = false;
  std::optional<std::chrono::milliseconds> timeout;
};

bool isMeant(const LmSIntegratedDeviceListDef::DeviceInfo& phone, const Options& options) {
  return (!options.name || globMatches(*options.name, phone.name)) && (!options.btid || *options.btid == phone.btid) &&
         (!options.type || *options.type == sourceOf(phone.type).word);
}

bool holds(const LiveList& list, const Options& options) {
  if (!options.source.empty()) {
    const bool isPresent = isThere(list.unit().of(*sourceCalled(options.source.c_str())));
    if (isPresent != (options.state == "present")) {
      return false;
    }
  }
  if (!options.name && !options.btid && !options.type && !options.count) {
    return true;
  }
  const auto meant = static_cast<std::size_t>(std::count_if(
      list.phones().begin(), list.phones().end(), [&](const auto& phone) { return isMeant(phone, options); }));
  return options.count ? meant == *options.count : meant > 0;
}

int tell(bool isTrue, const LiveList& list, const Options& options, const Streams& streams) {
  if (options.isJson) {
    nlohmann::json object;
    object["schema"] = JSON_SCHEMA;
    object["holds"] = isTrue;
    object["devices"] = nlohmann::json::array();
    for (const auto& phone : list.phones()) {
      if (isMeant(phone, options)) {
        object["devices"].push_back(jsonOf(phone));
      }
    }
    streams.out << jsonText(object) << '\n';
  } else if (!isTrue) {
    streams.err << "idlctl: timed out\n";
  }
  return isTrue ? EXIT_YES : EXIT_TIMED_OUT;
}

int run(const Options& options, const Streams& streams) {
  const Stopping stopping;
  const Deadline deadline(options.timeout);
  LiveList list(options.saveFolder);
  saySources(list.unit(), streams.err);
  for (;;) {
    if (holds(list, options)) {
      return tell(true, list, options, streams);
    }
    if (deadline.isOver()) {
      return tell(false, list, options, streams);
    }
    if (stopping.within(deadline.atMost(INTERVAL))) {
      return EXIT_NO;
    }
    list.poll();
  }
}

}  // namespace

void addWait(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option(
      "--save-dir", options->saveFolder,
      "the folder of the saved numbers; else LM_SAVE_FILE_DIR, the system's if it exists, this user's own");
  const Argument name =
      arguments.option("--name", options->name, "a phone is displayed so; *, ? and [] as in a shell").typeName("GLOB");
  const Argument btid = arguments.option("--btid", options->btid, "a phone has that Bluetooth id").inRange(0, 255);
  const Argument type =
      arguments.option("--type", options->type, "a phone's header is that source's").oneOf({"bt", "cp", "aap"});
  const Argument count =
      arguments.option("--count", options->count, "so many phones are listed of which the above is true").notNegative();
  const Argument source = arguments.option("--source", options->source, "a table").oneOf({"bt", "cp", "aap"});
  const Argument state =
      arguments.option("--state", options->state, "what it has to be").oneOf({"present", "absent"}).needs(source);
  source.needs(state);
  arguments.flag("--json", options->isJson, "one JSON object");
  arguments.duration("--timeout", options->timeout, "give up after that time, with 124");
  arguments.footer(
      "All that is asked for has to be true at once.\n"
      "Exit codes:\n"
      "  0    it is true\n"
      "  1    stopped before it was\n"
      "  2    wrong arguments\n"
      "  124  timed out before it was\n"
      "Examples:\n  idlctl wait --name 'iPhone*' --timeout 5s\n"
      "  idlctl wait --count 0\n  idlctl wait --source bt --state present");
  arguments.requireAny({name, btid, type, count, source},
                       "what to wait for: --name, --btid, --type, --count or --source");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
