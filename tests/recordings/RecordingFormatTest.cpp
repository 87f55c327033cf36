// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "recordings/RecordingSteps.h"
#include "support/SaveFolder.h"
#include "tools/inspect/LiveList.h"
#include "tools/recording/Pseudonyms.h"
#include "tools/text/Hexadecimal.h"

namespace {

using namespace idl::tools::recording;
using idl::bench::BtPublisher;
using idl::tools::BT_SOURCE;
using idl::tools::LiveList;
using idl::tools::TableCopy;
using testing::HasSubstr;
using testing::Not;

class ARecording : public testing::Test {
 protected:
  SaveFolder mFolder;
};

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) {
    lines.push_back(line);
  }
  return lines;
}

TEST_F(ARecording, GivesBackEachTableAndEachListBitForBit) {
  std::vector<Event> written;
  std::ostringstream text;
  RecordingWriter writer(text, {"2026-01-31T23:59:59Z", false});
  Recorder recorder(mFolder.path(), [&](const Event& event) {
    written.push_back(event);
    writer.write(event);
  });
  for (const auto& step : aDayInACar()) {
    step();
    recorder.poll();
  }
  recorder.end();

  const std::vector<Event> read = eventsOf(text.str());

  ASSERT_EQ(read.size(), written.size());
  for (std::size_t k = 0; k < read.size(); ++k) {
    EXPECT_EQ(read[k].kind, written[k].kind);
    EXPECT_EQ(read[k].source, written[k].source);
    EXPECT_EQ(read[k].time, written[k].time);
    EXPECT_EQ(read[k].copy.state, written[k].copy.state);
    EXPECT_EQ(read[k].copy.objectSize, written[k].copy.objectSize);
    EXPECT_EQ(read[k].copy.bytes, written[k].copy.bytes);
    EXPECT_EQ(read[k].saved.bytes, written[k].saved.bytes);
    EXPECT_EQ(read[k].isPass, written[k].isPass);
    EXPECT_EQ(read[k].list, written[k].list);
  }
}

TEST_F(ARecording, HasThePassesOfWatch) {
  std::string text = recordingOf(mFolder.path(), aDayInACar());

  unsigned passes = 0;
  for (const Event& event : eventsOf(text)) {
    passes += event.isPass ? 1U : 0U;
  }

  EXPECT_EQ(passes, 11U);  // of the steps all but the one that removes a table
}

TEST_F(ARecording, HoldsOnlyWhatChanged) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Phone", "00:00:5E:00:53:01"});

  const std::vector<std::string> lines = linesOf(recordingOf(
      mFolder.path(), {[] {}, [] {}, [&] { bt.change("Phone", [](auto& phone) { phone.name = "Phont"; }); }, [] {}}));

  ASSERT_EQ(lines.size(), 5U);  // that it is one, where the list begins, two tables, the end
  const auto change = nlohmann::json::parse(lines[3]);
  EXPECT_EQ(change.at("changed"), nlohmann::json::parse(R"([{"at": 13, "hex": "74"}])"));
  EXPECT_EQ(change.at("slots").size(), 1U);
  EXPECT_EQ(change.at("slots").at(0).at("name"), "Phont");
  EXPECT_EQ(change.at("list").at("rows").size(), 1U);
}

TEST_F(ARecording, NotesThatATableWasReadWithoutItsLock) {
  BtPublisher bt;
  bt.initialise();
  const LmSharedSyncObject lock("BtPairedDeviceList");
  lock.lock();

  const std::string text = recordingOf(mFolder.path(), {});

  lock.unlock();
  EXPECT_THAT(text, HasSubstr(R"("readWithoutLock":true)"));
  EXPECT_THAT(recordingOf(mFolder.path(), {}), Not(HasSubstr("readWithoutLock")));
}

// Who dies while it holds the lock leaves the bytes as they were.
TEST_F(ARecording, NotesThatTheSameBytesAreReadWithoutTheirLockAndWithItAgain) {
  BtPublisher bt;
  bt.initialise();
  const LmSharedSyncObject lock("BtPairedDeviceList");

  const std::vector<std::string> lines =
      linesOf(recordingOf(mFolder.path(), {[&] { lock.lock(); }, [] {}, [&] { lock.unlock(); }, [] {}}));

  ASSERT_EQ(lines.size(), 6U);  // that it is one, where the list begins, the table three times, the end
  EXPECT_THAT(lines[2], Not(HasSubstr("readWithoutLock")));
  EXPECT_EQ(nlohmann::json::parse(lines[3]).at("readWithoutLock"), true);
  EXPECT_EQ(nlohmann::json::parse(lines[3]).at("changed"), nlohmann::json::array());
  EXPECT_EQ(nlohmann::json::parse(lines[3]).at("pass"), false);
  EXPECT_THAT(lines[4], Not(HasSubstr("readWithoutLock")));
}

