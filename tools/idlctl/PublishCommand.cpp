// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/TableClaim.h"
#include "tools/idlctl/Command.h"
#include "tools/idlctl/DurationOption.h"
#include "tools/idlctl/Stopping.h"
#include "tools/scenario/Lexer.h"
#include "tools/text/Counted.h"
#include "tools/text/Escape.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds LOOK{1000};

struct Options {
  std::string source;
  std::vector<std::string> phones;
  std::string file;
  std::optional<std::uint64_t> current;
  bool keeps = false;
  std::optional<std::chrono::milliseconds> timeout;
};

/// Arguments or a file that say something else than a table.
class WrongInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

template <class Number>
Number numberOf(const std::string& key, const std::string& text) {
  try {
    std::size_t used = 0;
    const long long value = std::stoll(text, &used, 0);
    if (used == text.size() && static_cast<long long>(static_cast<Number>(value)) == value) {
      return static_cast<Number>(value);
    }
  } catch (const std::logic_error&) {
  }
  throw WrongInput(key + "=" + text + " is no number of the table");
}

template <>
std::uint64_t numberOf<std::uint64_t>(const std::string& key, const std::string& text) {
  try {
    std::size_t used = 0;
    const unsigned long long value = std::stoull(text, &used, 0);
    if (used == text.size() && text[0] != '-') {
      return value;
    }
  } catch (const std::logic_error&) {
  }
  throw WrongInput(key + "=" + text + " is no number of the table");
}

// The fields by the names that dump has for them. False for another name.
bool set(bench::BtPhone& phone, const std::string& key, const std::string& text) {
  if (key == "id") {
    phone.id = numberOf<std::uint8_t>(key, text);
  } else if (key == "name") {
    phone.name = text;
  } else if (key == "address") {
    phone.address = text;
  } else if (key == "info") {
    phone.info = numberOf<std::uint32_t>(key, text);
  } else if (key == "flag1") {
    phone.flag1 = numberOf<std::uint8_t>(key, text);
  } else if (key == "flag2") {
    phone.flag2 = numberOf<std::uint8_t>(key, text);
  } else {
    return false;
  }
  return true;
}

bool set(bench::CpPhone& phone, const std::string& key, const std::string& text) {
  if (key == "identifier") {
    phone.identifier = numberOf<std::uint64_t>(key, text);
  } else if (key == "name") {
    phone.name = text;
  } else if (key == "btid") {
    phone.btid = numberOf<std::uint8_t>(key, text);
  } else if (key == "inSession") {
    phone.inSession = numberOf<std::uint8_t>(key, text) != 0;
  } else if (key == "session") {
    phone.session = numberOf<std::uint8_t>(key, text);
  } else {
    return false;
  }
  return true;
}

bool set(bench::AapPhone& phone, const std::string& key, const std::string& text) {
  if (key == "id") {
    phone.id = text;
  } else if (key == "name") {
    phone.name = text;
  } else if (key == "session") {
    phone.session = numberOf<std::uint8_t>(key, text);
  } else if (key == "btid") {
    phone.btid = numberOf<std::uint8_t>(key, text);
  } else if (key == "port") {
    phone.port = numberOf<std::int32_t>(key, text);
  } else {
    return false;
  }
  return true;
}

// What makes a slot an occupied one, for whoever does not care which.
void identify(bench::BtPhone& phone, unsigned slot) { phone.id = static_cast<std::uint8_t>(slot + 1); }
void identify(bench::CpPhone& phone, unsigned slot) { phone.identifier = 1001 + slot; }
void identify(bench::AapPhone& phone, unsigned slot) { phone.id = "aap-" + std::to_string(slot + 1); }

template <class Phone>
Phone phoneOf(const std::string& argument, unsigned slot) {
  const scenario::Lexing lexing = scenario::lex("--phone", argument);
  if (!lexing.mistakes.empty()) {
    throw WrongInput(scenario::mistakeText(lexing.mistakes.front()));
  }
  Phone phone;
  identify(phone, slot);
  for (const scenario::Statement& statement : lexing.statements) {
    for (const scenario::Token& token : statement.tokens) {
      if (!token.isPair() || !set(phone, token.key, token.text)) {
        throw WrongInput("--phone: this table has no field '" + (token.isPair() ? token.key : token.text) + "'");
      }
    }
  }
  return phone;
}

