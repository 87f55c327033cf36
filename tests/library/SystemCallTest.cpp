// SPDX-License-Identifier: Apache-2.0
// Which system calls a segment makes, in which order, and what becomes of each that fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AapDeviceListSharedMem.h"
#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "CpIntegratedDeviceList.h"
#include "FuncInfoSharedMem.h"
#include "LmFramework/LmSyncGuard.h"
#include "SystemCallRecorder.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SegmentFormat.h"
#include "support/SegmentTest.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

using Calls = std::vector<std::string>;

constexpr char SHM_OPEN_ERROR[] = "LmFramework/SharedMemory/LmSharedMemory:122 LmSharedMemory shm_open error";
constexpr char FTRUNCATE_ERROR[] = "LmFramework/SharedMemory/LmSharedMemory:135 LmSharedMemory ftruncate error";
constexpr char MMAP_ERROR[] = "LmFramework/SharedMemory/LmSharedMemory:151 LmSharedMemory mmap error";

/// A line of the segment's own, whatever its number.
auto segmentLine(const std::string& message) {
  return AllOf(StartsWith("LmFramework/SharedMemory/LmSharedMemory:"), EndsWith(" LmSharedMemory " + message));
}

/// CapturedStdErr without a trace in the record.
class Log {
 public:
  Log() {
    const SystemCallRecorder::Pause pause;
    mCaptured.emplace();
  }
  ~Log() {
    const SystemCallRecorder::Pause pause;
    mCaptured.reset();
  }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  std::vector<std::string> lines() const {
    const SystemCallRecorder::Pause pause;
    return mCaptured->lines();
  }

 private:
  std::optional<CapturedStdErr> mCaptured;
};

/// A segment's format with the calls that follow from it.
struct Format {
  explicit Format(const SegmentFormat& format) : name(format.name), offset(format.offset), data(format.data) {}

  std::size_t size() const { return offset + data; }
  std::string open(const std::string& flags) const { return "shm_open " + name + " " + flags + " 0664"; }
  std::string mmap() const { return "mmap " + std::to_string(size()) + " prot=0x3 flags=0x1 fd offset=0"; }

  const std::string name;
  const std::size_t offset;
  const std::size_t data;
};

/// What the CarPlay segment does on top of the others, once it is attached.
template <class SegmentClass>
Calls callsOfDefaults(bool /*initialised*/) {
  return {};
}
template <>
Calls callsOfDefaults<CarPlayInfoSharedMem>(bool initialised) {
  if (initialised) {
    return {"pread fd 1@13732"};
  }
  return {"pread fd 1@13732", "pread fd 4@5120",     "fstat fd", "pwrite fd 5112@8",
          "fstat fd",         "pwrite fd 8608@5124", "fstat fd", "pwrite fd 1@13732"};
}

