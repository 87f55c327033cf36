// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_SCENARIOTEXT_H
#define TOOLS_RECORDING_SCENARIOTEXT_H

#include <array>
#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>

#include "tools/recording/Recording.h"

namespace idl::tools::recording {

/// Tells a recording as a scenario, to be shortened by hand: the same phones at the same sources, one refresh for each
/// pass, and what the list was then as expectations. What scenarios have no words for is said in comments, and so are
/// the expectations that hang on it.
class ScenarioText {
 public:
  /// `output` has to live as long as this object.
  explicit ScenarioText(std::ostream& output);

  void take(const Event& event);

 private:
  /// A phone as its source lists it, in the scenario's words.
  struct Listed {
    std::string fields;  // of `phone add` and `phone change`
    std::string verb;    // what makes the source list it
    std::uint64_t cpDeviceId = 0;
  };

  /// A source as the scenario has it.
  struct Table {
    std::map<unsigned, Listed> phones;    // by the slots of the recording
    std::map<unsigned, unsigned> places;  // the scenario's slots by those of the recording
    bool isCut = false;
    std::string connectedTo;  // the handle of the phone that CarPlay has connected
  };

  void beginClient();
  void takeTable(const Source& source, const TableCopy& copy);
  void tellPhones(const Source& source, const TableCopy& copy);
  void tellPhone(const Source& source, unsigned slot, const Listed& phone);
  void forget(const Source& source, unsigned slot);
  void relist(const Source& source);
  void connect(std::uint64_t identifier);
  void expect(const RecordedList& list);
  Table& tableOf(const Source& source) { return mTables.at(static_cast<std::size_t>(source.type)); }

  std::ostream& mOutput;
  std::array<Table, 3> mTables;
  std::set<std::string> mHandles;  // that the scenario has
  TableCopy mFuncInfo;
  SavedTableCopy mSaved;
  bool mIsTold = true;  // all that the list hangs on, up to now; numbers hang on all that was before
  RecordedList mExpected;
};

}  // namespace idl::tools::recording

#endif