TEST_F(ARecording, IsCutAnywhereAndReadUpToItsLastWholeLine) {
  const std::string text = recordingOf(mFolder.path(), {[] {
                                         BtPublisher bt;
                                         bt.initialise();
                                         bt.put(0, {3, "Phone", ""});
                                       }});
  const std::size_t header = text.find('\n') + 1;
  for (std::size_t length = header; length < text.size(); ++length) {
    std::istringstream input(text.substr(0, length));
    RecordingReader reader(input);
    std::size_t events = 0;
    for (Event event; reader.next(event);) {
      ++events;
    }
    const auto whole =
        static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<long>(length), '\n'));
    ASSERT_EQ(events, whole - 1);
    ASSERT_EQ(reader.isCut(), text[length - 1] != '\n');
    ASSERT_FALSE(reader.hasEnd());
  }
}

TEST_F(ARecording, IsNoneBeforeItsFirstLineIsWhole) {
  std::istringstream input(R"({"schema":1,"event":"recording","version":1)");

  EXPECT_THROW(RecordingReader reader(input), BadRecording);
}

TEST_F(ARecording, WithOtherNamesHasTheSameNumbersInTheSameOrder) {
  const std::string text = recordingOf(mFolder.path(), aDayInACar());
  const Pseudonyms pseudonyms("0123456789abcdef");
  std::ostringstream other;
  RecordingWriter writer(other, {"", true});

  for (const Event& event : eventsOf(text)) {
    const Event changed = pseudonyms.event(event);
    ASSERT_EQ(changed.list.rows.size(), event.list.rows.size());
    for (std::size_t k = 0; k < event.list.rows.size(); ++k) {
      EXPECT_EQ(changed.list.rows[k].header.suffix, event.list.rows[k].header.suffix);
      EXPECT_EQ(changed.list.rows[k].header.btid, event.list.rows[k].header.btid);
    }
    writer.write(changed);
  }

  EXPECT_THAT(other.str(), Not(HasSubstr("iPhone")));
  EXPECT_THAT(other.str(), Not(HasSubstr("6950686f6e65")));
}

TEST_F(ARecording, WithOtherNamesHasNoneOfItsPhones) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "Anna Phone", "00:00:5E:00:53:AB"});
  idl::bench::CpPublisher cp;
  cp.initialise();
  cp.put(0, {0x1122334455667788, "Ben Phone", 0});
  cp.setCurrentPhone(0x1122334455667788);
  idl::bench::AapPublisher aap;
  aap.initialise();
  aap.put(0, {"device-4711-xyz", "Eve Phone", 0, 255, 1});
  write(mFolder.path(), "IDLSuffix.ini",
        std::string("\1\4Zoe Phone", 11) + std::string(251, '\0') + '\1' + std::string(263 * 9, '\0'));
  const std::string text = recordingOf(mFolder.path(), {});
  const Pseudonyms pseudonyms("0123456789abcdef");
  std::ostringstream other;
  RecordingWriter writer(other, {"", true});

  for (const Event& event : eventsOf(text)) {
    writer.write(pseudonyms.event(event));
  }

  for (const char* word : {"Anna Phone", "Ben Phone", "Eve Phone", "Zoe Phone", "00:00:5E:00:53:AB", "device-4711-xyz",
                           "1234605616436508552"}) {
    EXPECT_THAT(text, HasSubstr(word));
    EXPECT_THAT(other.str(), Not(HasSubstr(word)));
  }
  for (const char* bytes :
       {"Anna", "Ben", "Eve", "Zoe", "Phone", "00:00:5E", "device-4711", "\x88\x77\x66\x55\x44\x33"}) {
    const std::string hexadecimal = idl::tools::hexadecimalOf(bytes);
    EXPECT_THAT(text, HasSubstr(hexadecimal));
    EXPECT_THAT(other.str(), Not(HasSubstr(hexadecimal)));
  }
}

TEST_F(ARecording, WithOtherNamesHoldsNothingBehindTheEndOfATextAndNothingThatNobodyReads) {
  BtPublisher bt;
  bt.initialise();
  bt.put(0, {3, "A", ""});
  bt.writeRaw(BtPublisher::offsetOf(0), "HEAD");
  bt.writeRaw(BtPublisher::offsetOf(0) + 5, std::string("A\0SECRET", 8));
  idl::bench::CpPublisher cp;
  cp.initialise();
  cp.writeRaw(100, "SECRET");
  cp.put(0, {7, "A", 0});
  cp.writeRaw(idl::bench::CpPublisher::offsetOf(0) + 270, "SECRET");
  cp.writeRaw(idl::bench::CpPublisher::offsetOf(0) + 10, "SECRET");

  const Pseudonyms pseudonyms("0123456789abcdef");
  for (const Event& event : eventsOf(recordingOf(mFolder.path(), {}))) {
    const Event changed = pseudonyms.event(event);
    EXPECT_EQ(changed.copy.bytes.find("SECRET"), std::string::npos);
    EXPECT_EQ(changed.copy.bytes.find("HEAD"), std::string::npos);
    for (const RecordedRow& row : changed.list.rows) {
      EXPECT_EQ((row.bt + row.cp + row.aap).find("SECRET"), std::string::npos);
    }
  }
}

}  // namespace
