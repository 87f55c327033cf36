// SPDX-License-Identifier: Apache-2.0
// Whole sequences of what the library asks of its framework, which here records every call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "AapDeviceListSharedMem.h"
#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "CpIntegratedDeviceList.h"
#include "FuncInfoSharedMem.h"
#include "IntegratedDeviceList/AapDevice.h"
#include "IntegratedDeviceList/BtPairedDevice.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "LmSIntegratedDeviceListImpl.h"
#include "SuffixProvider.h"
#include "SysDataFactory.h"
#include "SysDataIDLSuffix.h"
#include "SysDataWrapper.h"
#include "recording/FailingShmOpen.h"
#include "recording/Recorder.h"
#include "support/PhoneTables.h"

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_BT;
using LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY;
using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Events = std::vector<std::string>;

constexpr unsigned LOCKS = Recorder::SYNC | Recorder::SHARED_SYNC;
constexpr unsigned CALLS = LOCKS | Recorder::SUBJECT | Recorder::OBSERVER | Recorder::FINALIZER | Recorder::SAVE_FILE;

constexpr char PROVIDER_FILE[] = "src/Public/IntegratedDeviceList/private/SuffixProvider";
constexpr char SERVICE_FILE[] = "src/Public/IntegratedDeviceList/private/LmSIntegratedDeviceListImpl";

/// Gives a singleton's class mutex and destroy function their names in the record.
template <class T>
struct SingletonNames : LmSingleton<T> {
  SingletonNames() = delete;

  static void give(const std::string& name) {
    Recorder::name(&LmSingleton<T>::sClassMutex, "class " + name);
    Recorder::name(reinterpret_cast<const void*>(&LmSingleton<T>::destroy), name + "::destroy");
  }
};

