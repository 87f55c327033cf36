// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_STORY_H
#define DEMO_STORY_H

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/Child.h"
#include "demo/Row.h"

namespace demo {

/// A list that is not the expected one; both have been shown.
class Difference : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A day in a car: starts the services and the client, lets things happen, and compares the list that the client then
/// shows with the one that it has to be, which is written down here.
///
/// Tells all on standard output. The programs end with this object, however the story ends.
class Story {
 public:
  struct Options {
    bool breakOneStep = false;  // expect something wrong at one step
    bool colour = false;
    std::string saveFolder;  // where the client keeps its numbers
  };

  explicit Story(Options options);
  ~Story();

  /// @throw Difference at the first list that is not the expected one; Trouble when the story cannot go on.
  void tell();

 private:
  void morning();
  void twoPhonesOfOneName();
  void guestsOnUsb();
  void numbersOfThoseWhoStay();
  void aServiceDies();
  void theClientStartsAgain();
  void evening();

  void say(const char* time, const std::string& sentence) const;
  void expect(std::vector<Row> expected);
  void showLogs();

  std::unique_ptr<Child> startService(const std::string& program) const;
  void startClient();
  void change(Child& service, const std::string& source, const std::string& command);
  void collect(Child& service, const std::string& command) const;
  void receiveList(const std::string& heading);

  const Options mOptions;
  std::unique_ptr<Child> mBluetooth;
  std::unique_ptr<Child> mCarPlay;
  std::unique_ptr<Child> mAndroidAuto;
  std::unique_ptr<Child> mClient;
  std::vector<Row> mList;  // as the client last told it
  unsigned mStep = 0;
};

}  // namespace demo

#endif
