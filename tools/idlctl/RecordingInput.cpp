// SPDX-License-Identifier: Apache-2.0
#include "tools/idlctl/RecordingInput.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "tools/text/Escape.h"

namespace idl::tools {

int readRecording(const std::string& file, const Streams& streams,
                  const std::function<int(recording::RecordingReader&)>& use) {
  std::ifstream opened;
  if (file != "-") {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) {
      streams.err << "idlctl: " << quotedText(file) << ": " << std::strerror(EISDIR) << '\n';
      return EXIT_CANNOT_OPEN;
    }
    opened.open(file, std::ios::binary);
    if (!opened) {
      streams.err << "idlctl: " << quotedText(file) << ": " << std::strerror(errno) << '\n';
      return EXIT_CANNOT_OPEN;
    }
  }
  const std::string name = file == "-" ? "standard input" : printable(file);
  try {
    recording::RecordingReader reader(file == "-" ? std::cin : opened);
    const int code = use(reader);
    if (reader.isCut()) {
      streams.err << name << ": cut off behind line " << reader.line() << "; what is whole was read\n";
    } else if (reader.isAtEnd() && !reader.hasEnd()) {
      streams.err << name << ": ends with line " << reader.line() << ", but its recorder did not end it\n";
    }
    return code;
  } catch (const recording::OtherVersion& wrong) {
    streams.err << "idlctl: " << name << ": " << printable(wrong.what()) << '\n';
    return EXIT_USAGE;
  } catch (const recording::BadRecording& wrong) {
    streams.err << "idlctl: " << name << ": " << printable(wrong.what()) << '\n';
    return EXIT_DAMAGED;
  }
}

}  // namespace idl::tools