Events operator+(Events first, const Events& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Events operator*(unsigned count, const Events& events) {
  Events all;
  for (unsigned i = 0; i < count; ++i) {
    all = all + events;
  }
  return all;
}

/// One acquisition of a named lock that nobody of this process holds.
Events acquisition(const std::string& name) { return {"lock " + name + " 1", "unlock " + name + " 0"}; }

/// A process's limit, lowered for as long as this lives.
class LoweredLimit {
 public:
  LoweredLimit(int resource, rlim_t limit) : mResource(resource) {
    getrlimit(kind(), &mFormer);
    rlimit lowered = mFormer;
    lowered.rlim_cur = limit;
    setrlimit(kind(), &lowered);
  }

  ~LoweredLimit() { setrlimit(kind(), &mFormer); }

  LoweredLimit(const LoweredLimit&) = delete;
  LoweredLimit& operator=(const LoweredLimit&) = delete;

 private:
  // The C library's type for a resource differs between C and C++.
  using Kind = decltype(RLIMIT_NOFILE);
  Kind kind() const { return static_cast<Kind>(mResource); }

  const int mResource;
  rlimit mFormer = {};
};

/// A folder that stands where a segment should be: it exists, and nobody can open it for writing.
class FolderInPlaceOf {
 public:
  explicit FolderInPlaceOf(const std::string& name) : mPath("/dev/shm/" + name) { mkdir(mPath.c_str(), 0700); }
  ~FolderInPlaceOf() { rmdir(mPath.c_str()); }

  FolderInPlaceOf(const FolderInPlaceOf&) = delete;
  FolderInPlaceOf& operator=(const FolderInPlaceOf&) = delete;

 private:
  const std::string mPath;
};

class Recorded : public testing::Test {
 protected:
  Recorded() {
    SingletonNames<SysDataFactory>::give("SysDataFactory");
    SingletonNames<SysDataIDLSuffix>::give("SysDataIDLSuffix");
    SingletonNames<LmSIntegratedDeviceList>::give("LmSIntegratedDeviceList");
    removePhoneTables();
    Recorder::begin();
  }

  ~Recorded() override {
    Recorder::runFinalizer();
    EXPECT_FALSE(Recorder::anyLockHeld());
    removePhoneTables();
  }
};

DeviceInfo pairedPhone(std::uint8_t btid, const std::string& name, std::uint8_t suffix) {
  DeviceInfo phone;
  phone.btid = btid;
  phone.name = name;
  phone.suffix = suffix;
  return phone;
}

void expectLogLine(const Recorder::LogLine& line, const std::string& file, const std::string& function,
                   const std::string& message, const std::string& format) {
  EXPECT_FALSE(line.standardError);
  EXPECT_EQ(line.file, file);
  EXPECT_EQ(line.function, function);
  EXPECT_GT(line.line, 0);
  EXPECT_EQ(line.tag, 1);
  EXPECT_EQ(line.message, message);
  EXPECT_EQ(line.format, format);
}

/// A message that is itself the format.
void expectLogLine(const Recorder::LogLine& line, const std::string& file, const std::string& function,
                   const std::string& message) {
  expectLogLine(line, file, function, message, message);
}

void expectSegmentLine(int line, const std::string& message) {
  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(lines[0].standardError);
  EXPECT_EQ(lines[0].file, "LmFramework/SharedMemory/LmSharedMemory");
  EXPECT_EQ(lines[0].function, "LmSharedMemory");
  EXPECT_EQ(lines[0].line, line);
  EXPECT_EQ(lines[0].message, message);
  EXPECT_EQ(lines[0].format, message);
}

// --- Segments ---------------------------------------------------------------------------------------------------

class ASegment : public Recorded {};

TEST_F(ASegment, ThatIsCreatedTakesItsLockOnceMoreToBeZeroed) {
  const BtPairedDeviceListSharedMem segment;

  EXPECT_THAT(Recorder::events(),
              ElementsAre("construct BtPairedDeviceList",        //
                          "guard named lock",                    //
                          "lock BtPairedDeviceList 1",           //
                          "LmString \"/\" 32",                   //
                          "LmString \"BtPairedDeviceList\" 32",  //
                          "+= \"BtPairedDeviceList\"",           //
                          "ToCHAR 32 \"/BtPairedDeviceList\"",   //
                          "guard named lock",                    //
                          "lock BtPairedDeviceList 2",           //
                          "unlock BtPairedDeviceList 1",         //
                          "unguard named lock",                  //
                          "unlock BtPairedDeviceList 0",         //
                          "unguard named lock"));
}

TEST_F(ASegment, ThatIsAttachedTakesItsLockOnce) {
  const AapTable table;

  const AapDeviceListSharedMem segment;

  EXPECT_THAT(Recorder::events(),
              ElementsAre("construct AapDeviceList",        //
                          "guard named lock",               //
                          "lock AapDeviceList 1",           //
                          "LmString \"/\" 32",              //
                          "LmString \"AapDeviceList\" 32",  //
                          "+= \"AapDeviceList\"",           //
                          "ToCHAR 32 \"/AapDeviceList\"",   //
                          "unlock AapDeviceList 0",         //
                          "unguard named lock"));
}

TEST_F(ASegment, ThatIsDestroyedTakesNoLock) {
  auto segment = std::make_unique<FuncInfoSharedMem>();
  Recorder::clear();

  segment.reset();

  EXPECT_THAT(Recorder::events(), ElementsAre("destroy FuncInfo"));
}

TEST_F(ASegment, ThatCannotBeOpenedSaysSoAtLine122) {
  Recorder::begin(LOCKS | Recorder::LOG);
  const FailingShmOpen noDescriptors(EMFILE);

  const BtPairedDeviceListSharedMem segment;

  EXPECT_EQ(segment.data(), nullptr);
  expectSegmentLine(122, "shm_open error\n");
  EXPECT_THAT(Recorder::events(),
              ElementsAre("construct BtPairedDeviceList", "lock BtPairedDeviceList 1",
                          "DbgPrintStdErr LmFramework/SharedMemory/LmSharedMemory LmSharedMemory 122 shm_open error\n",
                          "unlock BtPairedDeviceList 0"));
}

TEST_F(ASegment, ThatCannotBeSizedSaysSoAtLine135) {
  Recorder::begin(LOCKS | Recorder::LOG);
  const auto former = signal(SIGXFSZ, SIG_IGN);
  {
    const LoweredLimit noBytes(RLIMIT_FSIZE, 0);

    const BtPairedDeviceListSharedMem segment;
  }
  signal(SIGXFSZ, former);

  expectSegmentLine(135, "ftruncate error\n");
  EXPECT_THAT(Recorder::events(),
              ElementsAre("construct BtPairedDeviceList", "lock BtPairedDeviceList 1",
                          "DbgPrintStdErr LmFramework/SharedMemory/LmSharedMemory LmSharedMemory 135 ftruncate error\n",
                          "lock BtPairedDeviceList 2", "unlock BtPairedDeviceList 1", "unlock BtPairedDeviceList 0",
                          "destroy BtPairedDeviceList"));
}

TEST_F(ASegment, ThatCannotBeMappedSaysSoAtLine151) {
  Recorder::begin(LOCKS | Recorder::LOG);
  const FolderInPlaceOf folder("BtPairedDeviceList");

  const BtPairedDeviceListSharedMem segment;

  EXPECT_EQ(segment.data(), nullptr);
  expectSegmentLine(151, "mmap error\n");
  EXPECT_THAT(Recorder::events(),
              ElementsAre("construct BtPairedDeviceList", "lock BtPairedDeviceList 1",
                          "DbgPrintStdErr LmFramework/SharedMemory/LmSharedMemory LmSharedMemory 151 mmap error\n",
                          "unlock BtPairedDeviceList 0"));
}

// --- Copies from and to segments ---------------------------------------------------------------------------------

constexpr unsigned COPIES = Recorder::SHARED_SYNC | Recorder::TRANSFER;

/// Calls with a named lock held that nobody of this process held before.
Events underLock(const std::string& name, const Events& events) {
  return Events{"lock " + name + " 1"} + events + Events{"unlock " + name + " 0"};
}

class ACopy : public Recorded {
 protected:
  ACopy() { Recorder::begin(COPIES); }

  /// Only what is copied by the library is of interest, not what a table's service does.
  static void begin() { Recorder::clear(); }

  static Events creation(const std::string& name, const std::string& payload) {
    return Events{"construct " + name} + underLock(name, {"pwrite " + name + " 4@0", "lock " + name + " 2",
                                                          "pwrite " + name + " " + payload, "unlock " + name + " 1"});
  }
};

TEST_F(ACopy, OfTheSizeWordAndTheZerosIsMadeUnderTheLock) {
  const BtPairedDeviceListSharedMem bluetooth;
  EXPECT_THAT(Recorder::events(), ElementsAreArray(creation("BtPairedDeviceList", "1120@4")));

  begin();
  const AapDeviceListSharedMem androidAuto;
  EXPECT_THAT(Recorder::events(), ElementsAreArray(creation("AapDeviceList", "6288@4")));

  begin();
  const FuncInfoSharedMem funcInfo;
  EXPECT_THAT(Recorder::events(), ElementsAreArray(creation("FuncInfo", "2104@4")));
}

TEST_F(ACopy, OfTheSizeWordOfATableThatIsThereIsMadeUnderTheLock) {
  const BtTable table;
  begin();

  const BtPairedDeviceListSharedMem segment;

  EXPECT_THAT(Recorder::events(), ElementsAreArray(Events{"construct BtPairedDeviceList"} +
                                                   underLock("BtPairedDeviceList", {"pwrite BtPairedDeviceList 4@0"})));
}

TEST_F(ACopy, OfTheDefaultsIsMadeUnderTheLockAllOfThemInOneAcquisition) {
  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(creation("LmSCarplayResource", "13728@8") +
                               underLock("LmSCarplayResource",
                                         {"pread LmSCarplayResource 1@13732", "pread LmSCarplayResource 4@5120",
                                          "pwrite LmSCarplayResource 5112@8", "pwrite LmSCarplayResource 8608@5124",
                                          "pwrite LmSCarplayResource 1@13732"})));
}