Calls operator+(Calls left, const Calls& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// Attaches the segment in a process of its own. Its exit code is the number of calls made, or minus the signal's
/// number.
template <class SegmentClass, class Prepare>
int attachInChild(const Prepare& prepare) {
  ChildProcess child([&] {
    SystemCallRecorder recorder;
    prepare(recorder);
    const SegmentClass segment;
    return static_cast<int>(recorder.take().size());
  });
  return child.wait();
}

/// Lets `make` prepare an object, a process attach it and die at each of its calls in turn, and the next attach it
/// undisturbed. What that leaves has to be what a process leaves that nothing happens to.
template <class SegmentClass, class Make>
void expectWholeWhereverTheFirstDies(const Make& make) {
  constexpr SegmentFormat FORMAT = formatOf<SegmentClass>();
  const auto nothing = [](SystemCallRecorder& /*recorder*/) {};
  make();
  const int calls = attachInChild<SegmentClass>(nothing);
  ASSERT_GE(calls, 5);
  const std::string whole = RawSegment(FORMAT.name).all();
  ASSERT_EQ(whole.size(), FORMAT.size());

  for (unsigned call = 1; call <= static_cast<unsigned>(calls); ++call) {
    for (const bool after : {false, true}) {
      make();
      const int end = attachInChild<SegmentClass>(
          [&](SystemCallRecorder& recorder) { after ? recorder.killAfter(call) : recorder.killBefore(call); });
      ASSERT_EQ(end, -SIGKILL);

      ASSERT_GT(attachInChild<SegmentClass>(nothing), 0);

      const RawSegment raw(FORMAT.name);
      EXPECT_TRUE(raw.all() == whole) << (after ? "after" : "before") << " call " << call << " of " << calls;
      EXPECT_EQ(raw.mode(), 0664U) << (after ? "after" : "before") << " call " << call << " of " << calls;
    }
  }
}

template <class SegmentClass>
class EverySegment : public SegmentTest {
 protected:
  const Format mFormat{formatOf<SegmentClass>()};
  const Log mLog;
  std::optional<RawSegment> mRaw;
  SystemCallRecorder mRecorder;

  /// An object that somebody else has made, initialised.
  void make(std::size_t size) {
    const SystemCallRecorder::Pause pause;
    mRaw.emplace(mFormat.name, size, static_cast<unsigned char>(0x5A));
  }

  std::string sizeWord() const { return RawSegment::littleEndian(mFormat.data, 4); }

  Calls creation() const {
    return {mFormat.open("0xc2"),
            "fchmod fd 0664",
            "ftruncate fd " + std::to_string(mFormat.size()),
            mFormat.mmap(),
            "fstat fd",
            "pwrite fd 4@0",
            "fstat fd",
            "pwrite fd " + std::to_string(mFormat.data) + "@" + std::to_string(mFormat.offset)};
  }

  Calls destruction() const { return {"munmap " + std::to_string(mFormat.size()), "close fd"}; }
};

using SegmentClasses =
    ::testing::Types<FuncInfoSharedMem, BtPairedDeviceListSharedMem, AapDeviceListSharedMem, CarPlayInfoSharedMem>;
struct SegmentNames {
  template <class SegmentClass>
  static std::string GetName(int /*position*/) {
    return formatOf<SegmentClass>().name + 1;
  }
};
TYPED_TEST_SUITE(EverySegment, SegmentClasses, SegmentNames);

TYPED_TEST(EverySegment, MakesTheseCallsToCreate) {
  {
    const TypeParam segment;

    EXPECT_EQ(this->mRecorder.take(), this->creation() + callsOfDefaults<TypeParam>(false));
  }
  EXPECT_EQ(this->mRecorder.take(), this->destruction());
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, MakesTheseCallsToAttach) {
  this->make(this->mFormat.size());
  {
    const TypeParam segment;

    EXPECT_EQ(this->mRecorder.take(), (Calls{this->mFormat.open("0xc2") + " -> EEXIST", this->mFormat.open("0x42"),
                                             "fstat fd", this->mFormat.mmap(), "fstat fd", "pwrite fd 4@0"}) +
                                          callsOfDefaults<TypeParam>(true));
  }
  EXPECT_EQ(this->mRecorder.take(), this->destruction());
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, MakesTheseCallsToMakeAnEmptyObjectWhole) {
  this->make(0);
  {
    const TypeParam segment;

    Calls expected = this->creation();
    expected.erase(expected.begin());
    EXPECT_EQ(this->mRecorder.take(),
              (Calls{this->mFormat.open("0xc2") + " -> EEXIST", this->mFormat.open("0x42"), "fstat fd"}) + expected +
                  callsOfDefaults<TypeParam>(false));
  }
  EXPECT_EQ(this->mRecorder.take(), this->destruction());
}

TYPED_TEST(EverySegment, IsMadeWholeByTheNextWhereverItsCreatorDies) {
  const SystemCallRecorder::Pause pause;
  expectWholeWhereverTheFirstDies<TypeParam>([this] { RawSegment::remove(this->mFormat.name); });
}

TYPED_TEST(EverySegment, IsMadeWholeByTheNextWhereverWhoMakesAnEmptyObjectWholeDies) {
  const SystemCallRecorder::Pause pause;
  expectWholeWhereverTheFirstDies<TypeParam>([this] {
    RawSegment::remove(this->mFormat.name);
    const RawSegment empty(this->mFormat.name, 0);
  });
}

TYPED_TEST(EverySegment, OpensWithoutCreatingWhereCreatingIsForbidden) {
  this->make(this->mFormat.size());
  this->mRecorder.fail("shm_open", 2, EACCES);

  const TypeParam segment;

  EXPECT_NE(segment.data(), nullptr);
  EXPECT_EQ(this->mRecorder.take(),
            (Calls{this->mFormat.open("0xc2") + " -> EEXIST", this->mFormat.open("0x42") + " -> EACCES",
                   this->mFormat.open("0x2"), "fstat fd", this->mFormat.mmap(), "fstat fd", "pwrite fd 4@0"}) +
                callsOfDefaults<TypeParam>(true));
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, ReportsAFirstOpenThatFailsOnceAndMakesNoFurtherCall) {
  for (const int error : {EACCES, EPERM, EMFILE, ENFILE, ENOSPC, ENAMETOOLONG, EINVAL, ENOENT, EINTR}) {
    const Log log;
    this->mRecorder.fail("shm_open", 1, error);
    {
      const TypeParam segment;

      EXPECT_EQ(segment.data(), nullptr);
      EXPECT_THAT(this->mRecorder.take(), ElementsAre(StartsWith(this->mFormat.open("0xc2") + " -> ")));
    }
    EXPECT_THAT(this->mRecorder.take(), IsEmpty()) << "there is nothing to unmap or close";
    EXPECT_THAT(log.lines(), ElementsAre(SHM_OPEN_ERROR));
    EXPECT_EQ(access(("/dev/shm" + this->mFormat.name).c_str(), F_OK), -1);
  }
}

TYPED_TEST(EverySegment, ReportsASecondOpenThatFailsAsAFailedMapping) {
  for (const int error : {ENOENT, EPERM, EMFILE, EINVAL}) {
    this->make(this->mFormat.size());
    const Log log;
    this->mRecorder.fail("shm_open", 2, error);
    {
      const TypeParam segment;

      EXPECT_EQ(segment.data(), nullptr);
      const Calls calls = this->mRecorder.take();
      ASSERT_THAT(calls, SizeIs(3));
      EXPECT_EQ(calls[2], "mmap " + std::to_string(this->mFormat.size()) + " prot=0x3 flags=0x1 -1 offset=0 -> EBADF");
    }
    EXPECT_THAT(this->mRecorder.take(), IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(MMAP_ERROR));
    const SystemCallRecorder::Pause pause;
    EXPECT_EQ(this->mRaw->all(), std::string(this->mFormat.size(), 0x5A));
  }
}

TYPED_TEST(EverySegment, ReportsAThirdOpenThatFailsAsAFailedMapping) {
  this->make(this->mFormat.size());
  this->mRecorder.fail("shm_open", 2, EACCES);
  this->mRecorder.fail("shm_open", 3, EACCES);
  {
    const TypeParam segment;

    EXPECT_EQ(segment.data(), nullptr);
    EXPECT_THAT(this->mRecorder.take(),
                ElementsAre(this->mFormat.open("0xc2") + " -> EEXIST", this->mFormat.open("0x42") + " -> EACCES",
                            this->mFormat.open("0x2") + " -> EACCES", EndsWith("-1 offset=0 -> EBADF")));
  }
  EXPECT_THAT(this->mRecorder.take(), IsEmpty());
  EXPECT_THAT(this->mLog.lines(), ElementsAre(MMAP_ERROR));
}

TYPED_TEST(EverySegment, WritesNothingAfterItCouldNotBeSized) {
  for (const int error : {EFBIG, ENOSPC, EINVAL, EPERM, EINTR, EIO}) {
    RawSegment::remove(this->mFormat.name);
    const Log log;
    this->mRecorder.fail("ftruncate", 1, error);
    {
      const TypeParam segment;

      EXPECT_NE(segment.data(), nullptr) << "it is mapped all the same";
      const Calls calls = this->mRecorder.take();
      EXPECT_THAT(calls, Contains(this->mFormat.mmap()));
      EXPECT_THAT(calls, Not(Contains(StartsWith("pwrite"))));
      char byte = 'x';
      EXPECT_EQ(segment.read(this->mFormat.offset, &byte, 1), 0U);
      EXPECT_EQ(byte, 'x');
      this->mRecorder.take();
    }
    EXPECT_EQ(this->mRecorder.take(), this->destruction());
    EXPECT_THAT(log.lines(), ElementsAre(FTRUNCATE_ERROR));
    const SystemCallRecorder::Pause pause;
    EXPECT_EQ(RawSegment(this->mFormat.name).size(), 0U);
  }
}

TYPED_TEST(EverySegment, IsMadeWholeByTheNextAfterItCouldNotBeSized) {
  this->mRecorder.fail("ftruncate", 1, ENOSPC);
  const TypeParam failed;

  const TypeParam next;

  RawSegment raw(this->mFormat.name);
  EXPECT_EQ(raw.size(), this->mFormat.size());
  EXPECT_EQ(raw.bytes(0, 4), this->sizeWord());
}

TYPED_TEST(EverySegment, ReportsAFailedMappingOnceAndOnlyClosesInTheEnd) {
  for (const int error : {ENOMEM, EACCES, EAGAIN, ENODEV, EPERM}) {
    RawSegment::remove(this->mFormat.name);
    const Log log;
    this->mRecorder.fail("mmap", 1, error);
    {
      const TypeParam segment;

      EXPECT_EQ(segment.data(), nullptr);
      const Calls calls = this->mRecorder.take();
      ASSERT_THAT(calls, SizeIs(4));
      EXPECT_THAT(calls[3], StartsWith(this->mFormat.mmap() + " -> "));
      char byte = 'x';
      EXPECT_EQ(segment.read(0, &byte, 1), 0U);
      EXPECT_FALSE(segment.write(0, &byte, 1));
      EXPECT_THAT(this->mRecorder.take(), IsEmpty()) << "an unmapped segment is not read or written";
    }
    EXPECT_THAT(this->mRecorder.take(), ElementsAre("close fd"));
    EXPECT_THAT(log.lines(), ElementsAre(MMAP_ERROR));
  }
}

TYPED_TEST(EverySegment, ReportsBothWhenSizingAndMappingFail) {
  this->mRecorder.fail("ftruncate", 1, ENOSPC);
  this->mRecorder.fail("mmap", 1, ENOMEM);

  const TypeParam segment;

  EXPECT_EQ(segment.data(), nullptr);
  EXPECT_THAT(this->mLog.lines(), ElementsAre(FTRUNCATE_ERROR, MMAP_ERROR));
}

TYPED_TEST(EverySegment, IsCreatedAllTheSameWhenItsModeCannotBeSet) {
  this->mRecorder.fail("fchmod", 1, EPERM);

  const TypeParam segment;

  EXPECT_NE(segment.data(), nullptr);
  EXPECT_EQ(RawSegment(this->mFormat.name).size(), this->mFormat.size());
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, IsTakenForSizedWhenItsLengthCannotBeSeen) {
  this->make(this->mFormat.size());
  this->mRecorder.fail("fstat", 1, EIO);

  const TypeParam segment;

  EXPECT_NE(segment.data(), nullptr);
  EXPECT_THAT(this->mRecorder.take(), Not(Contains(StartsWith("ftruncate"))));
  EXPECT_EQ(this->mRaw->bytes(this->mFormat.offset, this->mFormat.data), std::string(this->mFormat.data, 0x5A));
}

TYPED_TEST(EverySegment, IsNotWrittenWhereItsLengthCannotBeSeen) {
  this->make(this->mFormat.size());
  this->mRecorder.failAll("fstat", EIO);

  const TypeParam segment;

  EXPECT_THAT(this->mRecorder.take(), Not(Contains(StartsWith("pwrite"))));
  const SystemCallRecorder::Pause pause;
  EXPECT_EQ(this->mRaw->all(), std::string(this->mFormat.size(), 0x5A));
  EXPECT_THAT(this->mLog.lines(), ElementsAre(segmentLine("fstat error")));
}

TYPED_TEST(EverySegment, ReportsOnceThatItsLengthCannotBeSeen) {
  this->make(this->mFormat.size());
  this->mRecorder.failAll("fstat", EIO);
  const TypeParam segment;
  const LmSyncGuard guard(segment);
  const std::uint32_t word = 1;

  EXPECT_FALSE(segment.write(0, &word, sizeof(word)));
  EXPECT_FALSE(segment.write(0, &word, sizeof(word)));

  EXPECT_THAT(this->mLog.lines(), ElementsAre(segmentLine("fstat error")));
}

TYPED_TEST(EverySegment, LooksAtItsLengthRightBeforeEachWrite) {
  const TypeParam segment;

  const Calls calls = this->mRecorder.take();
  std::size_t writes = 0;
  for (std::size_t i = 1; i < calls.size(); ++i) {
    if (calls[i].compare(0, 6, "pwrite") == 0) {
      ++writes;
      EXPECT_EQ(calls[i - 1], "fstat fd") << calls[i];
    }
  }
  EXPECT_GE(writes, 2U);
}

TYPED_TEST(EverySegment, ReportsAWriteThatFailsOnce) {
  for (const int error : {EIO, ENOSPC, EBADF}) {
    RawSegment::remove(this->mFormat.name);
    const Log log;
    this->mRecorder.fail("pwrite", 1, error);
    this->mRecorder.fail("pwrite", 2, error);

    const TypeParam segment;

    EXPECT_NE(segment.data(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(segmentLine("pwrite error")));
  }
}

TYPED_TEST(EverySegment, WritesAgainWhatASignalInterrupted) {
  this->mRecorder.fail("pwrite", 1, EINTR);
  this->mRecorder.fail("pwrite", 2, EINTR);
  this->mRecorder.fail("pwrite", 4, EINTR);

  const TypeParam segment;

  RawSegment raw(this->mFormat.name);
  EXPECT_EQ(raw.bytes(0, 4), this->sizeWord());
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, WritesTheRestOfWhatWasWrittenInPart) {
  this->mRecorder.shorten("pwrite", 1, 1);
  this->mRecorder.shorten("pwrite", 2, 2);

  const TypeParam segment;

  EXPECT_EQ(RawSegment(this->mFormat.name).bytes(0, 4), this->sizeWord());
  EXPECT_THAT(this->mRecorder.take(),
              AllOf(Contains("pwrite fd 4@0"), Contains("pwrite fd 3@1"), Contains("pwrite fd 1@3")));
}

TYPED_TEST(EverySegment, ReadsAgainWhatASignalInterrupted) {
  this->make(this->mFormat.size());
  const TypeParam segment;
  this->mRecorder.take();
  this->mRecorder.fail("pread", 1, EINTR);
  this->mRecorder.fail("pread", 2, EINTR);
  char copy[10] = {};

  EXPECT_EQ(segment.read(this->mFormat.offset, copy, 10), 10U);

  EXPECT_THAT(copy, ::testing::Each(0x5A));
  EXPECT_THAT(this->mRecorder.take(), SizeIs(3));
  EXPECT_THAT(this->mLog.lines(), IsEmpty());
}

TYPED_TEST(EverySegment, ReadsTheRestOfWhatWasReadInPart) {
  this->make(this->mFormat.size());
  this->mRaw->put(20, "0123456789");
  const TypeParam segment;
  this->mRecorder.take();
  this->mRecorder.shorten("pread", 1, 3);
  std::string copy(10, 'x');

  EXPECT_EQ(segment.read(20, copy.data(), 10), 10U);

  EXPECT_EQ(copy, "0123456789");
  EXPECT_THAT(this->mRecorder.take(), ElementsAre("pread fd 10@20", "pread fd 7@23"));
}

TYPED_TEST(EverySegment, ReportsAReadThatFailsOnceAndLeavesTheBufferAlone) {
  this->make(this->mFormat.size());
  const TypeParam segment;
  this->mRecorder.failAll("pread", EIO);
  char copy[3] = {1, 2, 3};

  EXPECT_EQ(segment.read(20, copy, 3), 0U);
  EXPECT_EQ(segment.read(20, copy, 3), 0U);

  EXPECT_THAT(copy, ElementsAre(1, 2, 3));
  EXPECT_THAT(this->mLog.lines(), ElementsAre(segmentLine("pread error")));
}

class TheReaders : public SegmentTest {
 protected:
  const Log mLog;
  SystemCallRecorder mRecorder;
};

TEST_F(TheReaders, CopyAWholeBluetoothTableByOneRead) {
  BtIntegratedDeviceList adapter;
  mRecorder.take();

  adapter.updateDeviceList();

  EXPECT_THAT(mRecorder.take(), ElementsAre("pread fd 1120@4"));
}

TEST_F(TheReaders, CopyAWholeAndroidAutoTableByOneRead) {
  AapIntegratedDeviceList adapter;
  mRecorder.take();

  adapter.updateDeviceList();

  EXPECT_THAT(mRecorder.take(), ElementsAre("pread fd 6288@4"));
}

TEST_F(TheReaders, CopyEachCarPlayEntryByARead) {
  CpIntegratedDeviceList adapter;
  Calls expected;
  expected.reserve(11);
  for (unsigned i = 0; i < 11; ++i) {
    expected.push_back("pread fd 296@" + std::to_string(1800 + 296 * i));
  }
  mRecorder.take();

  adapter.updateDeviceList();

  EXPECT_EQ(mRecorder.take(), expected);
}

TEST_F(TheReaders, ReadTheCurrentPhoneAndThenTheUsbWordForEachConversion) {
  CpIntegratedDeviceList adapter;
  cps_def::WCPAtom atom = {};
  atom.identifier = 5;
  mRecorder.take();

  adapter.toIntegratedDevice(atom);
  EXPECT_THAT(mRecorder.take(), ElementsAre("pread fd 8@1072", "pread fd 4@1076"));

  RawSegment("/LmSCarplayResource").put64(1072, 5);
  mRecorder.take();
  adapter.toIntegratedDevice(atom);
  EXPECT_THAT(mRecorder.take(), ElementsAre(StartsWith("pread ")));

  atom.identifier = 0;
  adapter.toIntegratedDevice(atom);
  EXPECT_THAT(mRecorder.take(), IsEmpty());
}

TEST_F(TheReaders, FindNothingWhereReadsFail) {
  BtIntegratedDeviceList bt;
  AapIntegratedDeviceList aap;
  CpIntegratedDeviceList carPlay;
  cps_def::WCPAtom atom = {};
  atom.identifier = 5;
  RawSegment("/LmSCarplayResource").put64(1072, 5);
  mRecorder.failAll("pread", EIO);
  std::vector<BtPairedDevice> btRecords(1);
  std::vector<AapDevice> aapRecords(1);
  std::vector<cps_def::WCPAtom> atoms(1);

  bt.getFunctionDeviceList(btRecords);
  aap.getFunctionDeviceList(aapRecords);
  carPlay.getFunctionDeviceList(atoms);

  EXPECT_THAT(btRecords, IsEmpty());
  EXPECT_THAT(aapRecords, IsEmpty());
  EXPECT_THAT(atoms, IsEmpty());
  EXPECT_EQ(carPlay.toIntegratedDevice(atom).port, 0);
  EXPECT_THAT(mLog.lines(), SizeIs(3));
}

TEST_F(TheReaders, AreEmptySourcesWhereTheirSegmentsCouldNotBeSized) {
  mRecorder.failAll("ftruncate", ENOSPC);
  BtIntegratedDeviceList bt;
  AapIntegratedDeviceList aap;
  CpIntegratedDeviceList carPlay;
  std::vector<BtPairedDevice> btRecords(1);
  std::vector<AapDevice> aapRecords(1);
  std::vector<cps_def::WCPAtom> atoms(1);

  bt.getFunctionDeviceList(btRecords);
  aap.getFunctionDeviceList(aapRecords);
  carPlay.getFunctionDeviceList(atoms);

  EXPECT_THAT(btRecords, IsEmpty());
  EXPECT_THAT(aapRecords, IsEmpty());
  EXPECT_THAT(atoms, IsEmpty());
  EXPECT_THAT(mLog.lines(), ElementsAre(FTRUNCATE_ERROR, FTRUNCATE_ERROR, FTRUNCATE_ERROR));
}

TEST_F(TheReaders, AreEmptySourcesWhereTheirSegmentsCouldNotBeMapped) {
  mRecorder.failAll("mmap", ENOMEM);
  BtIntegratedDeviceList bt;
  AapIntegratedDeviceList aap;
  CpIntegratedDeviceList carPlay;
  mRecorder.take();

  bt.updateDeviceList();
  aap.updateDeviceList();
  carPlay.updateDeviceList();

  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> list(1);
  bt.getBtDeviceList(list);
  EXPECT_THAT(list, IsEmpty());
  EXPECT_THAT(mRecorder.take(), IsEmpty());
  EXPECT_THAT(mLog.lines(), ElementsAre(MMAP_ERROR, MMAP_ERROR, MMAP_ERROR));
}

/// The defaults of a CarPlay resource of 0xFF, with one of their calls failing.
class TheDefaults : public SegmentTest {
 protected:
  TheDefaults() : mRaw("/LmSCarplayResource", 13736, 0xFF) { mRaw.put8(13732, 0); }

  RawSegment mRaw;
  const Log mLog;
};

TEST_F(TheDefaults, LeaveTheFlagUnsetWhenAWriteFailsSoThatTheNextBeginsAnew) {
  for (unsigned write = 2; write <= 4; ++write) {  // the first is the size word's
    mRaw.put(0, std::string(13736, '\xFF'));
    mRaw.put8(13732, 0);
    {
      SystemCallRecorder recorder;
      recorder.fail("pwrite", write, EIO);

      const CarPlayInfoSharedMem failed;
    }
    EXPECT_EQ(mRaw.get8(13732), 0U) << write;

    const CarPlayInfoSharedMem next;
    EXPECT_EQ(mRaw.get8(13732), 1U);
    EXPECT_EQ(mRaw.get8(452), 10U);
    EXPECT_EQ(mRaw.bytes(5120, 8), std::string(8, '\xFF'));
  }
}

TEST_F(TheDefaults, AreNotWrittenWhenTheFlagCannotBeRead) {
  SystemCallRecorder recorder;
  recorder.failAll("pread", EIO);

  const CarPlayInfoSharedMem resource;

  EXPECT_THAT(mLog.lines(), ElementsAre(segmentLine("pread error")));
  const SystemCallRecorder::Pause pause;
  EXPECT_EQ(mRaw.bytes(4, 13728), std::string(13728, '\xFF'));
}

TEST_F(TheDefaults, AreWrittenWholeByTheNextWhereverWhoWritesThemDies) {
  ASSERT_EQ(chmod("/dev/shm/LmSCarplayResource", 0664), 0);

  expectWholeWhereverTheFirstDies<CarPlayInfoSharedMem>([this] {
    mRaw.put(0, std::string(13736, '\xFF'));
    mRaw.put8(13732, 0);
  });
}

TEST_F(TheDefaults, WriteTheFlagLast) {
  SystemCallRecorder recorder;

  const CarPlayInfoSharedMem resource;

  EXPECT_EQ(recorder.take().back(), "pwrite fd 1@13732");
}

}  // namespace
