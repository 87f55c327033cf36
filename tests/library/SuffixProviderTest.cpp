// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "SuffixProvider.h"
#include "support/LogCapture.h"
#include "support/SaveFolder.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using List = std::vector<IntegratedDevice>;

static_assert(std::has_virtual_destructor_v<SuffixProvider>);
static_assert(!std::is_copy_constructible_v<SuffixProvider>);

IntegratedDevice phone(const std::string& name, std::uint8_t btid, std::int32_t port = 0) {
  IntegratedDevice device;
  device.name = name;
  device.btid = btid;
  device.port = port;
  return device;
}

IntegratedDevice usbPhone(const std::string& name, std::int32_t port) { return phone(name, 255, port); }

/// "3 Phone 3" is a phone with number 3 that is displayed as Phone 3.
std::vector<std::string> shown(const List& list) {
  std::vector<std::string> texts;
  texts.reserve(list.size());
  for (const IntegratedDevice& device : list) {
    texts.push_back(std::to_string(device.suffix) + " " + device.name);
  }
  return texts;
}

DeviceInfo entry(const std::string& name, std::uint8_t suffix) {
  DeviceInfo info;
  info.name = name;
  info.suffix = suffix;
  return info;
}

/// A stored file with these phones, in the bytes of the file.
std::string storedFile(const std::vector<IntegratedDevice>& phones) {
  std::string file(2630, '\0');
  for (std::size_t i = 0; i < phones.size(); ++i) {
    file[263 * i] = 1;
    file[263 * i + 1] = static_cast<char>(phones[i].btid);
    file.replace(263 * i + 2, phones[i].name.size(), phones[i].name);
    file[263 * i + 262] = static_cast<char>(phones[i].suffix);
  }
  return file;
}

IntegratedDevice stored(const std::string& name, std::uint8_t btid, std::uint8_t suffix) {
  IntegratedDevice device = phone(name, btid);
  device.suffix = suffix;
  return device;
}

// Formats.

std::string bracketed(const std::string& name, unsigned char suffix) {
  return name + "[" + std::to_string(suffix) + "]";
}

std::string hashed(const std::string& name, unsigned char suffix) { return name + "#" + std::to_string(suffix); }

std::string halved(const std::string& name, unsigned char suffix) { return name + std::to_string(suffix / 2); }

std::vector<unsigned> numbersAskedFor;  // of numberless(), in order

std::string numberless(const std::string& name, unsigned char suffix) {
  numbersAskedFor.push_back(suffix);
  return name;
}

std::size_t formatCalls = 0;  // of counted()

std::string counted(const std::string& name, unsigned char suffix) {
  ++formatCalls;
  return hashed(name, suffix);
}

// "A" with 11 and "A1" with 1 look alike.
std::string glued(const std::string& name, unsigned char suffix) { return name + std::to_string(suffix); }

std::string constant(const std::string& /*name*/, unsigned char /*suffix*/) { return "Phone"; }

std::string shortened(const std::string& name, unsigned char suffix) {
  return name.substr(0, 1) + std::to_string(suffix);
}

int callsUntilThrow = 0;  // 0: never

std::string throwing(const std::string& name, unsigned char suffix) {
  if (callsUntilThrow != 0 && --callsUntilThrow == 0) {
    throw std::runtime_error("no name today");
  }
  return hashed(name, suffix);
}

class AProvider : public testing::Test {
 protected:
  /// Numbers a list and tells how it then reads.
  std::vector<std::string> numbered(List list) {
    provider.appendSuffix(list);
    return shown(list);
  }

  SaveFolder folder;
  LogCapture log;
  SuffixProvider provider;
};

// --- Names and formats ------------------------------------------------------------------------------------------

TEST_F(AProvider, ShowsTheNumbers0And1AsThePlainName) {
  EXPECT_EQ(provider.makeSuffixedName("Phone", 0), "Phone");
  EXPECT_EQ(provider.makeSuffixedName("Phone", 1), "Phone");
}

TEST_F(AProvider, ShowsOtherNumbersBehindOneSpaceWithoutPadding) {
  EXPECT_EQ(provider.makeSuffixedName("Phone", 2), "Phone 2");
  EXPECT_EQ(provider.makeSuffixedName("Phone", 12), "Phone 12");
  EXPECT_EQ(provider.makeSuffixedName("Phone", 255), "Phone 255");
  EXPECT_EQ(provider.makeSuffixedName("", 2), " 2");
}