TEST_F(ACopy, OfTheFlagOfADefaultedResourceIsMadeUnderTheLock) {
  const CpTable table;
  begin();

  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(Events{"construct LmSCarplayResource"} +
                               underLock("LmSCarplayResource", {"pwrite LmSCarplayResource 4@0"}) +
                               underLock("LmSCarplayResource", {"pread LmSCarplayResource 1@13732"})));
}

TEST_F(ACopy, OfTheBluetoothTableIsMadeUnderTheLock) {
  BtIntegratedDeviceList adapter;
  begin();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(underLock("BtPairedDeviceList", {"pread BtPairedDeviceList 1120@4"})));
}

TEST_F(ACopy, OfTheAndroidAutoTableIsMadeUnderTheLock) {
  AapIntegratedDeviceList adapter;
  begin();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underLock("AapDeviceList", {"pread AapDeviceList 6288@4"})));
}

TEST_F(ACopy, OfEachCarPlaySlotIsMadeUnderAnAcquisitionOfItsOwn) {
  CpIntegratedDeviceList adapter;
  begin();

  adapter.updateDeviceList();

  Events expected;
  for (unsigned slot = 0; slot < 11; ++slot) {
    const std::string copy = "pread LmSCarplayResource 296@" + std::to_string(1800 + 296 * slot);
    expected = expected + underLock("LmSCarplayResource", {copy});
  }
  EXPECT_THAT(Recorder::events(), ElementsAreArray(expected));
}

TEST_F(ACopy, OfEachCarPlayWordIsMadeUnderAnAcquisitionOfItsOwn) {
  CpIntegratedDeviceList adapter;
  begin();

  adapter.toIntegratedDevice(cps_def::WCPAtom{77, "Phone", 0, 0, 0, {}, 1, {}});

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(underLock("LmSCarplayResource", {"pread LmSCarplayResource 8@1072"}) +
                               underLock("LmSCarplayResource", {"pread LmSCarplayResource 4@1076"})));
}

TEST_F(ACopy, OfTheBluetoothFlagIsMadeUnderTheLock) {
  const FuncInfoTable table;
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  begin();

  list->initialize();

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(Events{"construct FuncInfo"} + underLock("FuncInfo", {"pwrite FuncInfo 4@0"}) +
                               underLock("FuncInfo", {"pread FuncInfo 1@512"}) + Events{"destroy FuncInfo"}));
}

