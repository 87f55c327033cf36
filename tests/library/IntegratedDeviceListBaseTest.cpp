// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "IntegratedDeviceListBase.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

AapDevice record(const std::string& name, std::uint8_t btid, std::int32_t port) {
  AapDevice made;
  std::memcpy(made.name, name.c_str(), name.size() + 1);
  made.btid = btid;
  made.port = port;
  return made;
}

/// An adapter whose source is a vector.
class Adapter : public IntegratedDeviceListBase<AapDevice> {
 public:
  void getFunctionDeviceList(std::vector<AapDevice>& out) override {
    foundEmpty = foundEmpty && out.empty();
    steps.emplace_back("get");
    out = source;
  }

  void createDeviceList(const std::vector<AapDevice>& records) override {
    steps.emplace_back("create");
    IntegratedDeviceListBase::createDeviceList(records);
  }

  IntegratedDevice toIntegratedDevice(const AapDevice& from) override {
    steps.push_back(std::string("convert ") + from.name);
    if (std::string(from.name) == "bad") {
      throw std::runtime_error("no conversion");
    }
    IntegratedDevice device;
    device.name = from.name;
    device.btid = from.btid;
    device.port = from.port;
    return device;
  }

  std::vector<AapDevice> source;
  std::vector<std::string> steps;
  bool foundEmpty = true;
};

class AnAdapter : public ::testing::Test {
 protected:
  std::vector<std::string> btNames() const { return names(&Adapter::getBtDeviceList); }
  std::vector<std::string> usbNames() const { return names(&Adapter::getUsbDeviceList); }

  Adapter mAdapter;

 private:
  using Getter = void (Adapter::*)(std::vector<IntegratedDevice>&) const;

  std::vector<std::string> names(Getter getter) const {
    std::vector<IntegratedDevice> list;
    (mAdapter.*getter)(list);
    std::vector<std::string> found;
    found.reserve(list.size());
    for (const IntegratedDevice& device : list) {
      found.push_back(device.name);
    }
    return found;
  }
};

TEST_F(AnAdapter, HasEmptyListsBeforeItsFirstRefresh) {
  mAdapter.source = {record("phone", 1, 1)};

  EXPECT_THAT(btNames(), IsEmpty());
  EXPECT_THAT(usbNames(), IsEmpty());
}

TEST_F(AnAdapter, ReadsThenCreatesThenConvertsEachRecordOnce) {
  mAdapter.source = {record("a", 1, 0), record("b", 2, 0)};

  mAdapter.updateDeviceList();

  EXPECT_THAT(mAdapter.steps, ElementsAre("get", "create", "convert a", "convert b"));
}

TEST_F(AnAdapter, ReadsIntoAnEmptyVectorAtEachRefresh) {
  mAdapter.source = {record("a", 1, 0)};

  mAdapter.updateDeviceList();
  mAdapter.updateDeviceList();

  EXPECT_TRUE(mAdapter.foundEmpty);
}

TEST_F(AnAdapter, EmptiesBothListsWhenItsSourceIsEmpty) {
  mAdapter.source = {record("paired", 1, 0), record("usb", 255, 1)};
  mAdapter.updateDeviceList();
  ASSERT_THAT(btNames(), ElementsAre("paired"));
  ASSERT_THAT(usbNames(), ElementsAre("usb"));

  mAdapter.source.clear();
  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), IsEmpty());
  EXPECT_THAT(usbNames(), IsEmpty());
}

TEST_F(AnAdapter, FilesAPairedAndConnectedRecordAsPairedOnly) {
  mAdapter.source = {record("both", 3, 2)};

  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), ElementsAre("both"));
  EXPECT_THAT(usbNames(), IsEmpty());
}

