// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_RECORDINGWRITER_H
#define TOOLS_RECORDING_RECORDINGWRITER_H

#include <nlohmann/json_fwd.hpp>
#include <ostream>

#include "tools/inspect/Unit.h"
#include "tools/recording/Recording.h"

namespace idl::tools::recording {

/// Writes a recording: of each event what has changed since the last one of its kind. Every line is flushed, so that
/// what was written is there whatever becomes of the recorder.
class RecordingWriter {
 public:
  /// Writes the first line. `output` has to live as long as this object.
  RecordingWriter(std::ostream& output, const Header& header);

  /// Events come in the order of their times.
  void write(const Event& event);

 private:
  void writeLine(nlohmann::json& line);

  std::ostream& mOutput;
  std::size_t mLines = 0;
  Unit mLast;  // as they were written last
  RecordedList mList;
};

}  // namespace idl::tools::recording

#endif