TEST_F(AProvider, ShowsARecordUnderItsOwnNameAndNumber) {
  EXPECT_EQ(provider.makeSuffixedName(entry("Phone", 3)), "Phone 3");
}

TEST_F(AProvider, AsksAnInstalledFormatForEveryNumber) {
  EXPECT_TRUE(provider.setFormat(&bracketed));

  EXPECT_EQ(provider.makeSuffixedName("Phone", 0), "Phone[0]");
  EXPECT_EQ(provider.makeSuffixedName("Phone", 1), "Phone[1]");
  EXPECT_EQ(provider.makeSuffixedName("Phone", 255), "Phone[255]");
}

TEST_F(AProvider, ReplacesAFormatBeforeItIsStarted) {
  provider.setFormat(&bracketed);

  EXPECT_TRUE(provider.setFormat(&hashed));

  EXPECT_EQ(provider.makeSuffixedName("Phone", 2), "Phone#2");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AProvider, RemovesItsFormatWhenGivenNullBeforeItIsStarted) {
  provider.setFormat(&bracketed);

  EXPECT_FALSE(provider.setFormat(nullptr));

  EXPECT_EQ(provider.makeSuffixedName("Phone", 2), "Phone 2");
  EXPECT_EQ(log.count("failed."), 1U);
}

TEST_F(AProvider, RefusesAFormatOnceStartedWithoutOne) {
  provider.start();

  EXPECT_FALSE(provider.setFormat(&bracketed));

  EXPECT_EQ(provider.makeSuffixedName("Phone", 2), "Phone 2");
  EXPECT_EQ(log.count("failed."), 1U);
}

TEST_F(AProvider, KeepsItsFormatOnceStartedWithOne) {
  provider.setFormat(&bracketed);
  provider.start();

  EXPECT_TRUE(provider.setFormat(&hashed));
  EXPECT_TRUE(provider.setFormat(nullptr));

  EXPECT_EQ(provider.makeSuffixedName("Phone", 2), "Phone[2]");
  EXPECT_THAT(log.lines(), IsEmpty());
}

// --- Checking a table -------------------------------------------------------------------------------------------

TEST_F(AProvider, FindsAnEmptyTableValid) { EXPECT_TRUE(provider.checkSuffixTable({})); }

TEST_F(AProvider, FindsATableValidWhoseEntriesAreAllShownDifferently) {
  EXPECT_TRUE(provider.checkSuffixTable({entry("Phone", 1), entry("Phone", 2), entry("Tab", 1)}));
}

TEST_F(AProvider, FindsATableInvalidInWhichTheNumbers0And1Meet) {
  EXPECT_FALSE(provider.checkSuffixTable({entry("Phone", 0), entry("Phone", 1)}));
}

TEST_F(AProvider, FindsATableInvalidInWhichANameLooksLikeANumberedOne) {
  EXPECT_FALSE(provider.checkSuffixTable({entry("Phone 2", 1), entry("Phone", 2)}));
}

TEST_F(AProvider, ChecksATableByTheFormatInForce) {
  provider.setFormat(&bracketed);

  EXPECT_TRUE(provider.checkSuffixTable({entry("Phone", 0), entry("Phone", 1)}));
}

// --- Before the start -------------------------------------------------------------------------------------------

TEST_F(AProvider, LeavesAListAloneBeforeItIsStarted) {
  List list = {phone("Phone", 1), phone("Phone", 2)};

  provider.appendSuffix(list);

  EXPECT_THAT(shown(list), ElementsAre("0 Phone", "0 Phone"));
  EXPECT_EQ(log.count("not started."), 1U);
  EXPECT_FALSE(std::filesystem::exists(folder / "IDLSuffix.ini"));
}

TEST_F(AProvider, IsNotSavedWhenItEnds) {
  { const SuffixProvider other; }

  EXPECT_FALSE(std::filesystem::exists(folder / "IDLSuffix.ini"));
}

// --- Starting ---------------------------------------------------------------------------------------------------

