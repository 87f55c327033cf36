// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/TableWriter.h"

#include <algorithm>

#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"

namespace idl::tools::recording {

namespace {

// What is behind a segment's end is nobody's; a recording must not fill the memory with it.
constexpr std::uint64_t LONGEST_OBJECT = 1 << 20;

/// One table's stand-in, from the first time that the table is there.
template <class Publisher>
class Table {
 public:
  explicit Table(const char* segment) : mSegment(segment) {}

  void put(const TableCopy& copy) {
    if (copy.state == TableCopy::State::UNREADABLE) {
      return;
    }
    if (copy.isAbsent()) {
      bench::removeObject(mSegment);
      mPublisher.reset();
      return;
    }
    // Around both, so that nobody sees the zeros of a segment that is new.
    const LmSharedSyncObject lock(mSegment);
    const LmSyncGuard guard(lock);
    if (mPublisher == nullptr) {
      mPublisher = std::make_unique<Publisher>();
    }
    mPublisher->replaceImage(copy.bytes, static_cast<std::size_t>(std::min(copy.objectSize, LONGEST_OBJECT)));
  }

 private:
  const char* const mSegment;
  std::unique_ptr<Publisher> mPublisher;
};

}  // namespace

struct TableWriter::Publishers {
  Table<bench::BtPublisher> bt{BT_SOURCE.segment};
  Table<bench::CpPublisher> cp{CP_SOURCE.segment};
  Table<bench::AapPublisher> aap{AAP_SOURCE.segment};
  Table<bench::FuncInfoPublisher> funcInfo{FUNC_INFO_SOURCE.segment};
};

TableWriter::TableWriter() : mPublishers(std::make_unique<Publishers>()) {}

TableWriter::~TableWriter() = default;

void TableWriter::put(const Source& source, const TableCopy& copy) {
  if (&source == &BT_SOURCE) {
    mPublishers->bt.put(copy);
  } else if (&source == &CP_SOURCE) {
    mPublishers->cp.put(copy);
  } else {
    mPublishers->aap.put(copy);
  }
}

void TableWriter::putFuncInfo(const TableCopy& copy) { mPublishers->funcInfo.put(copy); }

}  // namespace idl::tools::recording
