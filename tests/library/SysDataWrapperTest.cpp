// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "SysDataWrapper.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Table = std::vector<DeviceInfo>;

static_assert(std::has_virtual_destructor_v<SysDataWrapper>);

DeviceInfo phone(std::uint8_t btid, const std::string& name, std::uint8_t suffix) {
  DeviceInfo info;
  info.btid = btid;
  info.name = name;
  info.suffix = suffix;
  return info;
}

/// "3 Phone 2": Bluetooth id, name and number.
std::vector<std::string> told(const Table& table) {
  std::vector<std::string> texts;
  texts.reserve(table.size());
  for (const DeviceInfo& entry : table) {
    texts.push_back(std::to_string(entry.btid) + " " + entry.name + " " + std::to_string(entry.suffix));
  }
  return texts;
}

/// What a file's bytes mean, read byte by byte.
std::vector<std::string> meaningOf(std::string bytes) {
  bytes.resize(2630, '\0');
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < 2630 && bytes[at] != 0; at += 263) {
    std::string name;
    for (std::size_t i = at + 2; i < at + 262 && bytes[i] != 0; ++i) {
      name += bytes[i];
    }
    texts.push_back(std::to_string(static_cast<unsigned char>(bytes[at + 1])) + " " + name + " " +
                    std::to_string(static_cast<unsigned char>(bytes[at + 262])));
  }
  return texts;
}

Table tenPhones() {
  Table table;
  for (std::uint8_t i = 0; i < 10; ++i) {
    table.push_back(phone(static_cast<std::uint8_t>(20 + i), "Phone " + std::to_string(i), i));
  }
  return table;
}

class ASuffixFile : public testing::Test {
 protected:
  /// What somebody who starts now would load.
  std::vector<std::string> loaded() const {
    SysDataWrapper reader;
    Table table = {phone(1, "to be replaced", 1)};
    reader.load(table);
    return told(table);
  }

  std::string bytes() const { return folder.contents("IDLSuffix.ini"); }
  bool exists() const { return std::filesystem::exists(folder / "IDLSuffix.ini"); }

  SaveFolder folder;
  LogCapture log;
  SysDataWrapper wrapper;
};

TEST_F(ASuffixFile, IsNotMadeByLoading) {
  EXPECT_THAT(loaded(), IsEmpty());

  EXPECT_FALSE(exists());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ASuffixFile, HoldsRecordsOf263BytesAndNothingElse) {
  std::string expected(2630, '\0');
  expected[0] = 1;
  expected[1] = 3;
  expected.replace(2, 5, "Phone");
  expected[262] = 2;
  expected[263] = 1;
  expected[264] = static_cast<char>(254);
  expected.replace(265, 3, "Tab");
  expected[525] = static_cast<char>(255);

  wrapper.save({phone(3, "Phone", 2), phone(254, "Tab", 255)});

  EXPECT_EQ(bytes(), expected);
}

TEST_F(ASuffixFile, HoldsTenRecordsAtMost) {
  wrapper.save(tenPhones());

  ASSERT_EQ(bytes().size(), 2630U);
  EXPECT_EQ(bytes()[2367], 1);
  EXPECT_EQ(bytes()[2368], 29);
  EXPECT_EQ(bytes().substr(2369, 7), "Phone 9");
  EXPECT_EQ(bytes()[2629], 9);
  EXPECT_THAT(loaded(), SizeIs(10));
}