// --- Records ----------------------------------------------------------------------------------------------------

class ARecord : public Recorded {
 protected:
  ARecord() { Recorder::begin(Recorder::TEXT_COPY); }
};

TEST_F(ARecord, OfAPairedPhoneHasItsTextsEmptiedWithinTheirBounds) {
  const BtPairedDevice device;

  EXPECT_THAT(Recorder::events(), ElementsAre("lm_strncpy \"\" 80", "lm_strncpy \"\" 17"));
}

TEST_F(ARecord, OfAnAndroidAutoPhoneHasItsTextsEmptiedWithinTheirBounds) {
  const AapDevice device;

  EXPECT_THAT(Recorder::events(), ElementsAre("lm_strncpy \"\" 256", "lm_strncpy \"\" 256"));
}

// --- The CarPlay resource ---------------------------------------------------------------------------------------

class ACarPlayResource : public Recorded {
 protected:
  ACarPlayResource() { Recorder::begin(CALLS); }
};

const Events RESOURCE_END = {"RemoveObserver", "destroy observer", "destroy notifier", "destroy LmSubject",
                             "destroy LmSCarplayResource"};

TEST_F(ACarPlayResource, ThatIsCreatedIsObservedOnceItStandsAndThenInitialisedUnderANewAcquisition) {
  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(Recorder::events(), ElementsAreArray(Events{"construct LmSCarplayResource", "lock LmSCarplayResource 1",
                                                          "lock LmSCarplayResource 2", "unlock LmSCarplayResource 1",
                                                          "unlock LmSCarplayResource 0", "construct LmSubject",
                                                          "construct notifier false", "AddObserver {6} 1"} +
                                                   acquisition("LmSCarplayResource")));
}

TEST_F(ACarPlayResource, ThatIsAttachedLooksForItsDefaultsUnderANewAcquisitionToo) {
  const CpTable table;

  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(Events{"construct LmSCarplayResource"} + acquisition("LmSCarplayResource") +
                               Events{"construct LmSubject", "construct notifier false", "AddObserver {6} 1"} +
                               acquisition("LmSCarplayResource")));
}

TEST_F(ACarPlayResource, ThatCannotBeMappedIsObservedAllTheSame) {
  const FolderInPlaceOf folder("LmSCarplayResource");

  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(Events{"construct LmSCarplayResource"} + acquisition("LmSCarplayResource") +
                               Events{"construct LmSubject", "construct notifier false", "AddObserver {6} 1"}));
}

TEST_F(ACarPlayResource, IsTakenDownFromItsNotificationsToItsLock) {
  auto resource = std::make_unique<CarPlayInfoSharedMem>();
  Recorder::clear();

  resource.reset();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(RESOURCE_END));
}

TEST_F(ACarPlayResource, IsTakenDownWholeThroughItsSubject) {
  LmSubject* const subject = new CarPlayInfoSharedMem;
  Recorder::clear();

  delete subject;

  EXPECT_THAT(Recorder::events(), ElementsAreArray(RESOURCE_END));
}

TEST_F(ACarPlayResource, IsTakenDownWholeThroughItsLock) {
  LmSharedSyncObject* const lock = new CarPlayInfoSharedMem;
  Recorder::clear();

  delete lock;

  EXPECT_THAT(Recorder::events(), ElementsAreArray(RESOURCE_END));
}

TEST_F(ACarPlayResource, PassesItsOwnNotificationsOnAndTakesNoLock) {
  const CarPlayInfoSharedMem resource;
  std::uint32_t value[] = {305419896, 0};
  Recorder::clear();

  Recorder::notify(6, value, 4);
  Recorder::notify(6, value, 8);
  Recorder::notify(5, value, 4);

  EXPECT_THAT(Recorder::events(), ElementsAre("NotifyObserver 305419896 0 0 without data"));
}

// --- Refreshes --------------------------------------------------------------------------------------------------

class AnAdapter : public Recorded {
 protected:
  AnAdapter() { Recorder::begin(LOCKS); }

  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
};

TEST_F(AnAdapter, OfBluetoothTakesItsLockOnceForAWholeTable) {
  for (unsigned slot = 0; slot < 10; ++slot) {
    btTable.phone(slot, slot, "Phone");
  }
  BtIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(acquisition("BtPairedDeviceList")));
}

TEST_F(AnAdapter, OfAndroidAutoTakesItsLockOnceForAWholeTable) {
  for (unsigned slot = 0; slot < 12; ++slot) {
    aapTable.phone(slot, "Phone", "id", slot, 1);
  }
  AapIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(acquisition("AapDeviceList")));
}

