// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_RECORDING_RECORDINGREADER_H
#define TOOLS_RECORDING_RECORDINGREADER_H

#include <istream>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

#include "tools/inspect/Unit.h"
#include "tools/recording/Recording.h"

namespace idl::tools::recording {

/// A line that is not what the format allows.
class BadRecording : public std::runtime_error {
 public:
  BadRecording(std::size_t line, const std::string& why)
      : std::runtime_error("line " + std::to_string(line) + ": " + why) {}
};

/// A recording of a version that this program does not read.
class OtherVersion : public BadRecording {
 public:
  using BadRecording::BadRecording;
};

/// Reads a recording event by event, with whatever a stranger has put into it. What is decoded beside the bytes of
/// tables is not looked at.
///
/// A last line without its end was cut off, and counts as if it were not there; so does an empty one behind the last.
class RecordingReader {
 public:
  /// Reads the first line. `input` has to live as long as this object. @throw BadRecording
  explicit RecordingReader(std::istream& input);

  const Header& header() const { return mHeader; }

  /// False, and `event` is as it was, when there is no further one. @throw BadRecording
  bool next(Event& event);

  /// The number of the line of the last event, from 1; once next() was false, that of the last whole line.
  std::size_t line() const { return mLine; }

  /// Whether next() was false; then, whether the last line had no end, and whether the recorder ended the recording.
  bool isAtEnd() const { return mIsAtEnd; }
  bool isCut() const { return mIsCut; }
  bool hasEnd() const { return mHasEnd; }

 private:
  bool readLine(std::string& text);
  bool parseLine(nlohmann::json& line);
  void checkNumber(const nlohmann::json& line) const;
  void take(const nlohmann::json& line, Event& event);
  void takeTable(const nlohmann::json& line, const Source& source, Event& event);
  void takeSaved(const nlohmann::json& line, Event& event);
  void takeList(const nlohmann::json& line);

  std::istream& mInput;
  std::size_t mLine = 0;
  bool mIsAtEnd = false;
  bool mIsCut = false;
  bool mHasEnd = false;
  bool mHasBegun = false;
  Header mHeader;
  std::chrono::milliseconds mTime{0};
  Unit mLast;
  RecordedList mList;
};

}  // namespace idl::tools::recording

#endif
