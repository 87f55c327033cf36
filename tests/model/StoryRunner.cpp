// SPDX-License-Identifier: Apache-2.0
#include "model/StoryRunner.h"

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <utility>

#include "LmSIntegratedDeviceListImpl.h"
#include "SuffixProvider.h"
#include "support/PhoneTables.h"

namespace model {

namespace {

using LmSIntegratedDeviceListDef::DeviceType;

constexpr char FILE_NAME[] = "IDLSuffix.ini";

// In the services' tables.
constexpr std::size_t BT_SLOT_SIZE = 112;
constexpr std::size_t CP_SLOT_SIZE = 296;
constexpr std::size_t AAP_SLOT_SIZE = 524;

/// A text field of `size` bytes, as a service writes it: cut, and ended by a zero.
std::string field(const std::string& text, std::size_t size) {
  std::string bytes = text.substr(0, size - 1);
  bytes.resize(size, '\0');
  return bytes;
}

std::string byte(unsigned value) { return std::string(1, static_cast<char>(value)); }

std::string imageOf(const BtPhone& phone) {
  return std::string("\xDE\xAD\xBE\xEF") + byte(phone.id) + field(phone.name, 81) + field(phone.address, 18) +
         RawSegment::littleEndian(phone.info, 4) + byte(phone.flag1) + byte(phone.flag2) + "\x55\x55";
}

std::string imageOf(const CpPhone& phone) {
  return RawSegment::littleEndian(phone.identifier, 8) + field(phone.name, 256) + byte(phone.btid) +
         byte(phone.inSession) + byte(phone.session) + std::string(2, static_cast<char>(phone.reserved)) +
         byte(phone.valid) + std::string(26, static_cast<char>(phone.reserved));
}

std::string imageOf(const AapPhone& phone) {
  return std::string("\xDE\xAD\xBE\xEF") + byte(phone.session) + field(phone.name, 257) + field(phone.id, 257) +
         byte(phone.btid) + RawSegment::littleEndian(static_cast<std::uint32_t>(phone.port), 4);
}

std::string quoted(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += " \"" + line + '"';
  }
  return text.empty() ? " nothing" : text;
}

/// The saved file, and what tells that it has been written anew.
class Saved {
 public:
  explicit Saved(const SaveFolder& folder) : mFolder(folder), mPath((folder / FILE_NAME).string()) {}

  void prepare(const Restart& restart) {
    std::optional<std::string> last;
    if (mark().exists) {
      last = mFolder.contents(FILE_NAME);
    }
    const std::optional<std::string> next = fileAfter(restart, last);
    if (!next) {
      std::filesystem::remove(mPath);
    } else if (next != last) {
      mFolder.put(FILE_NAME, *next);
    }
    mLast = mark();
  }

  /// `written`: it has to have been, since the last call.
  std::string compare(const std::optional<std::string>& expected, bool written) {
    const Mark now = mark();
    const bool isNew = now != mLast;
    mLast = now;
    if (isNew != written) {
      return written ? "the file was not written" : "the file was written without need";
    }
    if (now.exists != expected.has_value()) {
      return now.exists ? "there is a file" : "there is no file";
    }
    if (!isNew && mWasCompared) {
      return "";
    }
    mWasCompared = true;
    const std::string found = mFolder.contents(FILE_NAME);
    if (expected && found != *expected) {
      std::size_t at = 0;
      while (at < found.size() && at < expected->size() && found[at] == (*expected)[at]) {
        ++at;
      }
      return "the file differs at byte " + std::to_string(at) + " of " + std::to_string(expected->size());
    }
    return "";
  }

 private:
  struct Mark {
    bool exists = false;
    ino_t inode = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;

    bool operator!=(const Mark& other) const {
      return exists != other.exists || inode != other.inode || seconds != other.seconds ||
             nanoseconds != other.nanoseconds;
    }
  };