TEST_F(AProvider, StartsSilentlyWithoutAFile) {
  provider.start();

  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_THAT(numbered({phone("Phone", 1)}), ElementsAre("1 Phone"));
}

TEST_F(AProvider, TakesStoredNumbersOver) {
  folder.put("IDLSuffix.ini", storedFile({stored("Phone", 7, 5), stored("Phone", 8, 1)}));
  provider.start();

  EXPECT_THAT(numbered({phone("Phone", 6), phone("Phone", 7), phone("Phone", 8)}),
              ElementsAre("2 Phone 2", "5 Phone 5", "1 Phone"));
}

TEST_F(AProvider, ForgetsAStoredTableWholeInWhichTwoPhonesLookAlike) {
  folder.put("IDLSuffix.ini", storedFile({stored("Phone", 7, 0), stored("Phone", 8, 1), stored("Tab", 9, 4)}));
  provider.start();

  EXPECT_EQ(log.count("mSuffixTable is invalid."), 1U);
  EXPECT_THAT(numbered({phone("Phone", 7), phone("Phone", 8), phone("Tab", 9)}),
              ElementsAre("1 Phone", "2 Phone 2", "1 Tab"));
}

TEST_F(AProvider, ChecksTheStoredTableByTheFormatInForce) {
  folder.put("IDLSuffix.ini", storedFile({stored("Phone", 7, 0), stored("Phone", 8, 1)}));
  provider.setFormat(&bracketed);

  provider.start();

  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AProvider, LoadsOnlyOnce) {
  provider.start();
  folder.put("IDLSuffix.ini", storedFile({stored("Phone", 7, 5)}));

  provider.start();

  EXPECT_THAT(numbered({phone("Phone", 7)}), ElementsAre("1 Phone"));
}

// --- Numbering --------------------------------------------------------------------------------------------------

class AStartedProvider : public AProvider {
 protected:
  AStartedProvider() { provider.start(); }
};

TEST_F(AStartedProvider, GivesASinglePhoneTheNumber1AndItsPlainName) {
  EXPECT_THAT(numbered({phone("Phone", 1)}), ElementsAre("1 Phone"));
}

TEST_F(AStartedProvider, NumbersEqualNamesInTheOrderOfTheList) {
  EXPECT_THAT(numbered({phone("Phone", 1), phone("Phone", 2), phone("Tab", 3)}),
              ElementsAre("1 Phone", "2 Phone 2", "1 Tab"));
}

TEST_F(AStartedProvider, LeavesTheSourceRecordsTheirOwnNames) {
  List list = {phone("Phone", 1), phone("Phone", 2)};
  list[1].btDevice.name[0] = 'P';

  provider.appendSuffix(list);

  EXPECT_STREQ(list[1].btDevice.name, "P");
  EXPECT_EQ(list[1].name, "Phone 2");
}

TEST_F(AStartedProvider, LetsAPhoneKeepItsNumberAndGivesTheFreeOneToTheNext) {
  numbered({phone("Phone", 1), phone("Phone", 2)});

  EXPECT_THAT(numbered({phone("Phone", 2)}), ElementsAre("2 Phone 2"));
  EXPECT_THAT(numbered({phone("Phone", 2), phone("Phone", 3)}), ElementsAre("2 Phone 2", "1 Phone"));
}

TEST_F(AStartedProvider, NumbersAPairedPhoneAnewWhoseNameChanged) {
  numbered({phone("Phone", 1), phone("Phone", 2)});

  EXPECT_THAT(numbered({phone("Phone", 1), phone("Tab", 2)}), ElementsAre("1 Phone", "1 Tab"));
  EXPECT_THAT(numbered({phone("Phone", 1), phone("Phone", 2)}), ElementsAre("1 Phone", "2 Phone 2"));
}

TEST_F(AStartedProvider, LetsAUsbPhoneKeepItsNumberAtItsPort) {
  numbered({usbPhone("Phone", 1), usbPhone("Phone", 2)});

  EXPECT_THAT(numbered({usbPhone("Phone", 2)}), ElementsAre("2 Phone 2"));
}

TEST_F(AStartedProvider, NumbersAUsbPhoneAnewAtAnotherPort) {
  numbered({usbPhone("Phone", 1), usbPhone("Phone", 2)});

  EXPECT_THAT(numbered({usbPhone("Phone", 3)}), ElementsAre("1 Phone"));
}

