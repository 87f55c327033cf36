// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Runner.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "tools/text/Escape.h"

namespace idl::tools::scenario {

namespace {

// Often enough for a person, seldom enough for the machine.
constexpr std::chrono::milliseconds POLL_INTERVAL(20);

constexpr std::uint64_t FIRST_CP_ID = 1000;  // of phones that are given none; bit 41 has a meaning of its own

std::string addressOf(unsigned number) {
  // Out of the range that is set aside for examples.
  static constexpr char DIGITS[] = "0123456789ABCDEF";
  return std::string("00:00:5E:00:53:") + DIGITS[number / 16 % 16] + DIGITS[number % 16];
}

/// What a phone's options say overrides what it was.
void override(Phone& phone, const Command& command) {
  if (const Value* name = command.option("name")) {
    phone.name = name->text;
  }
  if (const Value* btid = command.option("btid")) {
    phone.btid = btid->byte();
  }
  if (const Value* address = command.option("address")) {
    phone.address = address->text;
  }
  if (const Value* id = command.option("cp")) {
    phone.cpId = id->number;
  }
  if (const Value* id = command.option("aap")) {
    phone.aapId = id->text;
  }
  if (const Value* port = command.option("port")) {
    phone.port = port->port();
  }
  if (const Value* session = command.option("session")) {
    phone.session = session->byte();
  }
  if (command.kind == CommandKind::PHONE_RENAME || command.kind == CommandKind::SOURCE_RENAME) {
    phone.name = command.operands[1].text;
  }
}

// Of what goes wrong the first: everything after it is skipped.
const Step* firstWrong(const std::vector<Step>& steps) {
  const auto found = std::find_if(steps.begin(), steps.end(), [](const Step& step) {
    return step.outcome != Outcome::DONE && step.outcome != Outcome::SKIPPED;
  });
  return found == steps.end() ? nullptr : &*found;
}

}  // namespace

int RunResult::exitCode() const {
  const Step* const wrong = firstWrong(steps);
  if (wrong == nullptr) {
    return 0;
  }
  return wrong->outcome == Outcome::FAILED ? 1 : wrong->outcome == Outcome::MISTAKE ? 2 : 3;
}

std::string RunResult::report() const {
  const Step* const wrong = firstWrong(steps);
  if (wrong == nullptr) {
    return {};
  }
  return mistakeText({file, wrong->position, wrong->why}) + "\n    " + printable(wrong->text) + '\n' + wrong->details;
}

Runner::Runner(Bench& bench, Options options) : mBench(bench), mOptions(std::move(options)), mRandom(mOptions.seed) {}

void Runner::begin() {
  mBench.forgetSaved();
  mBench.setBluetoothFunction(false);
  for (const Source source : SOURCES) {
    mBench.bringBack(source);  // whatever an earlier scenario has left
  }
  mClientOptions = {};
  mBench.startClient(mClientOptions);
  mClientRuns = true;
}

Step Runner::execute(const Command& command) {
  Step step;
  step.kind = command.kind;
  step.position = command.position;
  step.text = command.text;
  if (mIsOver || (mOptions.beforeEach && !mOptions.beforeEach(command))) {
    mIsOver = true;
    return step;
  }
  const auto begin = mOptions.now();
  try {
    step.outcome = Outcome::DONE;
    if (isExpectation(command.kind)) {
      expect(command, step);
    } else if (command.kind == CommandKind::RANDOM) {
      random(command, step);
    } else {
      obey(command);
    }
  } catch (const ScenarioMistake& mistake) {
    step.outcome = Outcome::MISTAKE;
    step.why = mistake.what();
  } catch (const std::runtime_error& trouble) {
    step.outcome = Outcome::TROUBLE;
    step.why = printable(trouble.what());
  }
  step.took = std::chrono::duration_cast<std::chrono::milliseconds>(mOptions.now() - begin);
  return step;
}

RunResult Runner::run(const std::string& file, const std::vector<Command>& commands) {
  RunResult result;
  result.file = file;
  bool goesOn = true;
  for (const Command& command : commands) {
    Step step;
    step.kind = command.kind;
    step.position = command.position;
    step.text = command.text;
    if (goesOn && result.steps.empty()) {
      try {
        begin();
      } catch (const std::runtime_error& trouble) {
        step.outcome = Outcome::TROUBLE;
        step.why = printable(trouble.what());
        goesOn = false;
      }
    }
    if (goesOn) {
      step = execute(command);
      goesOn = step.outcome == Outcome::DONE;
    }
    result.steps.push_back(std::move(step));
  }
  return result;
}

void Runner::obey(const Command& command) {
  const auto forEach = [&](const auto& action) {
    for (const Value& operand : command.operands) {
      action(operand.text);
    }
  };
  switch (command.kind) {
    case CommandKind::PHONE_ADD:
      addPhone(command);
      break;
    case CommandKind::PHONE_CHANGE:
    case CommandKind::PHONE_RENAME:
      changePhone(command);
      break;
    case CommandKind::PHONE_REMOVE:
      removePhones(command);
      break;
    case CommandKind::BT_PAIR:
      forEach([&](const std::string& handle) { pair(handle); });
      break;
    case CommandKind::BT_UNPAIR:
    case CommandKind::CP_FORGET:
    case CommandKind::AAP_FORGET:
      forEach([&](const std::string& handle) { forget(command.source(), handle); });
      break;
    case CommandKind::CP_KNOWN:
      forEach([&](const std::string& handle) { listForCarPlay(command, handle); });
      break;
    case CommandKind::CP_CONNECT:
      listForCarPlay(command, command.operands.front().text);
      mConnected = command.operands.front().text;
      mBench.setCurrentPhone(mRoster.listing(Source::CP, *mConnected)->phone.cpId);
      break;
    case CommandKind::CP_DISCONNECT:
      mConnected.reset();
      mBench.setCurrentPhone(0);
      break;
    case CommandKind::AAP_KNOWN:
    case CommandKind::AAP_PLUG:
      forEach([&](const std::string& handle) { listForAndroidAuto(command, handle); });
      break;
    case CommandKind::AAP_UNPLUG:
      forEach([&](const std::string& handle) { unplug(handle); });
      break;
    case CommandKind::SOURCE_CHANGE:
    case CommandKind::SOURCE_RENAME:
      change(command.source(), command.operands.front().text, command);
      break;
    case CommandKind::SOURCE_CLEAR:
      clear(command.source());
      break;
    case CommandKind::SOURCE_RESTART: {
      const Value* const keep = command.option("keep");
      restart(command.source(), keep == nullptr || keep->text == "yes");
      break;
    }
    case CommandKind::SOURCE_CRASH:
      crash(command);
      break;
    case CommandKind::SOURCE_GARBAGE:
      mBench.garbage(command.source(), seedOf(command));
      break;
    case CommandKind::SOURCE_CUT:
      mBench.cut(command.source(), static_cast<std::uint32_t>(command.option("bytes")->number));
      break;
    case CommandKind::SOURCE_VANISH:
      mBench.vanish(command.source());
      break;
    case CommandKind::SOURCE_RETURN:
      bringBack(command.source());
      break;
    case CommandKind::FUNCINFO_SET:
      mBench.setBluetoothFunction(command.option("bt") == nullptr || command.option("bt")->text == "yes");
      break;
    case CommandKind::FUNCINFO_VANISH:
      mBench.vanishFuncInfo();
      break;
    case CommandKind::CLIENT_START:
      needClient(false);
      mClientOptions = {};
      startClient(command);
      break;
    case CommandKind::CLIENT_RESTART:
      if (mClientRuns) {
        mClientRuns = false;
        mBench.stopClient();
      }
      startClient(command);
      break;
    case CommandKind::CLIENT_STOP:
      needClient(true);
      mClientRuns = false;
      mBench.stopClient();
      break;
    case CommandKind::CLIENT_KILL:
      needClient(true);
      mClientRuns = false;
      mBench.killClient();
      break;
    case CommandKind::CLIENT_REFRESH:
      needClient(true);
      forEach([&](const std::string& word) { mBench.refresh(*sourceOf(word)); });
      break;
    case CommandKind::SAVED_SET:
      setSaved(command);
      break;
    case CommandKind::SAVED_FORGET:
      mBench.forgetSaved();
      break;
    case CommandKind::SAVED_CUT:
      mBench.cutSaved(static_cast<std::uint32_t>(command.option("bytes")->number));
      break;
    case CommandKind::SAVED_GARBAGE:
      mBench.garbageSaved(seedOf(command));
      break;
    case CommandKind::WAIT:
      wait(std::chrono::milliseconds(
          static_cast<std::int64_t>(static_cast<double>(command.operands.front().number) / mOptions.speed)));
      break;
    default:  // those that execute() takes
      break;
  }
}

void Runner::expect(const Command& command, Step& step) {
  needClient(true);
  const Value* const within = command.option("within");
  const auto deadline = mOptions.now() + (within == nullptr ? std::chrono::milliseconds(0) : within->duration());
  for (;;) {
    // Before the look, so that the last one is not earlier than the deadline.
    const bool isLast = mOptions.now() >= deadline;
    const MaybeList list = mBench.list();
    const Verdict verdict = judge(command, list);
    if (verdict.isMet) {
      return;
    }
    if (isLast) {
      step.outcome = Outcome::FAILED;
      step.why = verdict.why + (within == nullptr ? "" : ", after " + within->text);
      step.details = comparison(command, list, mOptions.colour);
      return;
    }
    wait(POLL_INTERVAL);
  }
}

void Runner::random(const Command& command, Step& step) {
  Parser parser("random");
  for (const std::string& handle : mRoster.handles()) {
    parser.know(handle);
  }
  const std::uint64_t count = command.operands.front().number;
  for (std::uint64_t i = 1; i <= count && !mIsOver; ++i) {
    const std::string text = mRandom.next(mRoster, mClientRuns);
    const Parsing parsing = parser.parse(text);
    if (parsing.commands.size() != 1) {
      throw BenchTrouble("made up a command that is none: " + text);
    }
    Step one = execute(parsing.commands.front());
    if (one.outcome == Outcome::DONE) {
      checkOrder(one);
    }
    if (one.outcome != Outcome::DONE && one.outcome != Outcome::SKIPPED) {
      step.outcome = one.outcome;
      step.why = "command " + std::to_string(i) + " of seed " + std::to_string(mOptions.seed) + ", " + printable(text) +
                 ": " + one.why;
      step.details = one.details;
      return;
    }
  }
}

void Runner::checkOrder(Step& step) {
  if (!mClientRuns) {
    return;
  }
  try {
    const MaybeList list = mBench.list();
    if (!list || !isInOrder(*list)) {
      step.outcome = Outcome::FAILED;
      step.why = list ? "the rows are not in order" : "the list is not started";
      step.details = "actual:\n" + listText(list, mOptions.colour);
    }
  } catch (const BenchTrouble& trouble) {
    step.outcome = Outcome::TROUBLE;
    step.why = printable(trouble.what());
  }
}

void Runner::addPhone(const Command& command) {
  const std::string& handle = command.operands.front().text;
  const unsigned number = mPhonesAdded + 1;
  Phone phone;
  phone.name = handle;
  phone.address = addressOf(number);
  phone.cpId = FIRST_CP_ID + number;
  phone.aapId = "aap-" + handle;
  phone.port = 1;
  override(phone, command);
  mRoster.add(handle, phone);
  mPhonesAdded = number;
}

void Runner::changePhone(const Command& command) {
  const std::string& handle = command.operands.front().text;
  Phone& own = mRoster.phone(handle);
  for (const Source source : SOURCES) {  // before any of them is changed
    if (const Roster::Listing* listing = mRoster.listing(source, handle)) {
      Phone phone = listing->phone;
      override(phone, command);
      needIdentifier(source, handle, phone);
    }
  }
  override(own, command);
  for (const Source source : SOURCES) {
    if (mRoster.listing(source, handle) != nullptr) {
      change(source, handle, command);
    }
  }
}

void Runner::removePhones(const Command& command) {
  for (const Value& operand : command.operands) {
    for (const Source source : SOURCES) {
      if (mRoster.listing(source, operand.text) != nullptr) {
        forget(source, operand.text);
      }
    }
    mRoster.remove(operand.text);
  }
}

void Runner::pair(const std::string& handle) {
  if (mRoster.listing(Source::BT, handle) != nullptr) {
    throw ScenarioMistake("'" + handle + "' is paired already");
  }
  publish(Source::BT, handle, listedOrOwn(Source::BT, handle));
}

void Runner::listForCarPlay(const Command& command, const std::string& handle) {
  Phone phone = listedOrOwn(Source::CP, handle);
  override(phone, command);
  publish(Source::CP, handle, phone);
}

void Runner::listForAndroidAuto(const Command& command, const std::string& handle) {
  Phone phone = listedOrOwn(Source::AAP, handle);
  phone.port = command.kind == CommandKind::AAP_KNOWN ? 0 : mRoster.phone(handle).port;
  override(phone, command);
  publish(Source::AAP, handle, phone);
}

void Runner::unplug(const std::string& handle) {
  const Roster::Listing* const listing = mRoster.listing(Source::AAP, handle);
  if (listing == nullptr) {
    throw ScenarioMistake("aap does not list '" + handle + "'");
  }
  Phone phone = listing->phone;
  phone.port = 0;
  publish(Source::AAP, handle, phone);
}

void Runner::change(Source source, const std::string& handle, const Command& command) {
  const Roster::Listing* const listing = mRoster.listing(source, handle);
  if (listing == nullptr) {
    throw ScenarioMistake(std::string(wordOf(source)) + " does not list '" + handle + "'");
  }
  Phone phone = listing->phone;
  const std::uint64_t idBefore = phone.cpId;
  override(phone, command);
  publish(source, handle, phone);
  if (source == Source::CP && mConnected == handle && phone.cpId != idBefore) {
    mBench.setCurrentPhone(phone.cpId);
  }
}

void Runner::forget(Source source, const std::string& handle) {
  const unsigned slot = mRoster.unlist(source, handle);
  if (source == Source::CP && mConnected == handle) {
    mConnected.reset();
    mBench.setCurrentPhone(0);
  }
  mBench.clear(source, slot);
}

void Runner::clear(Source source) {
  mRoster.unlistAll(source);
  if (source == Source::CP && mConnected) {
    mConnected.reset();
    mBench.setCurrentPhone(0);
  }
  mBench.replaceAll(source, {});
}

void Runner::restart(Source source, bool keep) {
  mBench.restart(source);
  if (keep) {
    publishAgain(source);
    return;
  }
  mRoster.unlistAll(source);
  if (source == Source::CP) {
    mConnected.reset();
  }
}

void Runner::bringBack(Source source) {
  mBench.bringBack(source);
  publishAgain(source);
}

void Runner::publishAgain(Source source) {
  mBench.replaceAll(source, mRoster.table(source));
  if (source == Source::CP && mConnected) {
    mBench.setCurrentPhone(mRoster.listing(Source::CP, *mConnected)->phone.cpId);
  }
}

void Runner::crash(const Command& command) {
  const Source source = command.source();
  const std::string& word = command.option("while")->text;
  const CrashMoment moment = word == "locked" ? CrashMoment::LOCKED
                             : word == "half" ? CrashMoment::HALF
                                              : CrashMoment::NOTIFY;
  if (moment == CrashMoment::LOCKED) {
    mBench.crash(source, moment, 0, {});
    return;
  }
  const std::optional<std::string> handle =
      command.operands.empty() ? mRoster.firstListed(source) : std::optional(command.operands.front().text);
  if (!handle) {
    throw ScenarioMistake(std::string(wordOf(source)) + " lists no phone that it could be writing; name one");
  }
  const Phone phone = listedOrOwn(source, *handle);
  needIdentifier(source, *handle, phone);
  const Roster::Listing* const known = mRoster.listing(source, *handle);
  const Roster::Listing listing = known != nullptr ? *known : mRoster.list(source, *handle, phone);
  mBench.crash(source, moment, listing.slot, listing.phone);
}

void Runner::startClient(const Command& command) {
  if (const Value* format = command.option("format")) {
    mClientOptions.format = format->text == "plain"          ? NameFormat::PLAIN
                            : format->text == "number-first" ? NameFormat::NUMBER_FIRST
                                                             : NameFormat::SAME;
  }
  if (const Value* follow = command.option("follow")) {
    mClientOptions.follow = follow->text == "yes";
  }
  if (const Value* refresh = command.option("refresh")) {
    mClientOptions.refreshes = refresh->text == "all";
  }
  mBench.startClient(mClientOptions);
  mClientRuns = true;
}

void Runner::needClient(bool running) const {
  if (mClientRuns != running) {
    throw ScenarioMistake(running ? "the client is not running" : "the client is running already");
  }
}

void Runner::setSaved(const Command& command) {
  std::vector<SavedNumber> numbers = mBench.saved();
  const SavedNumber number = {command.operands.front().text, command.option("btid")->byte(),
                              command.option("suffix")->byte()};
  const auto same =
      std::find_if(numbers.begin(), numbers.end(), [&](const SavedNumber& other) { return other.btid == number.btid; });
  if (number.btid == BTID_NONE) {
    throw ScenarioMistake("only paired phones are saved");
  }
  if (same != numbers.end()) {
    *same = number;
  } else if (numbers.size() == slotCount(Source::BT)) {
    throw ScenarioMistake("the saved file has room for " + std::to_string(numbers.size()) + " phones, and has as many");
  } else {
    numbers.push_back(number);
  }
  mBench.setSaved(numbers);
}

void Runner::needIdentifier(Source source, const std::string& handle, const Phone& phone) {
  const bool isFree = source == Source::BT   ? phone.btid == BTID_NONE
                      : source == Source::CP ? phone.cpId == 0
                                             : phone.aapId.empty();
  if (isFree) {
    const char* const key = source == Source::BT ? "btid" : wordOf(source);
    const char* const command = source == Source::BT ? "unpair" : "forget";
    throw ScenarioMistake(std::string(wordOf(source)) + " lists a phone only with its " + key + "=; to take '" +
                          handle + "' off: " + wordOf(source) + ' ' + command + ' ' + handle);
  }
}

void Runner::publish(Source source, const std::string& handle, const Phone& phone) {
  needIdentifier(source, handle, phone);
  Roster::Listing* const known = mRoster.listing(source, handle);
  Roster::Listing& listing = known != nullptr ? *known : mRoster.list(source, handle, phone);
  listing.phone = phone;
  mBench.put(source, listing.slot, phone);
}

/// The phone as the source lists it, or as it would list it first.
Phone Runner::listedOrOwn(Source source, const std::string& handle) {
  if (const Roster::Listing* listing = mRoster.listing(source, handle)) {
    return listing->phone;
  }
  Phone& phone = mRoster.phone(handle);
  if (source == Source::BT && phone.btid == BTID_NONE) {
    phone.btid = mRoster.freeBtid();
  }
  return phone;
}

std::uint32_t Runner::seedOf(const Command& command) const {
  const Value* const seed = command.option("seed");
  return static_cast<std::uint32_t>(seed == nullptr ? mOptions.seed : seed->number);
}

void Runner::wait(std::chrono::milliseconds duration) const {
  if (mOptions.sleep) {
    mOptions.sleep(duration);
  } else {
    std::this_thread::sleep_for(duration);
  }
}

}  // namespace idl::tools::scenario
