// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_RECORDING_H
#define TOOLS_RECORDING_RECORDING_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "tools/inspect/SavedTableCopy.h"
#include "tools/inspect/TableCopy.h"

/// What happened to a unit's tables, and what its list became of it, over time. docs/recordings.md has the format.
namespace idl::tools::recording {

/// The version of the format that is written, and the only one that is read.
constexpr unsigned VERSION = 1;

/// That of each line, in its member "schema".
constexpr unsigned SCHEMA = 1;

/// A phone of a list in every bit of it: the header, and the records' fields one after the other, little-endian and
/// without gaps.
struct RecordedRow {
  LmSIntegratedDeviceListDef::DeviceInfo header;
  std::string bt;   // id, name, address, info, flag1, flag2
  std::string cp;   // the entry of the phone table
  std::string aap;  // session, name, id, btid, port
};

/// Where the fields of such records lie.
struct RowFormat {
  static constexpr std::size_t BT_NAME = 1;
  static constexpr std::size_t BT_NAME_SIZE = BtPairedDevice::NAME_LENGTH + 1;
  static constexpr std::size_t BT_ADDRESS = BT_NAME + BT_NAME_SIZE;
  static constexpr std::size_t BT_ADDRESS_SIZE = BtPairedDevice::ADDRESS_LENGTH + 1;
  static constexpr std::size_t AAP_NAME = 1;
  static constexpr std::size_t AAP_NAME_SIZE = AapDevice::NAME_LENGTH + 1;
  static constexpr std::size_t AAP_ID = AAP_NAME + AAP_NAME_SIZE;
  static constexpr std::size_t AAP_ID_SIZE = AapDevice::ID_LENGTH + 1;
};

bool operator==(const RecordedRow& a, const RecordedRow& b);
inline bool operator!=(const RecordedRow& a, const RecordedRow& b) { return !(a == b); }

RecordedRow rowOf(const LmSIntegratedDeviceListDef::IntegratedDevice& phone);

struct RecordedList {
  bool isStarted = false;
  std::vector<RecordedRow> rows;
};

inline bool operator==(const RecordedList& a, const RecordedList& b) {
  return a.isStarted == b.isStarted && a.rows == b.rows;
}
inline bool operator!=(const RecordedList& a, const RecordedList& b) { return !(a == b); }

/// The first line.
struct Header {
  std::string started;  // when, by the unit's clock, as "2026-01-31T23:59:59Z"
  bool isPseudonymised = false;
};

/// Any later line, with the whole of what it is about.
struct Event {
  enum class Kind {
    FUNC_INFO,
    SAVED,
    BEGIN,  // the list begins, with "FuncInfo" and the saved table as they are now
    TABLE,
    END,  // the recorder was stopped in order
  };

  Kind kind = Kind::END;
  std::chrono::milliseconds time{0};  // since the recording began, by a clock that nobody sets
  const Source* source = nullptr;     // of TABLE and FUNC_INFO
  TableCopy copy;                     // of these; owner and mode are not recorded
  SavedTableCopy saved;               // of SAVED; likewise, and without its path
  bool isPass = false;                // of TABLE: the list took the table over, and numbered
  RecordedList list;                  // of TABLE: as it is then
};

}  // namespace idl::tools::recording

#endif