TEST_F(AStartedProvider, CarriesANumberOverANegativePort) {
  numbered({usbPhone("Phone", 1), usbPhone("Phone", -1)});

  EXPECT_THAT(numbered({usbPhone("Phone", -1)}), ElementsAre("2 Phone 2"));
}

TEST_F(AStartedProvider, NumbersAPhoneWithNeitherPairingNorPortAnewInEachPass) {
  EXPECT_THAT(numbered({phone("Phone", 255), phone("Phone", 1)}), ElementsAre("1 Phone", "2 Phone 2"));
  EXPECT_THAT(numbered({phone("Phone", 3), phone("Phone", 255)}), ElementsAre("1 Phone", "2 Phone 2"));
  EXPECT_THAT(numbered({phone("Phone", 255)}), ElementsAre("1 Phone"));
}

TEST_F(AStartedProvider, TellsNamesApartByEachByte) {
  numbered({phone("Phone", 1), phone("Phone", 2)});

  EXPECT_THAT(numbered({phone("Phone", 1), phone("phone", 2)}), ElementsAre("1 Phone", "1 phone"));
  EXPECT_THAT(numbered({phone("Phone", 1), phone("Phone ", 2)}), ElementsAre("1 Phone", "1 Phone "));
}

TEST_F(AStartedProvider, GivesANumberToTheFirstPhoneOfABluetoothIdAlone) {
  numbered({phone("Tab", 1), phone("Tab", 2), phone("Tab", 3)});

  // The first entry with id 3 has another name, and the second is not looked at.
  EXPECT_THAT(numbered({phone("Phone", 3), phone("Tab", 3)}), ElementsAre("1 Phone", "1 Tab"));
}

TEST_F(AStartedProvider, PrefersTheNumberOfThePortToThatOfTheBluetoothId) {
  numbered({phone("Phone", 1), phone("Phone", 2), usbPhone("Phone", 4)});

  EXPECT_THAT(numbered({phone("Phone", 2, 4)}), ElementsAre("3 Phone 3"));
}

