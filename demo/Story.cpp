// SPDX-License-Identifier: Apache-2.0
#include "demo/Story.h"

#include <signal.h>
#include <sys/wait.h>

#include <iostream>
#include <sstream>
#include <utility>

#include "demo/ListTable.h"
#include "simulator/FuncInfoPublisher.h"

namespace demo {

namespace {

constexpr Source BT = Source::BLUETOOTH;
constexpr Source CP = Source::CARPLAY;
constexpr Source AA = Source::ANDROID_AUTO;
constexpr int UNPAIRED = 255;

constexpr unsigned BROKEN_STEP = 3;

std::string describe(int status) {
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "status " + std::to_string(WEXITSTATUS(status));
}

// `text` in lines of less than 80 columns; `label` stands before the first one, `indent` before the others.
std::string filled(const std::string& label, const std::string& indent, const std::string& text) {
  constexpr std::size_t WIDTH = 79;
  std::istringstream words(text);
  std::string lines;
  std::string line = label + std::string(indent.size() - label.size() - 1, ' ');
  for (std::string word; words >> word;) {
    if (line.size() + 1 + word.size() > WIDTH) {
      lines += line + '\n';
      line = indent.substr(1);
    }
    line += ' ' + word;
  }
  return lines + line + '\n';
}

}  // namespace

Story::Story(Options options) : mOptions(std::move(options)) {}

Story::~Story() = default;

void Story::tell() {
  morning();
  twoPhonesOfOneName();
  guestsOnUsb();
  numbersOfThoseWhoStay();
  aServiceDies();
  theClientStartsAgain();
  evening();
}

void Story::morning() {
  say("07:00", "The car wakes up. The services start, then the screen's program. No phone is known yet.");
  idl::bench::FuncInfoPublisher().setBluetooth(true);
  mBluetooth = startService("demo-bt-service");
  mCarPlay = startService("demo-cp-service");
  mAndroidAuto = startService("demo-aap-service");
  startClient();
  expect({});
}

void Story::twoPhonesOfOneName() {
  say("07:10", "Anna pairs her phone over Bluetooth. It calls itself Galaxy.");
  change(*mBluetooth, "bt", "put 0 id=3 name=Galaxy address=00:00:5E:00:53:03");
  expect({{BT, "Galaxy", 3, 0, 0, 1}});

  say("07:12", "Ben pairs his, which has the same name: it gets a number.");
  change(*mBluetooth, "bt", "put 1 id=4 name=Galaxy address=00:00:5E:00:53:04");
  expect({{BT, "Galaxy", 3, 0, 0, 1}, {BT, "Galaxy 2", 4, 0, 0, 2}});

  say("07:15",
      "Ben plugs his phone in, and it connects for Android Auto. It is still one row, with its Bluetooth id and its "
      "number.");
  change(*mAndroidAuto, "aap", "put 0 id=serial-ben name=Galaxy session=1 btid=4 port=2");
  expect({{BT, "Galaxy", 3, 0, 0, 1}, {AA, "Galaxy 2", 4, 2, 1, 2}});
}

void Story::guestsOnUsb() {
  say("08:00", "Carla plugs in her iPhone for CarPlay, without pairing it. Phones that are on USB alone come first.");
  change(*mCarPlay, "cp", "put 0 id=0x1000000000c1 name=\"Carla's iPhone\" session=1");
  change(*mCarPlay, "cp", "current 0x1000000000c1");
  expect({{CP, "Carla's iPhone", UNPAIRED, 1, 1, 1}, {BT, "Galaxy", 3, 0, 0, 1}, {AA, "Galaxy 2", 4, 2, 1, 2}});

  say("08:05", "Dora and Emil, guests too, plug in their phones for Android Auto. Both are called Pixel.");
  change(*mAndroidAuto, "aap", "put 1 id=serial-dora name=Pixel session=2 port=3");
  change(*mAndroidAuto, "aap", "put 2 id=serial-emil name=Pixel session=3 port=4");
  expect({{CP, "Carla's iPhone", UNPAIRED, 1, 1, 1},
          {AA, "Pixel", UNPAIRED, 3, 2, 1},
          {AA, "Pixel 2", UNPAIRED, 4, 3, 2},
          {BT, "Galaxy", 3, 0, 0, 1},
          {AA, "Galaxy 2", 4, 2, 1, 2}});

  say("08:30", "Dora leaves with her phone. Emil's keeps its number, although 1 is free.");
  change(*mAndroidAuto, "aap", "clear 1");
  expect({{CP, "Carla's iPhone", UNPAIRED, 1, 1, 1},
          {AA, "Pixel 2", UNPAIRED, 4, 3, 2},
          {BT, "Galaxy", 3, 0, 0, 1},
          {AA, "Galaxy 2", 4, 2, 1, 2}});

  say("08:40", "Emil unplugs his phone to change seats ...");
  change(*mAndroidAuto, "aap", "clear 2");
  expect({{CP, "Carla's iPhone", UNPAIRED, 1, 1, 1}, {BT, "Galaxy", 3, 0, 0, 1}, {AA, "Galaxy 2", 4, 2, 1, 2}});

  say("08:41", "... and plugs it into another port. Nothing ties it to the earlier one, so it is numbered anew.");
  change(*mAndroidAuto, "aap", "put 1 id=serial-emil name=Pixel session=4 port=5");
  expect({{CP, "Carla's iPhone", UNPAIRED, 1, 1, 1},
          {AA, "Pixel", UNPAIRED, 5, 4, 1},
          {BT, "Galaxy", 3, 0, 0, 1},
          {AA, "Galaxy 2", 4, 2, 1, 2}});

  say("09:00", "Carla and Emil get out.");
  change(*mCarPlay, "cp", "current 0");
  change(*mCarPlay, "cp", "clear 0");
  change(*mAndroidAuto, "aap", "clear 1");
  expect({{BT, "Galaxy", 3, 0, 0, 1}, {AA, "Galaxy 2", 4, 2, 1, 2}});
}

void Story::numbersOfThoseWhoStay() {
  say("12:00", "Anna sells her phone and removes its pairing. Ben's stays Galaxy 2.");
  change(*mBluetooth, "bt", "clear 0");
  expect({{AA, "Galaxy 2", 4, 2, 1, 2}});

  say("12:30", "Fred pairs a Galaxy. It is the later row, but 1 is the number that is free.");
  change(*mBluetooth, "bt", "put 0 id=7 name=Galaxy address=00:00:5E:00:53:07");
  expect({{AA, "Galaxy 2", 4, 2, 1, 2}, {BT, "Galaxy", 7, 0, 0, 1}});
}

void Story::aServiceDies() {
  const pid_t service = mBluetooth->pid();
  say("15:00",
      "Gina pairs her OnePlus, and the Bluetooth service is killed while it writes that record, with its table locked. "
      "Ben unplugs his phone: the screen goes on.");
  mBluetooth->send("crash 2 id=9 name=OnePlus address=00:00:5E:00:53:09");
  const int status = mBluetooth->waitForEnd();
  if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
    throw Trouble("the Bluetooth service was to be killed, but ended with " + describe(status));
  }
  change(*mAndroidAuto, "aap", "clear 0");
  expect({{BT, "Galaxy 2", 4, 0, 0, 2}, {BT, "Galaxy", 7, 0, 0, 1}});