TEST_F(ASuffixFile, StaysAsItWasWhenElevenPhonesArePaired) {
  wrapper.save(tenPhones());
  const std::string before = bytes();
  Table eleven = tenPhones();
  eleven.insert(eleven.begin(), phone(1, "One too many", 1));

  wrapper.save(eleven);

  EXPECT_EQ(bytes(), before);
  EXPECT_EQ(log.count("SysDataWrapper:69 save [1] lBtSuffixTable size over. size=11"), 1U);
  wrapper.save(tenPhones());
  EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(ASuffixFile, TakesAnyNumberOfPhonesThatAreNotPaired) {
  Table table(30, phone(255, "Cable", 1));
  table[7] = phone(4, "Phone", 1);
  table[21] = phone(2, "Tab", 1);

  wrapper.save(table);

  EXPECT_THAT(loaded(), ElementsAre("4 Phone 1", "2 Tab 1"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ASuffixFile, IsAllZeroWhenNoPhoneIsPairedAnyMore) {
  wrapper.save({phone(3, "Phone", 1)});

  wrapper.save({phone(255, "Cable", 1)});

  EXPECT_EQ(bytes(), std::string(2630, '\0'));
}

TEST_F(ASuffixFile, IsNotMadeForATableWithoutPairedPhones) {
  wrapper.save({phone(255, "Cable", 1)});
  wrapper.save({});

  EXPECT_FALSE(exists());
}

TEST_F(ASuffixFile, IsWrittenOnceForTheSameTable) {
  wrapper.save({phone(3, "Phone", 1)});
  std::filesystem::remove(folder / "IDLSuffix.ini");

  wrapper.save({phone(3, "Phone", 1)});

  EXPECT_FALSE(exists());
}

TEST_F(ASuffixFile, IsWrittenForAChangeInAnyField) {
  const Table tables[] = {{phone(3, "Phone", 1)},
                          {phone(4, "Phone", 1)},
                          {phone(4, "phone", 1)},
                          {phone(4, "phone", 2)},
                          {phone(4, "phone", 2), phone(0, "", 0)},
                          {phone(4, "phone", 2)}};
  for (const Table& table : tables) {
    wrapper.save(table);

    EXPECT_EQ(loaded(), told(table));
  }
}

TEST_F(ASuffixFile, IsNotWrittenForWhatIsNotStored) {
  DeviceInfo entry = phone(3, "Phone", 1);
  wrapper.save({entry});
  std::filesystem::remove(folder / "IDLSuffix.ini");

  entry.port = 2;
  entry.session = 3;
  entry.cpDeviceId = 4;
  entry.aapId = "id";
  entry.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
  wrapper.save({entry, phone(255, "Cable", 1)});

  EXPECT_FALSE(exists());
}

TEST_F(ASuffixFile, IsNotWrittenForTheTableThatWasLoaded) {
  wrapper.save(tenPhones());
  SysDataWrapper reader;
  Table table;
  reader.load(table);
  std::filesystem::remove(folder / "IDLSuffix.ini");

  reader.save(table);

  EXPECT_FALSE(exists());
}

TEST_F(ASuffixFile, IsWrittenAnewWhereSomethingStandsBehindItsLastRecord) {
  const Table one = {phone(3, "Phone", 2)};
  wrapper.save(one);
  const std::string clean = bytes();
  for (const std::size_t rest : {std::size_t{263 + 1}, std::size_t{263 + 2}, std::size_t{263 + 262}}) {
    std::string file = clean;
    file[rest] = 'x';
    folder.put("IDLSuffix.ini", file);
    SysDataWrapper reader;
    Table table;
    reader.load(table);
    ASSERT_EQ(told(table), told(one)) << "byte " << rest;

    reader.save(table);

    EXPECT_EQ(bytes(), clean) << "byte " << rest;
  }
}

TEST_F(ASuffixFile, StaysAsItWasWhenAnEleventhPhoneIsPairedBehindTheOthers) {
  wrapper.save(tenPhones());
  const std::string before = bytes();
  Table eleven = tenPhones();
  eleven.push_back(phone(99, "One too many", 1));

  wrapper.save(eleven);

  EXPECT_EQ(bytes(), before);
  EXPECT_EQ(log.count("SysDataWrapper:69 save [1] lBtSuffixTable size over. size=11"), 1U);
}

TEST_F(ASuffixFile, HoldsTheFirst259BytesOfALongName) {
  const std::string name(300, 'n');

  wrapper.save({phone(3, name, 1)});

  EXPECT_EQ(bytes()[260], 'n');
  EXPECT_EQ(bytes()[261], '\0');
  EXPECT_EQ(bytes()[262], 1);
  EXPECT_THAT(loaded(), ElementsAre("3 " + name.substr(0, 259) + " 1"));
}

TEST_F(ASuffixFile, HoldsANameOf259BytesWhole) {
  const std::string name(259, 'n');

  wrapper.save({phone(3, name, 1)});

  EXPECT_THAT(loaded(), ElementsAre("3 " + name + " 1"));
}

TEST_F(ASuffixFile, IsNotWrittenForADifferenceBehindByte259OfAName) {
  wrapper.save({phone(3, std::string(300, 'n'), 1)});
  std::filesystem::remove(folder / "IDLSuffix.ini");

  wrapper.save({phone(3, std::string(259, 'n') + "other", 1)});

  EXPECT_FALSE(exists());
}

TEST_F(ASuffixFile, LoadsAsRecordsOfBluetoothWithNothingButWhatIsStored) {
  DeviceInfo entry = phone(3, "Phone", 2);
  entry.type = LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
  entry.port = 1;
  entry.session = 1;
  entry.cpDeviceId = 1;
  entry.aapId = "id";
  wrapper.save({entry});
  SysDataWrapper reader;
  Table table;

  reader.load(table);

  ASSERT_THAT(table, SizeIs(1));
  EXPECT_EQ(table[0].type, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  EXPECT_EQ(table[0].name, "Phone");
  EXPECT_EQ(table[0].btid, 3);
  EXPECT_EQ(table[0].port, 0);
  EXPECT_EQ(table[0].session, 0);
  EXPECT_EQ(table[0].cpDeviceId, 0U);
  EXPECT_EQ(table[0].aapId, "");
  EXPECT_EQ(table[0].suffix, 2);
}

TEST_F(ASuffixFile, IsEmptyWhenItsFirstRecordIsNotInUse) {
  wrapper.save(tenPhones());
  std::string file = bytes();
  file[0] = 0;
  folder.put("IDLSuffix.ini", file);

  EXPECT_THAT(loaded(), IsEmpty());
}

TEST_F(ASuffixFile, WithABitSetInAFlagOtherThanTheLowestIsInUseToo) {
  std::string file(2630, '\0');
  file[0] = static_cast<char>(128);
  file[1] = 9;
  folder.put("IDLSuffix.ini", file);

  EXPECT_THAT(loaded(), ElementsAre("9  0"));
}

TEST_F(ASuffixFile, ThatIsTooLongIsReadToItsTenthRecord) {
  wrapper.save(tenPhones());
  folder.put("IDLSuffix.ini", bytes() + std::string(263, '\1'));

  EXPECT_EQ(loaded(), told(tenPhones()));
}

TEST_F(ASuffixFile, CutAtAnyLengthLoadsAsIfZerosFollowed) {
  wrapper.save(tenPhones());
  const std::string whole = bytes();
  for (std::size_t length = 0; length <= 2630; ++length) {
    SCOPED_TRACE(length);
    folder.put("IDLSuffix.ini", whole.substr(0, length));

    ASSERT_EQ(loaded(), meaningOf(whole.substr(0, length)));
  }
}

TEST_F(ASuffixFile, WithAnyByteInvertedLoadsAsItsBytesSay) {
  Table table = tenPhones();
  table[4].name = std::string(259, 'n');
  wrapper.save(table);
  const std::string whole = bytes();
  for (std::size_t at = 0; at < 2630; ++at) {
    SCOPED_TRACE(at);
    std::string file = whole;
    file[at] = static_cast<char>(~file[at]);
    folder.put("IDLSuffix.ini", file);

    ASSERT_EQ(loaded(), meaningOf(file));
  }
}

TEST_F(ASuffixFile, WithANameThatDoesNotEndLoadsItsWholeField) {
  std::string file(2630, '\0');
  file.replace(0, 263, 263, 'x');
  folder.put("IDLSuffix.ini", file);

  EXPECT_THAT(loaded(), ElementsAre("120 " + std::string(260, 'x') + " 120"));
}

TEST_F(ASuffixFile, ThatHasBecomeShortLeavesTheRestOfWhatWasReadBefore) {
  wrapper.save({phone(3, "Phone", 1), phone(4, "Tab", 1)});
  std::string first = bytes().substr(0, 263);
  first[262] = 7;
  folder.put("IDLSuffix.ini", first);
  Table table;

  wrapper.load(table);

  EXPECT_THAT(told(table), ElementsAre("3 Phone 7", "4 Tab 1"));
}

TEST_F(ASuffixFile, ThatCannotBeReadIsAnEmptyOneAndIsNotReplaced) {
  std::filesystem::create_directory(folder / "IDLSuffix.ini");

  EXPECT_THAT(loaded(), IsEmpty());
  wrapper.save({phone(3, "Phone", 1)});

  EXPECT_TRUE(std::filesystem::is_directory(folder / "IDLSuffix.ini"));
}

TEST_F(ASuffixFile, IsSavedByAnObjectOfItsOwnKindAlone) {
  auto other = std::make_unique<SysDataWrapper>();
  other->save({phone(3, "Phone", 1)});
  other.reset();

  // Its own image knows nothing of what the other one wrote.
  wrapper.save({phone(4, "Tab", 1)});

  EXPECT_THAT(loaded(), ElementsAre("4 Tab 1"));
}

}  // namespace