TEST_F(AnAdapter, OfCarPlayTakesItsLockOnceForEachSlot) {
  CpIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(11 * acquisition("LmSCarplayResource")));
}

TEST_F(AnAdapter, OfCarPlayTakesItsLockOnceMoreForTheConnectedPhone) {
  cpTable.phone(4, 77, "Phone", 0);
  cpTable.connect(77);
  CpIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(12 * acquisition("LmSCarplayResource")));
}

TEST_F(AnAdapter, OfCarPlayTakesItsLockTwiceMoreForAnyOtherPhone) {
  cpTable.phone(0, 77, "Phone", 0);
  cpTable.phone(10, 78, "Phone", 0);
  cpTable.connect(77);
  CpIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(14 * acquisition("LmSCarplayResource")));
}

TEST_F(AnAdapter, OfCarPlayTakesNoLockWithoutAResource) {
  removePhoneTables();
  const FolderInPlaceOf folder("LmSCarplayResource");
  CpIntegratedDeviceList adapter;
  Recorder::clear();

  adapter.updateDeviceList();
  const IntegratedDevice device = adapter.toIntegratedDevice(cps_def::WCPAtom{77, "Phone", 0, 0, 0, {}, 1, {}});

  EXPECT_EQ(device.port, 0);
  EXPECT_THAT(Recorder::events(), IsEmpty());
}

// --- The suffix file --------------------------------------------------------------------------------------------

const Events SUFFIX_MUTEX_MADE = {"Lock class SysDataIDLSuffix -1", "construct LmSync LmSync 1",
                                  "addDestroyFunc SysDataIDLSuffix::destroy", "Unlock class SysDataIDLSuffix"};
const Events FILE_MADE = {"Lock class SysDataFactory -1",       "addDestroyFunc SysDataFactory::destroy",
                          "Unlock class SysDataFactory",        "Lock class SaveFileAccessFactory -1",
                          "construct SaveFileAccessFactory",    "addDestroyFunc SaveFileAccessFactory::destroy",
                          "Unlock class SaveFileAccessFactory", "Create IDLSuffix.ini r+"};
const Events LOADED = {"FOpen", "Read 2630 at 0", "Seek 0 0", "FClose"};
const Events SAVED = {"FOpen", "Write 2630 at 0", "Seek 0 0", "Flush", "FClose"};

Events underMutex(const std::string& mutex, const Events& events) {
  return Events{"Lock " + mutex + " -1"} + events + Events{"Unlock " + mutex};
}

class ASuffixFile : public Recorded {
 protected:
  ASuffixFile() { Recorder::begin(CALLS); }

  SysDataWrapper wrapper;
  std::vector<DeviceInfo> table = {pairedPhone(3, "Phone", 1)};
};

TEST_F(ASuffixFile, IsLoadedUnderItsMutex) {
  wrapper.load(table);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(SUFFIX_MUTEX_MADE + underMutex("LmSync 1", FILE_MADE + LOADED)));
}

TEST_F(ASuffixFile, IsSavedUnderItsMutex) {
  wrapper.save(table);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(SUFFIX_MUTEX_MADE + underMutex("LmSync 1", FILE_MADE + SAVED)));
}

TEST_F(ASuffixFile, KeepsItsAccessObjectForTheNextAccess) {
  wrapper.load(table);
  Recorder::clear();
  table = {pairedPhone(4, "Phone", 1)};

  wrapper.save(table);
  wrapper.load(table);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", SAVED) + underMutex("LmSync 1", LOADED)));
}

TEST_F(ASuffixFile, IsNotTouchedByATableThatChangesNothing) {
  wrapper.save(table);
  Recorder::clear();

  wrapper.save(table);

  EXPECT_THAT(Recorder::events(), IsEmpty());
}

TEST_F(ASuffixFile, IsNotTouchedByTheTableThatWasLoaded) {
  wrapper.save(table);
  SysDataWrapper reader;
  reader.load(table);
  Recorder::clear();

  reader.save(table);

  EXPECT_THAT(Recorder::events(), IsEmpty());
}

TEST_F(ASuffixFile, IsNotTouchedByTooManyPhonesWhichAreLoggedAtLine69) {
  table.assign(11, pairedPhone(3, "Phone", 1));

  wrapper.save(table);

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], "src/Public/IntegratedDeviceList/private/SysDataWrapper", "save",
                "lBtSuffixTable size over. size=11\n", "lBtSuffixTable size over. size=%d\n");
  EXPECT_EQ(lines[0].line, 69);
  EXPECT_THAT(Recorder::events(), IsEmpty());
}