  say("15:01",
      "The driver opens the list of pairings, and the client reads that table. The lock of the dead service is given "
      "on, with a line in the log; the record is there as far as it was written.");
  mClient->send("refresh bt");
  receiveList("refreshed bt 0");
  const std::vector<std::string> log = mClient->takeLog();
  for (const std::string& line : log) {
    std::cout << filled("  log:", "       ", line);
  }
  const std::string wanted = "BtPairedDeviceList: its holder (process " + std::to_string(service) + ") died";
  if (log.size() != 1 || log.front().find(wanted) == std::string::npos) {
    throw Trouble("the log was to say, in one line: " + wanted);
  }
  expect({{BT, "Galaxy 2", 4, 0, 0, 2}, {BT, "Galaxy", 7, 0, 0, 1}, {BT, "One", 9, 0, 0, 1}});

  say("15:02", "The service has been started again, and writes its table anew.");
  mBluetooth = startService("demo-bt-service");
  collect(*mBluetooth, "begin");
  collect(*mBluetooth, "put 0 id=7 name=Galaxy address=00:00:5E:00:53:07");
  collect(*mBluetooth, "put 1 id=4 name=Galaxy address=00:00:5E:00:53:04");
  collect(*mBluetooth, "put 2 id=9 name=OnePlus address=00:00:5E:00:53:09");
  change(*mBluetooth, "bt", "commit");
  expect({{BT, "Galaxy 2", 4, 0, 0, 2}, {BT, "Galaxy", 7, 0, 0, 1}, {BT, "OnePlus", 9, 0, 0, 1}});
}