  Mark mark() const {
    struct stat status = {};
    if (::stat(mPath.c_str(), &status) != 0) {
      return {};
    }
    return {true, status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  }

  const SaveFolder& mFolder;
  const std::string mPath;
  Mark mLast;
  bool mWasCompared = false;
};

/// What every run has: the log and the file, compared.
class Comparison {
 public:
  Comparison(const SaveFolder& folder, LogCapture& log) : mSaved(folder), mLog(log) {
    SaveFolder::letGo();
    mLog.clear();
  }

  Saved& saved() { return mSaved; }

  std::string logAndFile(const Numbers& numbers, const std::vector<std::string>& expectedLog) {
    const std::uint64_t writes = numbers.writes();
    const bool isWritten = writes != mWrites;
    mWrites = writes;
    if (std::string difference = mSaved.compare(numbers.file(), isWritten); !difference.empty()) {
      return difference;
    }
    std::vector<std::string> found = mLog.lines();
    mLog.clear();
    for (std::string& line : found) {
      const std::size_t tag = line.find(" [1] ");
      line = tag == std::string::npos ? line : line.substr(tag + 5);
    }
    if (found != expectedLog) {
      return "the log has" + quoted(found) + ", not" + quoted(expectedLog);
    }
    return "";
  }

  static std::string lists(const Devices& found, const Devices& expected) {
    bool areEqual = found.size() == expected.size();
    for (std::size_t i = 0; areEqual && i < found.size(); ++i) {
      areEqual = isEqual(found[i], expected[i]);
    }
    if (areEqual) {
      return "";
    }
    std::string text = "the list is";
    for (const IntegratedDevice& device : found) {
      text += "\n  " + textOf(device);
    }
    text += "\nnot";
    for (const IntegratedDevice& device : expected) {
      text += "\n  " + textOf(device);
    }
    return text;
  }

 private:
  Saved mSaved;
  LogCapture& mLog;
  std::uint64_t mWrites = 0;
};

/// The three services' tables, a client, and the model of them.
class Unit {
 public:
  Unit(const SaveFolder& folder, LogCapture& log, Reached& reached) : mComparison(folder, log), mModel(reached) {}

  /// Returns what differed.
  template <class AnyStep>
  std::string take(const AnyStep& step) {
    std::string difference = apply(step);
    return difference.empty() ? mComparison.logAndFile(mModel.numbers(), mModel.takeLog()) : difference;
  }

 private:
  std::string apply(const Put<BtPhone>& put) {
    const std::size_t offset = 4 + put.slot * BT_SLOT_SIZE;
    mBt.put(offset, put.phone ? imageOf(*put.phone) : std::string(BT_SLOT_SIZE, '\xFF'));
    mModel.apply(put);
    return "";
  }

  std::string apply(const Put<CpPhone>& put) {
    const std::size_t offset = 1800 + put.slot * CP_SLOT_SIZE;
    mCp.put(offset, put.phone ? imageOf(*put.phone) : std::string(CP_SLOT_SIZE, '\0'));
    mModel.apply(put);
    return "";
  }

  std::string apply(const Put<AapPhone>& put) {
    const std::size_t offset = 4 + put.slot * AAP_SLOT_SIZE;
    mAap.put(offset, put.phone ? imageOf(*put.phone) : std::string(AAP_SLOT_SIZE, '\0'));
    mModel.apply(put);
    return "";
  }

  std::string apply(const SetCurrentPhone& step) {
    mCp.put64(1072, step.identifier);
    mModel.apply(step);
    return "";
  }

  std::string apply(const Restart& restart) {
    mClient.reset();
    SaveFolder::letGo();
    mComparison.saved().prepare(restart);
    mFuncInfo.awaitBluetooth(restart.awaitsBluetooth ? 1 : 0);
    mClient = std::make_unique<LmSIntegratedDeviceListImpl>();
    mClient->setFormat(functionOf(restart.format));
    if (restart.isInitialised) {
      mClient->initialize();
    }
    mModel.restart(restart);
    return "";
  }

