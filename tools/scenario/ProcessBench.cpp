// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/ProcessBench.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "IntegratedDeviceList/WireFormat.h"
#include "simulator/BenchSegment.h"
#include "tools/scenario/ClientHelper.h"
#include "tools/scenario/SourceHelper.h"

namespace idl::tools::scenario {

namespace {

namespace fs = std::filesystem;

// The saved file: records of a flag, a Bluetooth id, a name that ends in a NUL, and a number.
constexpr char SAVED_FILE[] = "IDLSuffix.ini";
constexpr std::size_t RECORD_COUNT = 10;
constexpr std::size_t RECORD_SIZE = 263;
constexpr std::size_t FILE_SIZE = RECORD_COUNT * RECORD_SIZE;
constexpr std::size_t ID_OFFSET = 1;
constexpr std::size_t NAME_OFFSET = 2;
constexpr std::size_t NAME_LENGTH = 259;
constexpr std::size_t NUMBER_OFFSET = 262;

std::string newFolder() {
  std::string path = (fs::temp_directory_path() / "idl-scenario-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    throw BenchTrouble("no folder for the saved file: " + std::string(std::strerror(errno)));
  }
  return path;
}

bool objectExists(const std::string& name) {
  const int fd = ::shm_open(('/' + name).c_str(), O_RDONLY | O_CLOEXEC, 0);
  if (fd == -1) {
    return false;
  }
  ::close(fd);
  return true;
}

Record requestOf(SourceRequest kind) { return Record().add(static_cast<std::uint64_t>(kind)); }

Record requestOf(ClientRequest kind) { return Record().add(static_cast<std::uint64_t>(kind)); }

std::size_t numberOf(Source source) { return static_cast<std::size_t>(source); }

/// What goes wrong at a segment is the bench's trouble.
template <class Action>
void onSegment(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    throw BenchTrouble(error.what());
  }
}

}  // namespace

ProcessBench::ProcessBench() : mSaveFolder(newFolder()), mOwnsFolder(true) {}

ProcessBench::ProcessBench(const std::string& saveFolder) : mSaveFolder(saveFolder), mOwnsFolder(false) {
  std::error_code error;
  fs::create_directories(mSaveFolder, error);
  if (error) {
    throw BenchTrouble(mSaveFolder + ": " + error.message());
  }
  ProcessBench::forgetSaved();  // no derived class is there yet
}

ProcessBench::~ProcessBench() {
  // The client first: it would hear of nothing, but it may be saving.
  mClient.reset();
  if (mOwnsFolder) {
    std::error_code ignored;  // a folder that stays behind disturbs nobody
    fs::remove_all(mSaveFolder, ignored);
  }
}

void ProcessBench::put(Source source, unsigned slot, const Phone& phone) {
  Record request = requestOf(SourceRequest::PUT);
  request.add(slot);
  addPhone(request, phone);
  tell(source, request);
}

void ProcessBench::clear(Source source, unsigned slot) { tell(source, requestOf(SourceRequest::CLEAR).add(slot)); }

void ProcessBench::replaceAll(Source source, const PhoneTable& phones) {
  Record request = requestOf(SourceRequest::REPLACE_ALL);
  request.add(phones.size());
  for (const auto& [slot, phone] : phones) {
    request.add(slot);
    addPhone(request, phone);
  }
  tell(source, request);
}

void ProcessBench::restart(Source source) {
  auto& running = mSources.at(numberOf(source));
  if (running != nullptr) {
    const auto ending = std::move(running);
    ending->finish();
  }
  helper(source).ask(requestOf(SourceRequest::INITIALISE));
}

void ProcessBench::setCurrentPhone(std::uint64_t cpId) {
  tell(Source::CP, requestOf(SourceRequest::CURRENT).add(cpId));
}

void ProcessBench::crash(Source source, CrashMoment moment, unsigned slot, const Phone& phone) {
  Record request = requestOf(SourceRequest::CRASH);
  request.add(static_cast<std::uint64_t>(moment)).add(slot);
  addPhone(request, phone);
  Helper& dying = helper(source);
  dying.askToDie(request);
  mSources.at(numberOf(source)).reset();
}

void ProcessBench::garbage(Source source, std::uint32_t seed) {
  tell(source, requestOf(SourceRequest::GARBAGE).add(seed));
}

void ProcessBench::cut(Source source, std::uint32_t bytes) {
  onSegment([&] { bench::resizeObject(segmentOf(source), bytes); });
}

void ProcessBench::vanish(Source source) {
  onSegment([&] { bench::removeObject(segmentOf(source)); });
}