TEST_F(ASuffixFile, IsNotWrittenAgainAfterAFailedWriteUntilTheTableChanges) {
  Recorder::SaveFileScript failing;
  failing.writes = false;
  failing.flushes = false;
  Recorder::script(failing);
  wrapper.save(table);
  Recorder::script(Recorder::SaveFileScript());
  Recorder::clear();

  wrapper.save(table);
  EXPECT_THAT(Recorder::events(), IsEmpty());
  table[0].suffix = 2;
  wrapper.save(table);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", SAVED)));
}

TEST_F(ASuffixFile, IsAccessedWholeThoughEveryCallFails) {
  Recorder::SaveFileScript failing;
  failing.opens = false;
  failing.writes = false;
  failing.flushes = false;
  failing.readsAtMost = 0;
  Recorder::script(failing);

  wrapper.load(table);
  EXPECT_THAT(table, IsEmpty());
  wrapper.save({pairedPhone(3, "Phone", 1)});

  EXPECT_THAT(Recorder::events(), ElementsAreArray(SUFFIX_MUTEX_MADE + underMutex("LmSync 1", FILE_MADE + LOADED) +
                                                   underMutex("LmSync 1", SAVED)));
}

TEST_F(ASuffixFile, IsClosedAndUnlockedWhenReadingItThrows) {
  Recorder::SaveFileScript throwing;
  throwing.throwsIn = "Read";
  Recorder::script(throwing);

  EXPECT_THROW(wrapper.load(table), std::bad_alloc);

  EXPECT_FALSE(Recorder::anyLockHeld());
  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(SUFFIX_MUTEX_MADE +
                               underMutex("LmSync 1", FILE_MADE + Events{"FOpen", "Read 2630 at 0", "FClose"})));
}

TEST_F(ASuffixFile, IsClosedAndUnlockedWhenWritingItThrows) {
  Recorder::SaveFileScript throwing;
  throwing.throwsIn = "Write";
  Recorder::script(throwing);

  EXPECT_THROW(wrapper.save(table), std::bad_alloc);

  EXPECT_FALSE(Recorder::anyLockHeld());
  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(SUFFIX_MUTEX_MADE +
                               underMutex("LmSync 1", FILE_MADE + Events{"FOpen", "Write 2630 at 0", "FClose"})));
}

TEST_F(ASuffixFile, IsClosedAndUnlockedWhenFlushingItThrowsAndIsWrittenAgain) {
  Recorder::SaveFileScript throwing;
  throwing.throwsIn = "Flush";
  Recorder::script(throwing);

  EXPECT_THROW(wrapper.save(table), std::bad_alloc);

  EXPECT_FALSE(Recorder::anyLockHeld());
  EXPECT_THAT(Recorder::events(), ElementsAreArray(SUFFIX_MUTEX_MADE + underMutex("LmSync 1", FILE_MADE + SAVED)));
  Recorder::script(Recorder::SaveFileScript());
  Recorder::clear();
  wrapper.save(table);
  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", SAVED)));
}

TEST_F(ASuffixFile, ThatTheServiceDoesNotGiveIsAskedForAnewAndReadsAsMissing) {
  Recorder::SaveFileScript failing;
  failing.createGivesNull = true;
  Recorder::script(failing);

  wrapper.load(table);
  wrapper.save({pairedPhone(3, "Phone", 1)});

  EXPECT_THAT(table, IsEmpty());
  EXPECT_THAT(Recorder::events(), ElementsAreArray(SUFFIX_MUTEX_MADE + underMutex("LmSync 1", FILE_MADE) +
                                                   underMutex("LmSync 1", {"Create IDLSuffix.ini r+"})));
}

TEST_F(ASuffixFile, HasItsAccessObjectDeletedByItsFactoryAndItsMutexByItsOwner) {
  wrapper.load(table);
  Recorder::clear();

  Recorder::runFinalizer();

  EXPECT_THAT(Recorder::events(), ElementsAre("run SaveFileAccessFactory::destroy", "destroy SaveFileAccessFactory",
                                              "run SysDataFactory::destroy", "delete IDLSuffix.ini",
                                              "run SysDataIDLSuffix::destroy", "destroy LmSync LmSync 1"));
}

// --- Singletons -------------------------------------------------------------------------------------------------

class ASingleton : public Recorded {
 protected:
  ASingleton() { Recorder::begin(CALLS); }
};

TEST_F(ASingleton, HasItsClassMutexFromTheTimeThatTheLibraryWasLoaded) {
  EXPECT_THAT(Recorder::mutexesAtLoad(), ElementsAre("class SaveFileAccessFactory", "class SysDataFactory",
                                                     "class SysDataIDLSuffix", "class LmSIntegratedDeviceList"));
}

