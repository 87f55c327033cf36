// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <iomanip>
#include <memory>

#include "tools/idlctl/Arguments.h"
#include "tools/idlctl/FindingOutput.h"
#include "tools/idlctl/PhoneOutput.h"
#include "tools/inspect/TableDump.h"
#include "tools/text/Escape.h"
#include "tools/text/JsonText.h"

namespace idl::tools {

namespace {

struct Options {
  std::string what;
  std::string format;
  bool isHex = false;
  bool isChecked = false;
  bool isJson = false;
};

std::string valueText(const DumpedField& field) {
  return field.kind == DumpedField::Kind::TEXT ? quotedText(field.text) + (field.hasEnd ? "" : " (without an end)")
                                               : numberText(field);
}

nlohmann::json asJson(const Source& source, const TableCopy& copy, const TableDump& dump) {
  nlohmann::json object;
  object["schema"] = JSON_SCHEMA;
  object["source"] = source.word;
  object["segment"] = source.segment;
  object["size"] = decimal(copy.objectSize);
  for (const DumpedField& field : dump.head) {
    setField(object, field);
  }
  object["slots"] = nlohmann::json::array();
  for (const DumpedSlot& slot : dump.slots) {
    object["slots"].push_back(jsonOf(slot));
  }
  return object;
}

void printHex(const std::string& bytes, std::ostream& out) {
  constexpr std::size_t WIDTH = 16;
  out << std::hex << std::setfill('0');
  for (std::size_t at = 0; at < bytes.size(); at += WIDTH) {
    const std::string line = bytes.substr(at, WIDTH);
    out << std::setw(6) << at << ' ';
    for (std::size_t k = 0; k < WIDTH; ++k) {
      if (k < line.size()) {
        out << ' ' << std::setw(2) << unsigned{static_cast<unsigned char>(line[k])};
      } else {
        out << "   ";
      }
    }
    out << "  ";
    for (const char byte : line) {
      out << (byte >= ' ' && byte <= '~' ? byte : '.');
    }
    out << '\n';
  }
  out << std::dec << std::setfill(' ');
}

void printTable(const Source& source, const TableCopy& copy, const TableDump& dump, const Streams& streams) {
  streams.out << source.segment << ": " << copy.objectSize << " bytes\n";
  for (const DumpedField& field : dump.head) {
    streams.out << field.name << ": " << valueText(field) << '\n';
  }
  if (!source.isTable) {
    return;
  }
  std::vector<TextTable::Column> columns = {{"Slot", Align::RIGHT}};
  if (!dump.slots.empty()) {
    for (const DumpedField& field : dump.slots[0].fields) {
      columns.push_back({field.name, field.kind == DumpedField::Kind::TEXT ? Align::LEFT : Align::RIGHT});
    }
  }
  TextTable table(columns);
  std::size_t free = 0;
  for (const DumpedSlot& slot : dump.slots) {
    if (!slot.isOccupied) {
      ++free;
      continue;
    }
    std::vector<TextTable::Cell> cells = {{std::to_string(slot.slot)}};
    for (const DumpedField& field : slot.fields) {
      cells.push_back({valueText(field)});
    }
    table.add(cells);
  }
  streams.out << table.text(streams.colour) << free << " of " << dump.slots.size() << " slots are free\n";
}

// What a file is, told by its size where nobody says.
const Source* formatOf(const Options& options, const TableCopy& copy) {
  if (!options.format.empty()) {
    return sourceCalled(options.format.c_str());
  }
  for (const Source* source : SOURCES) {
    if (source->segmentSize == copy.objectSize) {
      return source;
    }
  }
  return nullptr;
}

int run(const Options& options, const Streams& streams) {
  const Source* source = sourceCalled(options.what.c_str());
  TableCopy copy;
  if (source != nullptr) {
    copy = copyTable(*source);
  } else {
    const Source* largest = &CP_SOURCE;
    copy = copyFile(*largest, options.what);
    source = copy.isRead() ? formatOf(options, copy) : largest;
    if (source == nullptr) {
      streams.err << "idlctl: no table has " << copy.objectSize << " bytes; say with --as what "
                  << quotedText(options.what) << " is\n";
      return EXIT_USAGE;
    }
    copy.bytes.resize(std::min(copy.bytes.size(), source->segmentSize));
    copy.wasLocked = true;  // a file has no lock
  }
  if (!copy.isRead()) {
    streams.err << "idlctl: " << quotedText(options.what) << ": "
                << (copy.isAbsent()                               ? "absent"
                    : copy.state == TableCopy::State::NOT_A_TABLE ? "not a table"
                                                                  : std::strerror(copy.error))
                << '\n';
    return EXIT_CANNOT_OPEN;
  }
  if (!copy.wasLocked) {
    streams.err << source->word << ": read without lock\n";
  }
  const TableDump dump = dumpTable(*source, copy);
  std::vector<Finding> findings = checkObject(*source, copy);
  const std::vector<Finding> inRecords = checkRecords(*source, copy);
  findings.insert(findings.end(), inRecords.begin(), inRecords.end());
  if (options.isJson) {
    nlohmann::json object = asJson(*source, copy, dump);
    object["readWithoutLock"] = !copy.wasLocked;
    if (options.isChecked) {
      object["findings"] = jsonOf(findings);
    }
    streams.out << jsonText(object) << '\n';
  } else if (options.isHex) {
    printHex(copy.bytes, streams.out);
  } else {
    printTable(*source, copy, dump, streams);
  }
  if (options.isChecked && !options.isJson) {
    print(findings, streams.out, streams.colour);
  } else if (!options.isChecked && haveDamage(findings)) {
    streams.err << source->word << ": damaged; --check says what is wrong\n";
  }
  if (haveDamage(findings)) {
    return EXIT_DAMAGED;
  }
  return options.isChecked && !findings.empty() ? EXIT_NO : EXIT_YES;
}

}  // namespace

void addDump(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments.option("what", options->what, "bt, cp, aap or funcinfo; or a file that holds such a segment")
      .required()
      .typeName("SOURCE|FILE");
  arguments.option("--as", options->format, "what a file holds, if its size does not tell")
      .oneOf({"bt", "cp", "aap", "funcinfo"});
  const Argument hex = arguments.flag("--hex", options->isHex, "the bytes");
  arguments.flag("--check", options->isChecked, "say what is wrong with it, with 1 if anything is");
  arguments.flag("--json", options->isJson, "one JSON object").excludes(hex);
  arguments.footer(
      "Exit codes:\n"
      "  0    the table is told; with --check, nothing is wrong with it\n"
      "  1    --check found something, but no damage\n"
      "  2    wrong arguments, or a file whose size does not tell what it is\n"
      "  3    absent, or it cannot be read, or is no table\n"
      "  4    damaged, with --check or without\n"
      "Examples:\n  idlctl dump bt\n  idlctl dump cp --check\n  idlctl dump saved.bin --as aap --json");
  arguments.onChosen(options, run);
}

}  // namespace idl::tools
