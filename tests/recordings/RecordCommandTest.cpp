// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>
#include <tuple>

#include "idlctl/FolderPicture.h"
#include "idlctl/Invocation.h"
#include "recordings/RecordingSteps.h"
#include "support/ChildProcess.h"
#include "support/PhoneTables.h"
#include "support/SaveFolder.h"
#include "support/Users.h"

namespace {

using namespace idl::bench;
using idl::tools::recording::Event;
using testing::HasSubstr;

constexpr char SHARED_MEMORY[] = "/dev/shm";
constexpr uid_t NOBODY = 65534;

class Record : public testing::Test {
 protected:
  SaveFolder mFolder;
};

TEST_F(Record, ChangesNothingOnAnEmptyMachine) {
  const auto before = pictureOf(SHARED_MEMORY);

  const Invocation record({"record", "--timeout", "50ms", "--interval", "10ms"});

  EXPECT_EQ(pictureOf(SHARED_MEMORY), before);
  EXPECT_EQ(record.exitCode(), 0);
  EXPECT_EQ(eventsOf(record.out()).size(), 2U);  // it begins, it ends
}

TEST_F(Record, ChangesNothingOnAUnitInUse) {
  for (const auto& step : aDayInACar()) {
    step();
  }
  const auto before = pictureOf(SHARED_MEMORY);

  EXPECT_EQ(Invocation({"record", "--timeout", "50ms", "--interval", "10ms"}).exitCode(), 0);

  EXPECT_EQ(pictureOf(SHARED_MEMORY), before);
}

TEST_F(Record, NeedsNoMoreThanTheRightToRead) {
  if (geteuid() != 0) {
    // Who is not root cannot become the user whose rights are tried here; CI runs as root.
    GTEST_SKIP() << "only root can be another user";
  }
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Phone", ""});
  chmod("/dev/shm/BtPairedDeviceList", 0644);
  const auto before = pictureOf(SHARED_MEMORY);

  ChildProcess child([] {
    become(NOBODY, {NOBODY});
    const Invocation record({"record", "--timeout", "50ms", "--interval", "10ms"});
    return record.exitCode() == 0 && record.out().find("readWithoutLock") != std::string::npos ? 0 : 1;
  });

  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(pictureOf(SHARED_MEMORY), before);
}

TEST_F(Record, HasWhatHappensWhileItRuns) {
  BtPublisher().initialise();
  ChildProcess service([] {
    BtPublisher bt;
    for (unsigned count = 0;; ++count) {
      bt.put(0, {3, "Phone " + std::to_string(count), ""});
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
    return 0;
  });

  const Invocation record({"record", "--timeout", "500ms", "--interval", "5ms"});

  unsigned passes = 0;
  for (const Event& event : eventsOf(record.out())) {
    passes += event.isPass ? 1U : 0U;
  }
  EXPECT_GT(passes, 5U);
}

TEST_F(Record, IsThereLineByLineWhenItsRecorderIsKilled) {
  BtPublisher().initialise();
  const std::string path = mFolder.path() / "recording";
  ChildProcess recorder([&] { return Invocation({"record", "-o", path, "--interval", "5ms"}).exitCode(); });
  const auto isWritten = [&path] {
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return text.find(R"("source":"bt")") != std::string::npos && text.back() == '\n';
  };
  for (int k = 0; k < 6000 && !isWritten(); ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

  recorder.signal(SIGKILL);
  recorder.wait();
  removePhoneTables();

  const Invocation check({"replay", path, "--check", "--here"});
  EXPECT_EQ(check.exitCode(), 0) << check.err();
  EXPECT_THAT(check.out(), HasSubstr("1 passes, the same lists"));
  EXPECT_THAT(check.err(), HasSubstr("did not end it"));
}

TEST_F(Record, EndsTheRecordingWhenItIsStopped) {
  const std::string path = mFolder.path() / "recording";
  ChildProcess recorder([&] { return Invocation({"record", "-o", path, "--interval", "5ms"}).exitCode(); });
  for (int k = 0; k < 6000 && (!std::filesystem::exists(path) || std::filesystem::file_size(path) == 0); ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

  recorder.signal(SIGTERM);

  EXPECT_EQ(recorder.wait(), 0);
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(eventsOf(text).back().kind, Event::Kind::END);
}

TEST_F(Record, GivesOtherNames) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Phone", "00:00:5E:00:53:01"});
  bt.put(1, {4, "Phone", "00:00:5E:00:53:02"});

  const Invocation record({"record", "--timeout", "10ms", "--pseudonymise"});

  const std::vector<Event> events = eventsOf(record.out());
  const auto& rows = events.at(1).list.rows;
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_NE(rows[0].header.name, "Phone");
  EXPECT_EQ(rows[1].header.name, rows[0].header.name + " 2");
  EXPECT_EQ(record.out().find("Phone"), std::string::npos);
}

TEST_F(Record, WarnsOfAThirdNumberThatOtherNamesLose) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Phone 1 2", ""});
  bt.put(1, {4, "Phone 1 2 2", ""});
  const std::string path = mFolder.path() / "recording";

  const Invocation live({"record", "--timeout", "10ms", "--pseudonymise"});
  const Invocation own({"record", "--timeout", "10ms", "-o", path});
  const Invocation copy({"record", "--from", path, "--pseudonymise"});

  EXPECT_THAT(live.err(), HasSubstr("\"Phone 1 2 2\" has three numbers at its end"));
  EXPECT_THAT(copy.err(), HasSubstr("\"Phone 1 2 2\" has three numbers at its end"));
  EXPECT_EQ(own.err(), "");
}

TEST_F(Record, WarnsOfNoNumbersThatOtherNamesKeep) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Phone 1", ""});
  bt.put(1, {4, "Phone 1 2", ""});
  bt.put(2, {5, "Other 1 2 2", ""});

  EXPECT_EQ(Invocation({"record", "--timeout", "10ms", "--pseudonymise"}).err(), "");
}

TEST_F(Record, IsNotWrittenOverAnother) {
  const std::string path = write(mFolder.path(), "recording", "tuesday\n");
  const std::string empty = write(mFolder.path(), "empty", "");

  const Invocation refused({"record", "--timeout", "10ms", "-o", path});

  EXPECT_EQ(refused.exitCode(), 3);
  EXPECT_THAT(refused.err(), HasSubstr("--force"));
  EXPECT_EQ(mFolder.contents("recording"), "tuesday\n");
  EXPECT_EQ(Invocation({"record", "--timeout", "10ms", "-o", empty}).exitCode(), 0);
  EXPECT_EQ(Invocation({"record", "--timeout", "10ms", "-o", path, "--force"}).exitCode(), 0);
  EXPECT_EQ(eventsOf(mFolder.contents("recording")).back().kind, Event::Kind::END);
}

TEST_F(Record, GoesToStandardOutputForADash) {
  const Invocation record({"record", "--timeout", "10ms", "-o", "-"});
  const std::string from = write(mFolder.path(), "recording", record.out());

  EXPECT_EQ(eventsOf(record.out()).back().kind, Event::Kind::END);
  EXPECT_EQ(Invocation({"record", "--from", from, "-o", "-"}).out(), record.out());
  EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(Record, IsARecordingOfJsonObjectsWithSortedKeys) {
  const std::string text = recordingOf(mFolder.path(), aDayInACar());
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) {
    EXPECT_EQ(nlohmann::json::parse(line).dump(-1, ' ', true), line);
    EXPECT_EQ(nlohmann::json::parse(line).at("schema"), 1);
  }
}

TEST_F(Record, SaysThatItCannotWrite) {
  EXPECT_EQ(Invocation({"record", "-o", "/nowhere/recording", "--timeout", "10ms"}).exitCode(), 3);
  EXPECT_EQ(Invocation({"record", "-o", "/dev/full", "--timeout", "10ms"}).exitCode(), 3);
}

/// A recording, and a file with something else in it.
class ACopyOfARecording : public Record {
 protected:
  std::string contentsOf(const std::string& path) const {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  std::size_t files() const {
    const std::filesystem::directory_iterator folder(mFolder.path());
    return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
  }

  const std::string mText = recordingOf(mFolder.path(), {});
  const std::string mFrom = write(mFolder.path(), "from", mText);
  const std::string mOther = write(mFolder.path(), "other", "something else");
};

TEST_F(ACopyOfARecording, TakesThePlaceOfWhatWasThere) {
  chmod(mOther.c_str(), 0604);

  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", mOther}).exitCode(), 0);

  EXPECT_EQ(contentsOf(mOther), mText);
  EXPECT_EQ(std::filesystem::status(mOther).permissions(), std::filesystem::perms(0604));
  EXPECT_EQ(files(), 2U);
}

TEST_F(ACopyOfARecording, IsWrittenWhereALinkLeads) {
  const std::string link = mFolder.path() / "link";
  std::filesystem::create_symlink("other", link);

  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", link}).exitCode(), 0);

  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(contentsOf(mOther), mText);
}

TEST_F(ACopyOfARecording, IsWrittenWhereALinkLeadsThatLedNowhere) {
  const std::string link = mFolder.path() / "link";
  std::filesystem::create_symlink("new", link);

  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", link}).exitCode(), 0);

  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(contentsOf(mFolder.path() / "new"), mText);
}

TEST_F(ACopyOfARecording, MayHaveTheLongestNameThatThereIs) {
  const std::string path = mFolder.path() / std::string(255, 'x');

  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", path}).exitCode(), 0);

  EXPECT_EQ(contentsOf(path), mText);
}

TEST_F(ACopyOfARecording, IsWrittenToAFileInAFolderThatIsSomebodyElses) {
  if (geteuid() != 0) {
    // Who is not root cannot become the user whose rights are tried here; CI runs as root.
    GTEST_SKIP() << "only root can be another user";
  }
  chmod(mFolder.path().c_str(), 0755);
  chmod(mOther.c_str(), 0666);

  ChildProcess copy([this] {
    become(NOBODY, {NOBODY});
    return Invocation({"record", "--from", mFrom, "-o", mOther}).exitCode();
  });

  EXPECT_EQ(copy.wait(), 0);
  EXPECT_EQ(contentsOf(mOther), mText);
}

TEST_F(ACopyOfARecording, LeavesNothingWhenItIsStopped) {
  const std::string pipe = mFolder.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const int signal : {SIGTERM, SIGINT, SIGKILL}) {
    ChildProcess copy([&] { return Invocation({"record", "--from", pipe, "-o", mOther}).exitCode(); });
    std::ofstream half(pipe);  // is open once the other side is
    half << mText.substr(0, mText.size() / 2) << std::flush;

    copy.signal(signal);

    EXPECT_NE(copy.wait(), 0);
    EXPECT_EQ(files(), 3U);
    EXPECT_EQ(contentsOf(mOther), "something else");
  }
}

TEST_F(ACopyOfARecording, IsNotWrittenOverWhatItIsMadeOf) {
  const std::string link = mFolder.path() / "link";
  std::filesystem::create_symlink("from", link);

  EXPECT_EQ(Invocation({"record", "--from", mFrom, "--pseudonymise", "-o", mFrom}).exitCode(), 2);
  EXPECT_EQ(Invocation({"record", "--from", mFrom, "--pseudonymise", "-o", link}).exitCode(), 2);

  EXPECT_EQ(contentsOf(mFrom), mText);
}

TEST_F(ACopyOfARecording, LeavesWhatIsThereWhereThereIsNothingToCopy) {
  const std::string damaged = write(mFolder.path(), "damaged", mText.substr(0, mText.find('\n') + 1) + "garbage\n");

  EXPECT_EQ(Invocation({"record", "--from", mFolder.path() / "none", "-o", mOther}).exitCode(), 3);
  EXPECT_EQ(Invocation({"record", "--from", damaged, "-o", mOther}).exitCode(), 4);
  EXPECT_EQ(Invocation({"record", "--from", damaged, "-o", mFolder.path() / "new"}).exitCode(), 4);

  EXPECT_EQ(contentsOf(mOther), "something else");
  EXPECT_EQ(files(), 3U);
}

TEST_F(ACopyOfARecording, GoesToWhatIsNoFile) {
  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", "/dev/null"}).exitCode(), 0);
  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", "/dev/full"}).exitCode(), 3);
  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", mFolder.path()}).exitCode(), 3);
  EXPECT_EQ(Invocation({"record", "--from", mFrom, "-o", "/nowhere/recording"}).exitCode(), 3);

  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

}  // namespace