TEST_F(AStartedProvider, LeavesInheritedNumbersThatClash) {
  // One phone is numbered by its port, and then by its port again while its old id goes to another one.
  EXPECT_THAT(numbered({phone("Phone", 5), phone("Phone", 6, 2)}), ElementsAre("1 Phone", "2 Phone 2"));

  EXPECT_THAT(numbered({phone("Phone", 6), usbPhone("Phone", 2)}), ElementsAre("2 Phone 2", "2 Phone 2"));
  EXPECT_THAT(numbered({phone("Phone", 6), usbPhone("Phone", 2)}), ElementsAre("2 Phone 2", "2 Phone 2"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AStartedProvider, DoesNotGiveANumberThatWouldLookLikeAnotherName) {
  numbered({phone("Phone 2", 1), phone("Phone", 2)});

  EXPECT_THAT(numbered({phone("Phone 2", 1), phone("Phone", 2), phone("Phone", 3)}),
              ElementsAre("1 Phone 2", "1 Phone", "3 Phone 3"));
}

TEST_F(AStartedProvider, TakesAnEmptyListAndForgetsAllNumbers) {
  numbered({phone("Phone", 1), phone("Phone", 2)});

  EXPECT_THAT(numbered({}), IsEmpty());

  EXPECT_EQ(folder.contents("IDLSuffix.ini"), std::string(2630, '\0'));
  EXPECT_THAT(numbered({phone("Phone", 2)}), ElementsAre("1 Phone"));
}

TEST_F(AStartedProvider, SavesPairedPhonesAfterEachPass) {
  numbered({usbPhone("Phone", 1), phone("Phone", 3)});

  EXPECT_EQ(folder.contents("IDLSuffix.ini"), storedFile({stored("Phone", 3, 2)}));
}

TEST_F(AStartedProvider, LeavesAListOfAnotherLengthAloneWhenItAppliesItsNumbers) {
  provider.updateSuffixTable({phone("Phone", 1), phone("Phone", 2)});
  provider.assignSuffixNumber();
  List list = {phone("Phone", 2)};

  provider.applySuffix(list);

  EXPECT_THAT(shown(list), ElementsAre("0 Phone"));
}

TEST_F(AStartedProvider, TakesNumbersThatAListBringsAlong) {
  List list = {stored("Phone", 1, 9)};
  provider.updateSuffixTable(list);
  provider.assignSuffixNumber();

  provider.applySuffix(list);

  EXPECT_THAT(shown(list), ElementsAre("9 Phone 9"));
}

// --- Formats that do not tell numbers apart, or throw -----------------------------------------------------------

TEST_F(AProvider, WithAFormatThatIgnoresNumbersLeavesTheSecondPhoneWithoutOne) {
  provider.setFormat(&numberless);
  provider.start();
  numbersAskedFor.clear();

  EXPECT_THAT(numbered({phone("Phone", 1), phone("Phone", 2)}), ElementsAre("1 Phone", "0 Phone"));
  EXPECT_THAT(numbersAskedFor, testing::Contains(0U));
}

TEST_F(AProvider, WithAFormatThatHalvesNumbersTriesAsManyAsThereArePhones) {
  provider.setFormat(&halved);
  provider.start();

  EXPECT_THAT(numbered({phone("P", 1), phone("P", 2), phone("P", 3)}), ElementsAre("1 P0", "2 P1", "0 P0"));
}

class AFormatThatThrows : public AProvider {
 protected:
  AFormatThatThrows() {
    callsUntilThrow = 0;
    provider.setFormat(&throwing);
    provider.start();
    numbered({phone("Phone", 1), phone("Phone", 2)});
    lastFile = folder.contents("IDLSuffix.ini");
  }

  std::string lastFile;
};

TEST_F(AFormatThatThrows, AtAnyCallLeavesTheNumbersOfTheLastCompletePass) {
  int throws = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    SaveFolder ownFolder;
    SuffixProvider fresh;
    fresh.setFormat(&throwing);
    fresh.start();
    List first = {phone("Phone", 1), phone("Phone", 2)};
    fresh.appendSuffix(first);
    List refused = {phone("Phone", 2), phone("Phone", 3), phone("Phone", 4)};

    callsUntilThrow = call;
    bool thrown = false;
    try {
      fresh.appendSuffix(refused);
    } catch (const std::runtime_error&) {
      thrown = true;
    }
    callsUntilThrow = 0;
    if (!thrown) {
      break;
    }
    ++throws;

    EXPECT_EQ(ownFolder.contents("IDLSuffix.ini"), lastFile);
    List next = {phone("Phone", 3), phone("Phone", 2), phone("Phone", 1)};
    fresh.appendSuffix(next);
    EXPECT_THAT(shown(next), ElementsAre("3 Phone#3", "2 Phone#2", "1 Phone#1"));
  }
  EXPECT_GT(throws, 5);
}

TEST_F(AFormatThatThrows, WhileTheStoredTableIsCheckedLeavesTheProviderToBeStartedAgain) {
  SuffixProvider fresh;
  fresh.setFormat(&throwing);

  callsUntilThrow = 2;
  EXPECT_THROW(fresh.start(), std::runtime_error);
  callsUntilThrow = 0;
  fresh.start();

  List list = {phone("Phone", 2)};
  fresh.appendSuffix(list);
  EXPECT_THAT(shown(list), ElementsAre("2 Phone#2"));
}

// --- Many phones ------------------------------------------------------------------------------------------------

class ManyPhonesOfOneName : public AStartedProvider {
 protected:
  static List phones(std::size_t count) { return List(count, usbPhone("Phone", 0)); }

  std::vector<unsigned> numbersOf(List list) {
    provider.appendSuffix(list);
    std::vector<unsigned> numbers;
    numbers.reserve(list.size());
    for (const IntegratedDevice& device : list) {
      numbers.push_back(device.suffix);
    }
    return numbers;
  }

  static std::vector<unsigned> upTo(unsigned last) {
    std::vector<unsigned> numbers;
    numbers.reserve(last);
    for (unsigned number = 1; number <= last; ++number) {
      numbers.push_back(number);
    }
    return numbers;
  }
};

TEST_F(ManyPhonesOfOneName, AreAllNumberedWhenTheyAre254) { EXPECT_EQ(numbersOf(phones(254)), upTo(254)); }

TEST_F(ManyPhonesOfOneName, AreAllNumberedWhenTheyAre255) { EXPECT_EQ(numbersOf(phones(255)), upTo(255)); }

TEST_F(ManyPhonesOfOneName, RunOutOfNumbersAfter255) {
  std::vector<unsigned> expected = upTo(255);
  expected.resize(300, 0);

  EXPECT_EQ(numbersOf(phones(300)), expected);
}

TEST_F(ManyPhonesOfOneName, RunOutAt1WithAFormatThatIgnoresNumbers) {
  SuffixProvider other;
  other.setFormat(&numberless);
  other.start();
  List list = phones(300);
  numbersAskedFor.clear();

  other.appendSuffix(list);

  EXPECT_EQ(list[0].suffix, 1);
  for (std::size_t i = 1; i < list.size(); ++i) {
    EXPECT_EQ(list[i].suffix, 0);
  }
  EXPECT_THAT(numbersAskedFor, Each(testing::Le(255U)));
}

TEST_F(ManyPhonesOfOneName, LeaveOthersTheirNumbers) {
  List list = phones(300);
  list.push_back(phone("Tab", 1));

  provider.appendSuffix(list);

  EXPECT_EQ(list.back().suffix, 1);
  EXPECT_EQ(list.back().name, "Tab");
}

// --- How often a format is asked --------------------------------------------------------------------------------

class AFormat : public AProvider, public testing::WithParamInterface<std::size_t> {
 protected:
  AFormat() {
    provider.setFormat(&counted);
    provider.start();
  }

  /// How often the format is asked while `list` is numbered.
  std::size_t callsFor(List list) {
    formatCalls = 0;
    provider.appendSuffix(list);
    return formatCalls;
  }

  /// As many phones as the parameter says, each at a port of its own, with these names by turns.
  static List attached(const std::vector<std::string>& names) {
    List list;
    for (std::size_t i = 0; i < GetParam(); ++i) {
      list.push_back(usbPhone(names[i % names.size()], static_cast<std::int32_t>(i) + 1));
    }
    return list;
  }

  static std::size_t atMost() { return GetParam() * GetParam() / 2 + 3 * GetParam(); }
};

TEST_P(AFormat, IsAskedTwiceForEachNewPhoneOfOneName) { EXPECT_EQ(callsFor(attached({"Phone"})), 2 * GetParam()); }

TEST_P(AFormat, IsAskedForNewPhonesOfTwoNamesByTurnsAsOftenAsTheyNeedNumbersToBeTried) {
  EXPECT_LE(callsFor(attached({"Phone", "Tab"})), atMost());
}

TEST_P(AFormat, IsAskedOnceForEachPhoneWhenAllAreKnown) {
  callsFor(attached({"Phone", "Phone", "Tab"}));

  EXPECT_EQ(callsFor(attached({"Phone", "Phone", "Tab"})), GetParam());
}

TEST_P(AFormat, IsAskedThreeTimesForEachPhoneAtMostWhenOneIsNew) {
  List list = attached({"Phone"});
  callsFor(list);

  list.back().port = -1;

  EXPECT_LE(callsFor(list), 3 * GetParam());
}

TEST_P(AFormat, IsAskedTwiceAtMostForEachPhoneWhenAllShareAPort) {
  const List list(GetParam(), usbPhone("Phone", 1));
  callsFor(list);

  EXPECT_LE(callsFor(list), 2 * GetParam());
}

TEST_P(AFormat, IsAskedThreeTimesAtMostForEachPairedPhoneWhenTwoHaveOneId) {
  List list(GetParam(), phone("Phone", 1));
  for (std::size_t i = 2; i < list.size(); ++i) {
    list[i].btid = static_cast<std::uint8_t>(i);
  }
  callsFor(list);

  EXPECT_LE(callsFor(list), 3 * GetParam());
}

INSTANTIATE_TEST_SUITE_P(OfPhones, AFormat, testing::Values(1, 2, 3, 10, 33, 100, 253, 254),
                         testing::PrintToStringParamName());

// --- Random lists against a model -------------------------------------------------------------------------------

/// The numbering, written down as plainly as it can be said.
class Model {
 public:
  explicit Model(NameFormatFunc format) : mFormat(format) {}

  void number(List& list) {
    List table = list;
    for (const IntegratedDevice& old : mTable) {
      if (old.btid != 255) {
        for (IntegratedDevice& entry : table) {
          if (entry.btid == old.btid) {
            entry.suffix = entry.name == old.name ? old.suffix : entry.suffix;
            break;
          }
        }
      }
    }
    for (const IntegratedDevice& old : mTable) {
      if (old.port != 0) {
        for (IntegratedDevice& entry : table) {
          if (entry.port == old.port) {
            entry.suffix = entry.name == old.name ? old.suffix : entry.suffix;
            break;
          }
        }
      }
    }
    for (std::size_t i = 0; i < table.size(); ++i) {
      unsigned char k = 1;
      while (table[i].suffix == 0 && k <= table.size()) {
        if (isFree(table, i, nameOf(table[i].name, k))) {
          table[i].suffix = k;
        }
        ++k;
      }
    }
    mTable = table;
    for (std::size_t i = 0; i < list.size(); ++i) {
      list[i].suffix = table[i].suffix;
      list[i].name = nameOf(list[i].name, list[i].suffix);
    }
  }

 private:
  std::string nameOf(const std::string& name, unsigned char suffix) const {
    if (mFormat != nullptr) {
      return mFormat(name, suffix);
    }
    return suffix <= 1 ? name : name + " " + std::to_string(suffix);
  }

  bool isFree(const List& table, std::size_t self, const std::string& candidate) const {
    for (std::size_t j = 0; j < table.size(); ++j) {
      if (j != self && table[j].suffix != 0 && nameOf(table[j].name, table[j].suffix) == candidate) {
        return false;
      }
    }
    return true;
  }

  const NameFormatFunc mFormat;
  List mTable;
};

struct Format {
  std::string name;
  NameFormatFunc function;
};

void PrintTo(const Format& format, std::ostream* stream) { *stream << format.name; }

class RandomLists : public testing::TestWithParam<Format> {
 protected:
  RandomLists() : model(GetParam().function) {
    provider.setFormat(GetParam().function);
    provider.start();
  }

  unsigned below(unsigned bound) { return static_cast<unsigned>(random()) % bound; }

  List randomList() {
    static const char* const names[] = {"A", "A", "A 2", "A 3", "A 2 2", "A 10", "A1", "A11", "B", "B", "", " 2"};
    List list;
    const bool isLong = below(100) == 0;
    const unsigned count = below(isLong ? 40 : 13);
    const unsigned keys = isLong ? 40 : 6;
    for (unsigned i = 0; i < count; ++i) {
      const unsigned btid = below(keys);
      list.push_back(phone(names[below(isLong ? 4 : 12)], static_cast<std::uint8_t>(btid < keys - 2 ? btid : 255),
                           static_cast<std::int32_t>(below(keys - 1)) - 1));
    }
    return list;
  }

  SaveFolder folder;
  LogCapture log;
  std::mt19937 random{20240229};
  SuffixProvider provider;
  Model model;
};

TEST_P(RandomLists, AreNumberedAsTheModelSays) {
  for (int pass = 0; pass < 4000; ++pass) {
    SCOPED_TRACE(pass);
    List list = randomList();
    List expected = list;
    model.number(expected);

    provider.updateSuffixTable(list);
    provider.assignSuffixNumber();
    provider.applySuffix(list);

    ASSERT_EQ(shown(list), shown(expected));
  }
}

TEST_P(RandomLists, AreNumberedAsTheModelSaysInWholePasses) {
  for (int pass = 0; pass < 100; ++pass) {
    SCOPED_TRACE(pass);
    List list = randomList();
    List expected = list;
    model.number(expected);

    provider.appendSuffix(list);

    ASSERT_EQ(shown(list), shown(expected));
  }
}

std::string formatName(const testing::TestParamInfo<Format>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Formats, RandomLists,
                         testing::Values(Format{"BuiltIn", nullptr}, Format{"WithHash", &hashed},
                                         Format{"ThatHalves", &halved}, Format{"WithoutNumber", &numberless},
                                         Format{"ThatGlues", &glued}, Format{"OfOneText", &constant},
                                         Format{"ThatShortens", &shortened}),
                         formatName);

}  // namespace