void ProcessBench::bringBack(Source source) {
  // The one that has been running may have the segment that is gone.
  mSources.at(numberOf(source)).reset();
  if (objectExists(segmentOf(source))) {
    onSegment([&] { bench::resizeObject(segmentOf(source), segmentSize(source)); });
  }
  restart(source);
}

void ProcessBench::setBluetoothFunction(bool present) {
  if (mFuncInfo == nullptr) {
    mFuncInfo = std::make_unique<Helper>("funcinfo", runFuncInfo);
  }
  mFuncInfo->ask(Record().add(present ? 1U : 0U));
}

void ProcessBench::vanishFuncInfo() {
  mFuncInfo.reset();
  onSegment([] { bench::removeObject(wire::FUNC_INFO_SEGMENT); });
}

void ProcessBench::startClient(const ClientOptions& options) {
  mTold = {};
  mClientFollows = options.follow;
  mClient = std::make_unique<Helper>("client", [&](const BenchEnd& end) { runClient(options, mSaveFolder, end); });
  mClient->awaitAnswer();
}

void ProcessBench::stopClient() {
  const std::unique_ptr<Helper> ending = std::move(mClient);
  ending->finish();
}

void ProcessBench::killClient() { mClient.reset(); }

void ProcessBench::refresh(Source source) { client().ask(requestOf(ClientRequest::REFRESH).add(numberOf(source))); }

std::optional<std::vector<Row>> ProcessBench::list() {
  Record answer = client().ask(requestOf(ClientRequest::LIST));
  return takeList(answer);
}

std::vector<SavedNumber> ProcessBench::saved() {
  std::ifstream file(fs::path(mSaveFolder) / SAVED_FILE, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  bytes.resize(FILE_SIZE);
  std::vector<SavedNumber> numbers;
  for (std::size_t at = 0; at < FILE_SIZE && bytes[at] != 0; at += RECORD_SIZE) {
    SavedNumber number;
    number.btid = static_cast<std::uint8_t>(bytes[at + ID_OFFSET]);
    number.name = bytes.substr(at + NAME_OFFSET, NAME_LENGTH);
    number.name.erase(std::min(number.name.find('\0'), number.name.size()));
    number.suffix = static_cast<std::uint8_t>(bytes[at + NUMBER_OFFSET]);
    numbers.push_back(number);
  }
  return numbers;
}

void ProcessBench::setSaved(const std::vector<SavedNumber>& numbers) {
  std::string bytes;
  for (const SavedNumber& number : numbers) {
    std::string record(RECORD_SIZE, '\0');
    record[0] = 1;
    record[ID_OFFSET] = static_cast<char>(number.btid);
    number.name.copy(record.data() + NAME_OFFSET, NAME_LENGTH);
    record[NUMBER_OFFSET] = static_cast<char>(number.suffix);
    bytes += record;
  }
  bytes.resize(FILE_SIZE);
  writeSaved(bytes);
}

void ProcessBench::forgetSaved() {
  // With whatever a save leaves beside it.
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(mSaveFolder)) {
    const std::string name = entry.path().filename().string();
    if (name != SAVED_FILE && name.rfind('.' + std::string(SAVED_FILE), 0) != 0) {
      continue;
    }
    fs::remove_all(entry.path(), error);
    if (error) {
      throw BenchTrouble("the saved file cannot be removed: " + error.message());
    }
  }
}

void ProcessBench::cutSaved(std::uint32_t bytes) {
  std::error_code error;
  fs::resize_file(fs::path(mSaveFolder) / SAVED_FILE, bytes, error);
  if (error) {
    throw BenchTrouble("the saved file cannot be cut: " + error.message());
  }
}

void ProcessBench::garbageSaved(std::uint32_t seed) { writeSaved(bench::garbageOf(seed, FILE_SIZE)); }

Helper& ProcessBench::helper(Source source) {
  auto& running = mSources.at(numberOf(source));
  if (running == nullptr) {
    running = std::make_unique<Helper>(wordOf(source), [source](const BenchEnd& end) { runSource(source, end); });
  }
  return *running;
}

void ProcessBench::tell(Source source, const Record& request) {
  helper(source).ask(request);
  std::uint64_t& told = mTold.at(numberOf(source));
  ++told;
  if (mClient != nullptr && mClientFollows) {
    mClient->ask(requestOf(ClientRequest::SETTLE).add(numberOf(source)).add(told));
  }
}

Helper& ProcessBench::client() {
  if (mClient == nullptr) {
    throw BenchTrouble("the client is not running");
  }
  return *mClient;
}

void ProcessBench::writeSaved(const std::string& bytes) const {
  std::ofstream file(fs::path(mSaveFolder) / SAVED_FILE, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    throw BenchTrouble("the saved file cannot be written");
  }
}

}  // namespace idl::tools::scenario