TEST_F(ASingleton, LocksItsClassMutexOnlyWhileThereIsNoInstance) {
  SysDataFactory* const first = SysDataFactory::getInstance();
  EXPECT_THAT(Recorder::events(), ElementsAre("Lock class SysDataFactory -1", "addDestroyFunc SysDataFactory::destroy",
                                              "Unlock class SysDataFactory"));
  Recorder::clear();

  SysDataFactory* const second = SysDataFactory::getInstance();

  EXPECT_EQ(first, second);
  EXPECT_THAT(Recorder::events(), IsEmpty());
}

TEST_F(ASingleton, LocksNothingToBeDestroyed) {
  SysDataIDLSuffix::getInstance();
  Recorder::clear();

  SysDataIDLSuffix::destroy();
  SysDataIDLSuffix::destroy();

  EXPECT_THAT(Recorder::events(), ElementsAre("destroy LmSync LmSync 1"));
}

TEST_F(ASingleton, RegistersItsEndAnewInASecondLife) {
  SysDataIDLSuffix::getInstance();
  SysDataIDLSuffix::destroy();
  Recorder::clear();

  SysDataIDLSuffix::getInstance();

  EXPECT_THAT(Recorder::events(),
              ElementsAre("Lock class SysDataIDLSuffix -1", "construct LmSync LmSync 2",
                          "addDestroyFunc SysDataIDLSuffix::destroy", "Unlock class SysDataIDLSuffix"));
}

// --- The list service -------------------------------------------------------------------------------------------

const Events ADAPTERS_GONE = Events{"destroy BtPairedDeviceList"} + RESOURCE_END + Events{"destroy AapDeviceList"};

class AListService : public Recorded {
 protected:
  AListService() {
    Recorder::begin(CALLS);
    list = LmSIntegratedDeviceList::getInstance();
  }

  BtTable btTable;
  AapTable aapTable;
  CpTable cpTable;
  FuncInfoTable funcInfoTable;
  LmSIntegratedDeviceList* list;
  std::vector<IntegratedDevice> phones;
};

TEST_F(AListService, IsMadeWithItsMutexFirstAndItsAdaptersInOrder) {
  EXPECT_THAT(
      Recorder::events(),
      ElementsAreArray(
          Events{"Lock class LmSIntegratedDeviceList -1", "construct LmSync LmSync 1", "construct BtPairedDeviceList"} +
          acquisition("BtPairedDeviceList") + Events{"construct LmSCarplayResource"} +
          acquisition("LmSCarplayResource") +
          Events{"construct LmSubject", "construct notifier false", "AddObserver {6} 1"} +
          acquisition("LmSCarplayResource") + Events{"construct AapDeviceList"} + acquisition("AapDeviceList") +
          Events{"addDestroyFunc LmSIntegratedDeviceList::destroy", "Unlock class LmSIntegratedDeviceList"}));
}

TEST_F(AListService, LooksAtFuncInfoWithItsMutexHeld) {
  Recorder::clear();

  list->initialize();

  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(underMutex("LmSync 1", Events{"construct FuncInfo"} + acquisition("FuncInfo") +
                                                          acquisition("FuncInfo") + Events{"destroy FuncInfo"})));
}

TEST_F(AListService, DoesNotLookAtFuncInfoASecondTime) {
  list->initialize();
  Recorder::clear();

  list->initialize();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", {})));
}

TEST_F(AListService, StartsAndRefreshesWithItsMutexOutermost) {
  btTable.phone(0, 3, "Phone");
  list->initialize();
  Recorder::clear();

  list->updateDeviceList(DEVICE_TYPE_BT);

  const Events suffixMutexMade = {"Lock class SysDataIDLSuffix -1", "construct LmSync LmSync 2",
                                  "addDestroyFunc SysDataIDLSuffix::destroy", "Unlock class SysDataIDLSuffix"};
  EXPECT_THAT(Recorder::events(),
              ElementsAreArray(underMutex("LmSync 1", acquisition("BtPairedDeviceList") + suffixMutexMade +
                                                          underMutex("LmSync 2", FILE_MADE + LOADED) +
                                                          underMutex("LmSync 2", SAVED))));
}

TEST_F(AListService, TouchesNoFileWhereNoNumberOfAPairedPhoneChanges) {
  btTable.phone(0, 3, "Phone");
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  aapTable.phone(0, "Phone", "id", 255, 2);
  Recorder::clear();

  list->updateDeviceList(DEVICE_TYPE_AAP);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", acquisition("AapDeviceList"))));
}

TEST_F(AListService, RefreshesCarPlayWithItsMutexOutermost) {
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  cpTable.phone(2, 77, "Phone", 0);
  Recorder::clear();

  list->updateDeviceList(DEVICE_TYPE_CARPLAY);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", 13 * acquisition("LmSCarplayResource"))));
}

