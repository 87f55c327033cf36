// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Record.h"

#include <cstring>

#include "tools/scenario/Bench.h"

namespace idl::tools::scenario {

Record& Record::add(std::uint64_t number) {
  char bytes[sizeof(number)];
  std::memcpy(bytes, &number, sizeof(number));
  mBytes.append(bytes, sizeof(bytes));
  return *this;
}

Record& Record::add(const std::string& text) {
  add(text.size());
  mBytes += text;
  return *this;
}

std::uint64_t Record::number() {
  std::uint64_t number = 0;
  if (mBytes.size() - mRead < sizeof(number)) {
    throw BenchTrouble("a record ends too early");
  }
  std::memcpy(&number, mBytes.data() + mRead, sizeof(number));
  mRead += sizeof(number);
  return number;
}

std::string Record::text() {
  const std::uint64_t length = number();
  if (mBytes.size() - mRead < length) {
    throw BenchTrouble("a record ends too early");
  }
  std::string text = mBytes.substr(mRead, static_cast<std::size_t>(length));
  mRead += text.size();
  return text;
}

}  // namespace idl::tools::scenario