  std::string apply(const SetFormat& step) {
    const bool found = mClient->setFormat(functionOf(step.format));
    return found == mModel.setFormat(step.format) ? "" : "setFormat returned " + std::to_string(found ? 1 : 0);
  }

  std::string apply(const Refresh& step) {
    mClient->updateDeviceList(static_cast<DeviceType>(step.type));
    mModel.refresh(step.type);
    Devices found(1);  // is to be replaced, or to stay
    const bool answer = mClient->getDeviceList(found);
    if (answer != mModel.ask()) {
      return answer ? "there is a list" : "there is no list";
    }
    if (!answer) {
      return found.size() == 1 && isEqual(found[0], IntegratedDevice()) ? "" : "a refused call changed the list";
    }
    if (!mModel.hasMerged()) {  // of a source that there is not
      return Comparison::lists(found, mLast);
    }
    mLast = found;
    return Comparison::lists(found, mModel.number(found));
  }

  BtTable mBt;
  CpTable mCp;
  AapTable mAap;
  FuncInfoTable mFuncInfo;
  Comparison mComparison;
  NaiveModel mModel;
  std::unique_ptr<LmSIntegratedDeviceListImpl> mClient;
  Devices mLast;
};

/// The numbering without the rest.
class Counter {
 public:
  Counter(const SaveFolder& folder, LogCapture& log, Reached& reached)
      : mReached(reached), mComparison(folder, log), mModel(reached) {}

  template <class AnyStep>
  std::string take(const AnyStep& step) {
    std::string difference = apply(step);
    return difference.empty() ? mComparison.logAndFile(mModel, std::exchange(mExpectedLog, {})) : difference;
  }

 private:
  std::string apply(const Restart& restart) {
    mProvider.reset();
    SaveFolder::letGo();
    mComparison.saved().prepare(restart);
    mProvider = std::make_unique<SuffixProvider>();
    mProvider->setFormat(functionOf(restart.format));
    mModel.restart(fileAfter(restart, mModel.file()));
    mModel.setFormat(restart.format, mExpectedLog);
    if (restart.isInitialised) {
      mProvider->start();
      mModel.start(mExpectedLog);
    }
    return "";
  }

  std::string apply(const SetFormat& step) {
    const bool found = mProvider->setFormat(functionOf(step.format));
    return found == mModel.setFormat(step.format, mExpectedLog) ? "" : "setFormat returned another result";
  }

  std::string apply(const Number& step) {
    Devices found;
    for (const Number::Phone& phone : step.phones) {
      IntegratedDevice device;
      device.name = phone.name;
      device.btid = phone.btid;
      device.port = phone.port;
      found.push_back(device);
    }
    Devices expected = found;
    mProvider->appendSuffix(found);
    mModel.number(expected, mExpectedLog);
    ++mReached.refreshes;
    return Comparison::lists(found, expected);
  }

  Reached& mReached;
  Comparison mComparison;
  Numbers mModel;
  std::vector<std::string> mExpectedLog;
  std::unique_ptr<SuffixProvider> mProvider;
};

template <class Subject, class AnyStory>
std::string runOn(Subject& subject, const AnyStory& story) {
  std::string difference = subject.take(story.start);
  std::size_t step = 0;
  while (difference.empty() && step < story.steps.size()) {
    difference =
        std::visit([&subject](const auto& alternative) { return subject.take(alternative); }, story.steps[step]);
    ++step;
  }
  return difference.empty() ? "" : "after step " + std::to_string(step) + " " + difference;
}

}  // namespace

std::string StoryRunner::run(const Story& story) {
  std::filesystem::remove(mFolder / FILE_NAME);
  Unit unit(mFolder, mLog, mReached);
  return runOn(unit, story);
}

std::string StoryRunner::run(const NumberingStory& story) {
  std::filesystem::remove(mFolder / FILE_NAME);
  Counter counter(mFolder, mLog, mReached);
  return runOn(counter, story);
}

}  // namespace model
