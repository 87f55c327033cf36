// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_FINDINGS_H
#define TOOLS_INSPECT_FINDINGS_H

#include <string>
#include <vector>

#include "tools/inspect/LockView.h"
#include "tools/inspect/Unit.h"

namespace idl::tools {

/// Something that is not as it should be, in plain words.
struct Finding {
  std::string about;      // a source's word, "saved" or "list"
  std::string id;         // of the rule, for scripts: "bt-not-written"
  std::string what;       // a sentence
  std::string advice;     // what to do; a sentence
  bool isDamage = false;  // the bytes are not what the format allows
};

/// What is wrong with the object itself: absent, too short, not to be read, of a wrong size word.
std::vector<Finding> checkObject(const Source& source, const TableCopy& copy);

/// What is suspicious in the records of one table.
std::vector<Finding> checkRecords(const Source& source, const TableCopy& copy);

std::vector<Finding> checkLock(const Source& source, const LockView& lock);

std::vector<Finding> checkSaved(const SavedTableCopy& saved);

/// What only shows when all tables are seen together.
std::vector<Finding> checkList(const Unit& unit, const ListNow& list);

}  // namespace idl::tools

#endif
