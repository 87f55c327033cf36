// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_TABLECOPY_H
#define TOOLS_INSPECT_TABLECOPY_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/inspect/Source.h"

namespace idl::tools {

/// A segment as it was at one moment, and what its object is; read without changing anything.
struct TableCopy {
  enum class State {
    ABSENT,
    UNREADABLE,   // `error` says why
    NOT_A_TABLE,  // a folder, a pipe or whatever: nobody's table; clients take it for an empty one
    READ,
  };

  State state = State::ABSENT;
  int error = 0;
  std::string bytes;  // from the size word on; as many as the object has, at most a segment's
  std::uint64_t objectSize = 0;
  mode_t mode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  bool wasLocked = false;  // the copy was made under the table's lock
  bool isSettled = true;   // or two copies were the same; else somebody was writing all the time

  bool isRead() const { return state == State::READ; }
  bool isAbsent() const { return state == State::ABSENT; }
};

/// Copies the segment of `source` under its lock where this process may take it; where it may not, or the lock is not
/// free for a while, copies until two copies are the same. Takes 200 ms at most.
TableCopy copyTable(const Source& source);

/// Copies the segment once, whoever holds its lock.
TableCopy copyTableAtOnce(const Source& source);

/// The same of a file, without a lock.
TableCopy copyFile(const Source& source, const std::string& path);

/// A field at `offset` of the segment; zero where the copy is too short.
template <class Field>
Field fieldAt(const TableCopy& copy, std::size_t offset);

}  // namespace idl::tools

#include <cstring>

template <class Field>
Field idl::tools::fieldAt(const TableCopy& copy, std::size_t offset) {
  Field field = {};
  if (copy.bytes.size() >= offset + sizeof(field)) {
    std::memcpy(&field, copy.bytes.data() + offset, sizeof(field));
  }
  return field;
}

#endif