TEST_F(AListService, HandsOutItsListUnderItsMutexAlone) {
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  Recorder::clear();

  EXPECT_TRUE(list->getDeviceList(phones));
  list->setFormat(nullptr);

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", {}) + underMutex("LmSync 1", {})));
}

TEST_F(AListService, IgnoresAnUnknownSourceUnderItsMutexAndSilently) {
  list->initialize();
  Recorder::clear();

  list->updateDeviceList(static_cast<LmSIntegratedDeviceListDef::DeviceType>(3));

  EXPECT_THAT(Recorder::events(), ElementsAreArray(underMutex("LmSync 1", {})));
  EXPECT_THAT(Recorder::logLines(), IsEmpty());
}

TEST_F(AListService, SaysThatItIsNotInitializedWhenItIsToldOfAChange) {
  Recorder::begin(CALLS | Recorder::LOG);

  list->updateDeviceList(DEVICE_TYPE_BT);

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], SERVICE_FILE, "updateDeviceList", "not initialized.\n");
  EXPECT_THAT(Recorder::events(), ElementsAre("Lock LmSync 1 -1",
                                              std::string("DbgPrint ") + SERVICE_FILE + " updateDeviceList " +
                                                  std::to_string(lines[0].line) + " 1 not initialized.\n",
                                              "Unlock LmSync 1"));
}

TEST_F(AListService, SaysThatItIsNotInitializedWhenItIsAskedForItsList) {
  Recorder::begin(CALLS | Recorder::LOG);

  EXPECT_FALSE(list->getDeviceList(phones));

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], SERVICE_FILE, "getDeviceList", "not initialized.\n");
  EXPECT_THAT(Recorder::events(), ElementsAre("Lock LmSync 1 -1",
                                              std::string("DbgPrint ") + SERVICE_FILE + " getDeviceList " +
                                                  std::to_string(lines[0].line) + " 1 not initialized.\n",
                                              "Unlock LmSync 1"));
}

TEST_F(AListService, IsDestroyedAdapterByAdapterWithoutALockAndWithoutASave) {
  btTable.phone(0, 3, "Phone");
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  Recorder::clear();

  LmSIntegratedDeviceList::destroy();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(ADAPTERS_GONE + Events{"destroy LmSync LmSync 1"}));
}

TEST_F(AListService, EndsAfterTheSingletonsThatItUses) {
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_BT);
  Recorder::clear();

  Recorder::runFinalizer();

  EXPECT_THAT(
      Recorder::events(),
      ElementsAreArray(Events{"run SaveFileAccessFactory::destroy", "destroy SaveFileAccessFactory",
                              "run SysDataFactory::destroy", "delete IDLSuffix.ini", "run SysDataIDLSuffix::destroy",
                              "destroy LmSync LmSync 2", "run LmSIntegratedDeviceList::destroy"} +
                       ADAPTERS_GONE + Events{"destroy LmSync LmSync 1"}));
}

TEST_F(AListService, WhoseImplementationIsDestroyedThroughItsOwnPointerTakesDownAllAdapters) {
  auto implementation = std::make_unique<LmSIntegratedDeviceListImpl>();
  Recorder::clear();

  implementation.reset();

  EXPECT_THAT(Recorder::events(), ElementsAreArray(ADAPTERS_GONE + Events{"destroy LmSync LmSync 2"}));
}

// --- The suffix provider's log lines ----------------------------------------------------------------------------

class ASuffixProvider : public Recorded {
 protected:
  SuffixProvider provider;
};

TEST_F(ASuffixProvider, SaysThatItIsNotStarted) {
  std::vector<IntegratedDevice> list(1);

  provider.appendSuffix(list);

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], PROVIDER_FILE, "appendSuffix", "not started.\n");
}

TEST_F(ASuffixProvider, SaysThatNoFormatIsInForce) {
  EXPECT_FALSE(provider.setFormat(nullptr));

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], PROVIDER_FILE, "setFormat", "failed.\n");
}

TEST_F(ASuffixProvider, SaysThatTheStoredTableIsInvalid) {
  std::string file(2630, '\0');
  for (std::size_t record = 0; record < 2; ++record) {
    file[263 * record] = 1;
    file[263 * record + 1] = static_cast<char>(3 + record);
    file[263 * record + 2] = 'P';
    file[263 * record + 262] = 1;
  }
  Recorder::putSaveFile("IDLSuffix.ini", file);

  provider.start();

  const auto lines = Recorder::logLines();
  ASSERT_EQ(lines.size(), 1U);
  expectLogLine(lines[0], PROVIDER_FILE, "start", "mSuffixTable is invalid.\n");
}

TEST_F(ASuffixProvider, SaysNothingOfAnEmptyStoredTable) {
  provider.start();

  EXPECT_THAT(Recorder::logLines(), IsEmpty());
}

}  // namespace