void Story::theClientStartsAgain() {
  say("18:00",
      "The screen's program is restarted. The numbers are those that it saved; by the order in which it finds the "
      "phones, Ben's would have become number 1.");
  const int status = mClient->finish();
  showLogs();
  if (status != 0) {
    throw Trouble("the client ended with " + describe(status));
  }
  startClient();
  expect({{BT, "Galaxy 2", 4, 0, 0, 2}, {BT, "Galaxy", 7, 0, 0, 1}, {BT, "OnePlus", 9, 0, 0, 1}});

  say("18:05", "Ben plugs in once more: what the new client is told of reaches it, too.");
  change(*mAndroidAuto, "aap", "put 0 id=serial-ben name=Galaxy session=1 btid=4 port=2");
  expect({{AA, "Galaxy 2", 4, 2, 1, 2}, {BT, "Galaxy", 7, 0, 0, 1}, {BT, "OnePlus", 9, 0, 0, 1}});
}

void Story::evening() {
  for (Child* child : {mClient.get(), mBluetooth.get(), mCarPlay.get(), mAndroidAuto.get()}) {
    const int status = child->finish();
    showLogs();
    if (status != 0) {
      throw Trouble(child->program() + " ended with " + describe(status));
    }
  }
  std::cout << "\nThe car sleeps. All " << mStep << " lists were the expected ones.\n";
}

void Story::say(const char* time, const std::string& sentence) const {
  std::cout << '\n' << filled(time, "       ", sentence);
}

void Story::expect(std::vector<Row> expected) {
  ++mStep;
  if (mOptions.breakOneStep && mStep == BROKEN_STEP) {
    expected.back().name = "Galaxy 3";
    expected.back().number = 3;
  }
  showLogs();
  if (mList == expected) {
    std::cout << toTable(mList, mOptions.colour) << std::flush;
    return;
  }
  std::cout << "Expected:\n"
            << toTable(expected, mList, mOptions.colour) << "Actual:\n"
            << toTable(mList, expected, mOptions.colour) << std::flush;
  throw Difference("list " + std::to_string(mStep) + " is not the expected one");
}

// Nothing is written to the log on a good day, but for the line that the story waits for.
void Story::showLogs() {
  for (Child* child : {mClient.get(), mBluetooth.get(), mCarPlay.get(), mAndroidAuto.get()}) {
    if (child == nullptr) {
      continue;
    }
    for (const std::string& line : child->takeLog()) {
      std::cout << std::flush;
      std::cerr << child->program() << ": " << line << std::endl;
    }
  }
}

std::unique_ptr<Child> Story::startService(const std::string& program) const {
  auto service = std::make_unique<Child>(program);
  const std::string answer = service->readLine();
  if (answer != "ready") {
    throw Trouble(program + " is not ready: " + answer);
  }
  return service;
}

void Story::startClient() {
  mClient = std::make_unique<Child>("demo-client", std::vector<std::string>{"LM_SAVE_FILE_DIR=" + mOptions.saveFolder});
  receiveList("ready");
}

// Lets a service change its table, and waits for the refresh that its notification brings about.
void Story::change(Child& service, const std::string& source, const std::string& command) {
  service.send(command);
  const std::string answer = service.readLine();
  if (answer.rfind("ok ", 0) != 0 || answer == "ok 0") {
    throw Trouble(service.program() + " answers to \"" + command + "\": " + answer);
  }
  receiveList("refreshed " + source + answer.substr(2));
}

void Story::collect(Child& service, const std::string& command) const {
  service.send(command);
  const std::string answer = service.readLine();
  if (answer != "ok 0") {
    throw Trouble(service.program() + " answers to \"" + command + "\": " + answer);
  }
}

void Story::receiveList(const std::string& heading) {
  const std::string line = mClient->readLine();
  if (line != heading) {
    throw Trouble("the client was to say \"" + heading + "\", but said: " + line);
  }
  const std::string count = mClient->readLine();
  if (count.rfind("list ", 0) != 0) {
    throw Trouble("the client was to tell its list, but said: " + count);
  }
  mList.clear();
  for (unsigned long left = std::stoul(count.substr(5)); left > 0; --left) {
    mList.push_back(toRow(mClient->readLine()));
  }
}

}  // namespace demo
