// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_RECORD_H
#define TOOLS_SCENARIO_RECORD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace idl::tools::scenario {

/// What the bench and its processes tell each other: numbers and texts, read in the order in which they were added.
///
/// Both ends are the same program, so the bytes have no version.
class Record {
 public:
  Record() = default;
  explicit Record(std::string bytes) : mBytes(std::move(bytes)) {}

  Record& add(std::uint64_t number);
  Record& add(const std::string& text);

  /// @throw BenchTrouble when there is nothing left of this kind.
  std::uint64_t number();
  std::string text();

  const std::string& bytes() const { return mBytes; }

 private:
  std::string mBytes;
  std::size_t mRead = 0;
};

}  // namespace idl::tools::scenario

#endif
