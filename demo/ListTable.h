// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_LISTTABLE_H
#define DEMO_LISTTABLE_H

#include <string>
#include <vector>

#include "demo/Row.h"

namespace demo {

/// The list as a table for a person, less than 80 columns wide; a name that is too long ends in "~". With `colour`, the
/// headings stand out.
std::string toTable(const std::vector<Row>& rows, bool colour);

/// Likewise, and rows that are not the same in `other` are marked with ">".
std::string toTable(const std::vector<Row>& rows, const std::vector<Row>& other, bool colour);

}  // namespace demo

#endif
