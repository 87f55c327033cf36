// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_TABLECLAIM_H
#define SIMULATOR_TABLECLAIM_H

#include <stdexcept>
#include <string>

namespace idl::bench {

/// Another stand-in has the table.
class TableTaken : public std::runtime_error {
 public:
  /// `table` is the segment's bare name.
  explicit TableTaken(const std::string& table);
};

/// A table is this stand-in's for as long as this lives: a second one that claims it is refused.
///
/// It is about the bench's own programs, of which somebody may start two by mistake; a real service neither claims nor
/// asks. What holds the claim is a lock of the kernel's on the shared-memory file "LmBench.NAME" (mode 0660), so that
/// it is given back however the process dies. The file stays; whoever removes it lets the next one in. A child that is
/// forked meanwhile has a part in the claim until it ends or runs another program.
class TableClaim {
 public:
  /// `table` is the segment's bare name. Does not wait.
  /// @throw TableTaken when it is another's; std::runtime_error when the file cannot be opened or locked.
  explicit TableClaim(const std::string& table);
  ~TableClaim();

  TableClaim(const TableClaim&) = delete;
  TableClaim& operator=(const TableClaim&) = delete;

 private:
  const int mFile;
};

}  // namespace idl::bench

#endif