// The shape that dump --json has; other members of a slot are left alone.
template <class Phone>
std::map<unsigned, Phone> phonesIn(const nlohmann::json& table) {
  std::map<unsigned, Phone> phones;
  for (const nlohmann::json& slot : table.at("slots")) {
    if (slot.contains("occupied") && !slot.at("occupied").get<bool>()) {
      continue;
    }
    Phone phone;
    for (const auto& [key, value] : slot.items()) {
      set(phone, key, value.is_string() ? value.template get<std::string>() : value.dump());
    }
    phones[slot.at("slot").get<unsigned>()] = phone;
  }
  return phones;
}

std::string readAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void setCurrent(bench::CpPublisher& publisher, std::uint64_t identifier) { publisher.setCurrentPhone(identifier); }

template <class Publisher>
void setCurrent(Publisher& /*publisher*/, std::uint64_t /*identifier*/) {
  throw WrongInput("--current is CarPlay's alone");
}

template <class Publisher>
int publish(const Options& options, const Streams& streams) {
  const bench::TableClaim claim(Publisher::SEGMENT);
  std::map<unsigned, typename Publisher::Phone> phones;
  std::string image;
  if (!options.file.empty()) {
    const std::string text = readAll(options.file);
    const nlohmann::json table = nlohmann::json::parse(text, nullptr, false);
    if (table.is_object()) {
      phones = phonesIn<typename Publisher::Phone>(table);
    } else {
      image = text;
    }
  }
  unsigned next = 0;
  for (const std::string& argument : options.phones) {
    while (phones.count(next) != 0) {
      ++next;
    }
    phones[next] = phoneOf<typename Publisher::Phone>(argument, next);
  }
  const Stopping stopping;
  Publisher publisher;
  if (!options.keeps) {
    publisher.initialise();
  }
  if (!image.empty()) {
    publisher.writeRaw(0, image);
  } else if (!phones.empty() || !options.keeps) {
    publisher.replaceAll(phones);
  }
  if (options.current) {
    setCurrent(publisher, *options.current);
  }
  streams.err << Publisher::SEGMENT << ": " << counted(publisher.phones().size(), "phone") << "; stop with Ctrl-C"
              << std::endl;
  const Deadline deadline(options.timeout);
  while (!deadline.isOver() && !stopping.within(deadline.atMost(LOOK))) {
  }
  return EXIT_YES;
}

int run(const Options& options, const Streams& streams) {
  try {
    if (options.source == "bt") {
      return publish<bench::BtPublisher>(options, streams);
    }
    return options.source == "cp" ? publish<bench::CpPublisher>(options, streams)
                                  : publish<bench::AapPublisher>(options, streams);
  } catch (const bench::TableTaken& taken) {
    streams.err << "idlctl: " << printable(taken.what()) << '\n';
    return EXIT_NO;
  } catch (const WrongInput& wrong) {
    streams.err << "idlctl: " << printable(wrong.what()) << '\n';
    return EXIT_USAGE;
  } catch (const nlohmann::json::exception& wrong) {
    streams.err << "idlctl: " << quotedText(options.file) << ": " << printable(wrong.what()) << '\n';
    return EXIT_USAGE;
  } catch (const std::out_of_range& wrong) {
    streams.err << "idlctl: " << printable(wrong.what()) << '\n';
    return EXIT_USAGE;
  }
}

}  // namespace

void addPublish(CLI::App& app, Action& action) {
  const auto options = std::make_shared<Options>();
  app.add_option("source", options->source, "bt, cp or aap")->required()->check(CLI::IsMember({"bt", "cp", "aap"}));
  app.add_option("--phone", options->phones,
                 "a phone: fields by the names that dump has for them; without its id one of the slot's")
      ->type_name("'KEY=VALUE ...'")
      ->expected(1)
      ->take_all();
  app.add_option("--file", options->file, "a table as dump --json prints it, or the bytes of a segment");
  app.add_option("--current", options->current, "the identifier of the phone that CarPlay has connected");
  app.add_flag("--keep", options->keeps, "begin with the table that is there instead of an empty one");
  addDuration(app, "--timeout", options->timeout, "stop after that time");
  app.footer(
      "The table stays when this is stopped, as a service's does.\n"
      "Exit codes:\n"
      "  0    stopped, or the time is over\n"
      "  1    another stand-in has the table\n"
      "  2    wrong arguments, or a file that says something else than a table\n"
      "  3    the file cannot be read, or the table not be written\n"
      "Examples:\n"
      "  idlctl publish bt --phone 'name=\"iPhone\" id=3' --phone 'name=\"iPhone\" id=4'\n"
      "  idlctl dump bt --json >table.json; idlctl publish bt --file table.json");
  onChosen(app, action, options, run);
}

}  // namespace idl::tools
