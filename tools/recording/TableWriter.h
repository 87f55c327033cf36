// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_TABLEWRITER_H
#define TOOLS_RECORDING_TABLEWRITER_H

#include <memory>

#include "tools/inspect/TableCopy.h"

namespace idl::tools::recording {

/// Publishes tables as they were copied, byte by byte, through the bench's stand-ins, and tells of each change. Claims
/// none of them: whoever uses it has claimed all, or is alone. Tables that are absent are not made; they stay when this
/// is gone.
/// @throw std::runtime_error from every function when a table cannot be written
class TableWriter {
 public:
  TableWriter();
  ~TableWriter();

  TableWriter(const TableWriter&) = delete;
  TableWriter& operator=(const TableWriter&) = delete;

  /// The table of `source` is like `copy` from now on. Where that is absent, so is the table; where it is no table, the
  /// segment has no bytes, which clients take for the same. One that could not be read stays as it is.
  void put(const Source& source, const TableCopy& copy);

  void putFuncInfo(const TableCopy& copy);

 private:
  struct Publishers;

  const std::unique_ptr<Publishers> mPublishers;
};

}  // namespace idl::tools::recording

#endif
