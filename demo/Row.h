// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_ROW_H
#define DEMO_ROW_H

#include <string>

namespace demo {

/// Where a row of the list comes from; the numbers are the device types of the list.
enum class Source { BLUETOOTH = 0, CARPLAY = 1, ANDROID_AUTO = 2 };

/// What the demonstration shows and compares of one phone.
struct Row {
  Source source = Source::BLUETOOTH;
  std::string name;
  int btid = 255;  // 255: not paired
  int port = 0;    // 0: not connected by USB
  int session = 0;
  int number = 0;
};

bool operator==(const Row& a, const Row& b);

/// A row as the client tells it to the director, one line, the name last; control characters and backslashes of the
/// name are escaped ("\0a"), so that it stays one line.
std::string toLine(const Row& row);

/// The reverse, but that the name stays escaped. @throw std::invalid_argument for anything that toLine does not make.
Row toRow(const std::string& line);

}  // namespace demo

#endif
