// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_TEXT_COUNTED_H
#define TOOLS_TEXT_COUNTED_H

#include <cstdint>
#include <string>

namespace idl::tools {

/// "1 phone", "2 phones", for a noun whose plural takes an s.
inline std::string counted(std::uint64_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

}  // namespace idl::tools

#endif