TEST_F(AnAdapter, FilesAnUnpairedRecordByItsPositivePort) {
  mAdapter.source = {record("one", 255, 1), record("zero", 255, 0), record("minus one", 255, -1),
                     record("greatest", 255, INT32_MAX), record("least", 255, INT32_MIN)};

  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), IsEmpty());
  EXPECT_THAT(usbNames(), ElementsAre("one", "greatest"));
}

TEST_F(AnAdapter, FilesAPairedRecordWhateverItsPort) {
  mAdapter.source = {record("zero", 0, 0), record("minus one", 254, -1), record("least", 1, INT32_MIN)};

  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), ElementsAre("zero", "minus one", "least"));
  EXPECT_THAT(usbNames(), IsEmpty());
}

TEST_F(AnAdapter, KeepsTheOrderOfItsSource) {
  mAdapter.source = {record("z", 9, 0),    record("u9", 255, 9), record("a", 1, 0),
                     record("u1", 255, 1), record("m", 5, 0),    record("u5", 255, 5)};

  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), ElementsAre("z", "a", "m"));
  EXPECT_THAT(usbNames(), ElementsAre("u9", "u1", "u5"));
}

TEST_F(AnAdapter, GivesEqualCopiesEachTime) {
  mAdapter.source = {record("paired", 1, 0), record("usb", 255, 1)};
  mAdapter.updateDeviceList();

  EXPECT_THAT(btNames(), ElementsAre("paired"));
  EXPECT_THAT(btNames(), ElementsAre("paired"));
  EXPECT_THAT(usbNames(), ElementsAre("usb"));
  EXPECT_THAT(usbNames(), ElementsAre("usb"));
}

TEST_F(AnAdapter, ReplacesWhatTheCallersListHeld) {
  mAdapter.source = {record("paired", 1, 0)};
  mAdapter.updateDeviceList();
  std::vector<IntegratedDevice> bt(5);
  std::vector<IntegratedDevice> usb(5);

  mAdapter.getBtDeviceList(bt);
  mAdapter.getUsbDeviceList(usb);

  ASSERT_EQ(bt.size(), 1U);
  EXPECT_EQ(bt[0].name, "paired");
  EXPECT_THAT(usb, IsEmpty());
}

TEST_F(AnAdapter, IsNotChangedThroughACopyOfItsList) {
  mAdapter.source = {record("paired", 1, 0)};
  mAdapter.updateDeviceList();
  std::vector<IntegratedDevice> copy;
  mAdapter.getBtDeviceList(copy);

  copy[0].name = "other";

  EXPECT_THAT(btNames(), ElementsAre("paired"));
}

TEST_F(AnAdapter, CreatesItsListsFromGivenRecordsWithoutReading) {
  mAdapter.source = {record("unread", 1, 0)};

  mAdapter.createDeviceList({record("given", 2, 0)});

  EXPECT_THAT(btNames(), ElementsAre("given"));
  EXPECT_THAT(mAdapter.steps, ElementsAre("create", "convert given"));
}

TEST_F(AnAdapter, KeepsWhatWasBuiltWhenAConversionThrowsAndWorksAgain) {
  mAdapter.source = {record("a", 1, 0), record("bad", 2, 0), record("b", 3, 0)};

  EXPECT_THROW(mAdapter.updateDeviceList(), std::runtime_error);

  EXPECT_THAT(btNames(), ElementsAre("a"));
  mAdapter.source = {record("b", 3, 0)};
  mAdapter.updateDeviceList();
  EXPECT_THAT(btNames(), ElementsAre("b"));
}

TEST(AnAdapterThatIsDestroyedThroughItsBase, IsDestroyedWhole) {
  struct Derived : Adapter {
    explicit Derived(bool& gone) : mGone(gone) {}
    ~Derived() override { mGone = true; }
    bool& mGone;
  };
  bool gone = false;
  std::unique_ptr<IntegratedDeviceListBase<AapDevice>> adapter = std::make_unique<Derived>(gone);

  adapter.reset();

  EXPECT_TRUE(gone);
}

}  // namespace
