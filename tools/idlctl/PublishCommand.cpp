// SPDX-License-Identifier: Apache-2.0
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <type_traits>

#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/TableClaim.h"
#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/InputFile.h"
#include "tools/idlctl/Stopping.h"
#include "tools/inspect/Source.h"
#include "tools/scenario/Lexer.h"
#include "tools/text/Counted.h"
#include "tools/text/Escape.h"
#include "tools/text/Number.h"

namespace idl::tools {

namespace {

constexpr std::chrono::milliseconds LOOK{1000};

struct Options {
  std::string source;
  std::vector<std::string> phones;
  std::string file;
  std::optional<std::string> current;
  bool keeps = false;
  std::optional<std::chrono::milliseconds> timeout;
};

/// Arguments or a file that say something else than a table.
class WrongInput : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void noNumber(const std::string& key, const std::string& text) {
  throw WrongInput(key + "=" + text + " is no number of the table");
}

template <class Number>
Number numberOf(const std::string& key, const std::string& text) {
  const auto number = unsignedNumber(text);
  if (!number || *number > std::numeric_limits<Number>::max()) {
    noNumber(key, text);
  }
  return static_cast<Number>(*number);
}

template <>
std::int32_t numberOf<std::int32_t>(const std::string& key, const std::string& text) {
  const auto number = signedNumber(text);
  if (!number) {
    noNumber(key, text);
  }
  return *number;
}

const std::string& textOf(const std::string& key, const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw WrongInput(key + ": a text of the table holds no NUL");
  }
  return text;
}

// The fields by the names that dump has for them. False for another name.
bool set(bench::BtPhone& phone, const std::string& key, const std::string& text) {
  if (key == "id") {
    phone.id = numberOf<std::uint8_t>(key, text);
  } else if (key == "name") {
    phone.name = textOf(key, text);
  } else if (key == "address") {
    phone.address = textOf(key, text);
  } else if (key == "info") {
    phone.info = numberOf<std::uint32_t>(key, text);
  } else if (key == "flag1") {
    phone.flag1 = numberOf<std::uint8_t>(key, text);
  } else if (key == "flag2") {
    phone.flag2 = numberOf<std::uint8_t>(key, text);
  } else if (key == "header") {
    phone.header = numberOf<std::uint32_t>(key, text);
  } else {
    return false;
  }
  return true;
}

bool set(bench::CpPhone& phone, const std::string& key, const std::string& text) {
  if (key == "identifier") {
    phone.identifier = numberOf<std::uint64_t>(key, text);
  } else if (key == "name") {
    phone.name = textOf(key, text);
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
    phone.id = textOf(key, text);
  } else if (key == "name") {
    phone.name = textOf(key, text);
  } else if (key == "session") {
    phone.session = numberOf<std::uint8_t>(key, text);
  } else if (key == "btid") {
    phone.btid = numberOf<std::uint8_t>(key, text);
  } else if (key == "port") {
    phone.port = numberOf<std::int32_t>(key, text);
  } else if (key == "header") {
    phone.header = numberOf<std::uint32_t>(key, text);
  } else {
    return false;
  }
  return true;
}

// What makes a slot an occupied one, for whoever does not care which.
void identify(bench::BtPhone& phone, unsigned slot) { phone.id = static_cast<std::uint8_t>(slot + 1); }
void identify(bench::CpPhone& phone, unsigned slot) { phone.identifier = 1001 + slot; }
void identify(bench::AapPhone& phone, unsigned slot) { phone.id = "aap-" + std::to_string(slot + 1); }

bool leavesSlotFree(const bench::BtPhone& phone) { return bench::BtFormat::isFree(bench::BtFormat::slotOf(phone)); }
bool leavesSlotFree(const bench::CpPhone& phone) { return bench::CpFormat::isFree(bench::CpFormat::slotOf(phone)); }
bool leavesSlotFree(const bench::AapPhone& phone) { return bench::AapFormat::isFree(bench::AapFormat::slotOf(phone)); }

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

unsigned slotOf(const nlohmann::json& slot, unsigned slotCount) {
  const nlohmann::json& number = slot.at("slot");
  if (!number.is_number_unsigned() || number.get<std::uint64_t>() >= slotCount) {
    throw WrongInput("there is no slot " + number.dump() + ": the table has 0 to " + std::to_string(slotCount - 1));
  }
  return number.get<unsigned>();
}

std::string valueText(const nlohmann::json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

// What dump puts beside a text that is no UTF-8.
constexpr std::string_view HEX = "Hex";

bool isHex(const std::string& key) {
  return key.size() > HEX.size() && key.compare(key.size() - HEX.size(), HEX.size(), HEX) == 0;
}

std::string bytesOf(const std::string& key, const std::string& digits) {
  std::string bytes;
  for (std::size_t at = 0; at < digits.size(); at += 2) {
    const auto byte = unsignedNumber("0x" + digits.substr(at, 2));
    if (!byte || digits.size() % 2 != 0) {
      throw WrongInput(key + ": these are no bytes in hexadecimal");
    }
    bytes += static_cast<char>(*byte);
  }
  return bytes;
}

// The shape that dump --json has; other members of a slot are left alone.
template <class Phone>
std::map<unsigned, Phone> phonesIn(const nlohmann::json& table, unsigned slotCount) {
  std::map<unsigned, Phone> phones;
  for (const nlohmann::json& slot : table.at("slots")) {
    const unsigned number = slotOf(slot, slotCount);
    if (slot.contains("occupied") && !slot.at("occupied").get<bool>()) {
      continue;
    }
    Phone phone;
    for (const auto& [key, value] : slot.items()) {
      if (isHex(key)) {
        set(phone, key.substr(0, key.size() - HEX.size()), bytesOf(key, value.template get<std::string>()));
      } else if (!slot.contains(key + std::string(HEX))) {
        set(phone, key, valueText(value));
      }
    }
    if (!phones.emplace(number, phone).second) {
      throw WrongInput("slot " + std::to_string(number) + " is given twice");
    }
  }
  return phones;
}

/// What is to be in the table, checked.
template <class Phone>
struct Content {
  std::map<unsigned, Phone> phones;
  std::string image;  // in the place of the phones: the segment's bytes
  std::optional<std::uint64_t> current;
};

template <class Phone>
void readFile(const Options& options, unsigned slotCount, Content<Phone>& content) {
  const Source& source = *sourceCalled(options.source.c_str());
  const std::string text = contentOf(options.file);
  nlohmann::json table;
  try {
    table = nlohmann::json::parse(text);
  } catch (const nlohmann::json::parse_error& wrong) {
    if (text.size() != source.segmentSize) {
      throw WrongInput(options.file + ": neither the " + std::to_string(source.segmentSize) + " bytes of " +
                       source.segment + " nor JSON: " + wrong.what());
    }
    content.image = text;
    return;
  }
  if (!table.is_object()) {
    throw WrongInput(options.file + ": this JSON is no table, which is an object");
  }
  const auto whose = table.find("source");
  if (whose != table.end() && *whose != options.source) {
    throw WrongInput(options.file + ": the table of " + whose->dump() + ", not of " + options.source);
  }
  content.phones = phonesIn<Phone>(table, slotCount);
  const auto current = table.find("currentPhone");
  if (current != table.end()) {
    content.current = numberOf<std::uint64_t>("currentPhone", valueText(*current));
  }
}

/// @throw WrongInput and others, before anything of the table is touched.
template <class Publisher>
Content<typename Publisher::Phone> contentOf(const Options& options) {
  using Phone = typename Publisher::Phone;
  Content<Phone> content;
  if (!options.file.empty()) {
    readFile(options, Publisher::SLOT_COUNT, content);
  }
  if (!content.image.empty() && !options.phones.empty()) {
    throw WrongInput("--phone adds nothing to the bytes of a segment");
  }
  unsigned next = 0;
  for (const std::string& argument : options.phones) {
    while (content.phones.count(next) != 0) {
      ++next;
    }
    if (next >= Publisher::SLOT_COUNT) {
      throw WrongInput("the table has room for " + counted(Publisher::SLOT_COUNT, "phone"));
    }
    content.phones[next] = phoneOf<Phone>(argument, next);
  }
  for (const auto& [slot, phone] : content.phones) {
    if (leavesSlotFree(phone)) {
      throw WrongInput("slot " + std::to_string(slot) + ": a phone of that identifier would leave its slot free");
    }
  }
  if (options.current) {
    if (!std::is_same_v<Publisher, bench::CpPublisher>) {
      throw WrongInput("--current is CarPlay's alone");
    }
    content.current = numberOf<std::uint64_t>("--current", *options.current);
  }
  return content;
}

template <class Publisher>
int publish(const Options& options, const Streams& streams) {
  const Content<typename Publisher::Phone> content = contentOf<Publisher>(options);
  const bench::TableClaim claim(Publisher::SEGMENT);
  const Stopping stopping;
  Publisher publisher;
  if (!options.keeps) {
    publisher.initialise();
  }
  if (!content.image.empty()) {
    publisher.writeRaw(0, content.image);
  } else if (!content.phones.empty() || !options.keeps) {
    publisher.replaceAll(content.phones);
  }
  if constexpr (std::is_same_v<Publisher, bench::CpPublisher>) {
    if (content.current) {
      publisher.setCurrentPhone(*content.current);
    }
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
  }
}

}  // namespace

void addPublish(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("source", options->source, "bt, cp or aap").required().oneOf({"bt", "cp", "aap"});
  arguments
      .option("--phone", options->phones,
              "a phone: fields by the names that dump has for them; without its id one of the slot's")
      .typeName("'KEY=VALUE ...'")
      .repeatable();
  arguments.option("--file", options->file,
                   "a table as dump --json prints it, or the bytes of a segment; JSON has the phones alone, not what "
                   "free slots hold");
  arguments.option("--current", options->current, "the identifier of the phone that CarPlay has connected")
      .typeName("ID");
  arguments.flag("--keep", options->keeps, "begin with the table that is there instead of an empty one");
  arguments.duration("--timeout", options->timeout, "stop after that time");
  arguments.footer(
      "The table stays when this is stopped, as a service's does.\n"
      "Exit codes:\n"
      "  0    stopped, or the time is over\n"
      "  1    another stand-in has the table\n"
      "  2    wrong arguments, or a file that says something else than a table\n"
      "  3    the file cannot be read, or the table not be written\n"
      "Examples:\n"
      "  idlctl publish bt --phone 'name=\"iPhone\" id=3' --phone 'name=\"iPhone\" id=4'\n"
      "  idlctl dump bt --json >table.json; idlctl publish bt --file table.json");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
