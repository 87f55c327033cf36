// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_TABLEDUMP_H
#define TOOLS_INSPECT_TABLEDUMP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/inspect/TableCopy.h"

namespace idl::tools {

/// A field of a table as it stands there.
struct DumpedField {
  enum class Kind { NUMBER, LONG_NUMBER, TEXT };  // LONG_NUMBER: of 64 bits

  const char* name;
  Kind kind;
  std::uint64_t number = 0;  // as 64 bits of two's complement where it is signed
  bool isSigned = false;
  std::string text;    // up to the first 0
  bool hasEnd = true;  // of a text: there is a 0 in the field
};

struct DumpedSlot {
  unsigned slot;
  bool isOccupied;  // as a client takes it
  std::vector<DumpedField> fields;
};

struct TableDump {
  std::vector<DumpedField> head;  // fields that are no slot's
  std::vector<DumpedSlot> slots;  // those that the object reaches to the end of
};

/// Every field of the formats that means something to a reader, in the order of the bytes.
TableDump dumpTable(const Source& source, const TableCopy& copy);

}  // namespace idl::tools

#endif
