// SPDX-License-Identifier: Apache-2.0
// Sizes, the order of members and the order of virtual functions. Compiled without access control, so that private
// members have names here too. What is asked is asked of the compiler's own pointers to members, as all compilers for
// the machines in question make them: one to a data member is its offset, one to a virtual function is the offset of
// its slot in the table.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

#include "AapDeviceListSharedMem.h"
#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "CpIntegratedDeviceList.h"
#include "FuncInfoSharedMem.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmSIntegratedDeviceListImpl.h"
#include "SuffixProvider.h"
#include "SysDataFactory.h"
#include "SysDataIDLSuffix.h"
#include "SysDataWrapper.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr bool IS_32_BIT = sizeof(void*) == 4;

/// The offset of a data member in its class.
template <class Class, class Member>
std::size_t offsetOf(Member Class::*member) {
  std::ptrdiff_t offset = 0;
  static_assert(sizeof(member) == sizeof(offset));
  std::memcpy(&offset, &member, sizeof offset);
  return static_cast<std::size_t>(offset);
}

/// The slot of a virtual function in its class's table.
template <class Function>
std::size_t slotOf(Function function) {
  struct {
    std::ptrdiff_t pointer;
    std::ptrdiff_t adjustment;
  } parts = {};
  static_assert(std::is_member_function_pointer_v<Function> && sizeof(function) == sizeof(parts));
  std::memcpy(&parts, &function, sizeof parts);
#ifdef __arm__
  const bool isVirtual = (parts.adjustment & 1) != 0;
  const std::ptrdiff_t offset = parts.pointer;
#else
  const bool isVirtual = (parts.pointer & 1) != 0;
  const std::ptrdiff_t offset = parts.pointer - 1;
#endif
  EXPECT_TRUE(isVirtual);
  return static_cast<std::size_t>(offset) / sizeof(void*);
}

/// How many slots a class's table has: the first one that a derived class adds.
template <class Class>
std::size_t slotCount() {
  struct Derived : Class {
    virtual void added() {}
  };
  return slotOf(&Derived::added);
}

void expectAscending(const std::vector<std::size_t>& offsets) {
  for (std::size_t i = 1; i < offsets.size(); ++i) {
    EXPECT_LT(offsets[i - 1], offsets[i]) << "member " << i;
  }
}

TEST(TheSegments, HaveTheUnitsSizesOnEveryMachine) {
  EXPECT_EQ(FuncInfoSharedMem::DATA_SIZE, 2104U);
  EXPECT_EQ(FuncInfoSharedMem::DATA_OFFSET, 4U);
  EXPECT_EQ(FuncInfoSharedMem::SEGMENT_SIZE, 2108U);
  EXPECT_EQ(BtPairedDeviceListSharedMem::DATA_SIZE, 1120U);
  EXPECT_EQ(BtPairedDeviceListSharedMem::DATA_OFFSET, 4U);
  EXPECT_EQ(BtPairedDeviceListSharedMem::SEGMENT_SIZE, 1124U);
  EXPECT_EQ(CarPlayInfoSharedMem::DATA_SIZE, 13728U);
  EXPECT_EQ(CarPlayInfoSharedMem::DATA_OFFSET, 8U);
  EXPECT_EQ(CarPlayInfoSharedMem::SEGMENT_SIZE, 13736U);
  EXPECT_EQ(AapDeviceListSharedMem::DATA_SIZE, 6288U);
  EXPECT_EQ(AapDeviceListSharedMem::DATA_OFFSET, 4U);
  EXPECT_EQ(AapDeviceListSharedMem::SEGMENT_SIZE, 6292U);
}

// With pointers of 32 bits the classes themselves are what lies in shared memory.
TEST(TheSourceRecords, AreOnTheUnitWhatLiesInSharedMemory) {
  EXPECT_EQ(sizeof(cps_def::WCPAtom), 296U);
  EXPECT_EQ(alignof(cps_def::WCPAtom), 8U);
  const std::size_t header = sizeof(void*);
  EXPECT_EQ(offsetOf(&BtPairedDevice::id), header);
  EXPECT_EQ(offsetOf(&BtPairedDevice::name), header + 1);
  EXPECT_EQ(offsetOf(&BtPairedDevice::address), header + 82);
  EXPECT_EQ(offsetOf(&AapDevice::session), header);
  EXPECT_EQ(offsetOf(&AapDevice::name), header + 1);
  EXPECT_EQ(offsetOf(&AapDevice::id), header + 258);
  EXPECT_EQ(offsetOf(&AapDevice::btid), header + 515);
  if (IS_32_BIT) {
    EXPECT_EQ(sizeof(BtPairedDevice), 112U);
    EXPECT_EQ(offsetOf(&BtPairedDevice::info), 104U);
    EXPECT_EQ(offsetOf(&BtPairedDevice::flag1), 108U);
    EXPECT_EQ(offsetOf(&BtPairedDevice::flag2), 109U);
    EXPECT_EQ(sizeof(AapDevice), 524U);
    EXPECT_EQ(offsetOf(&AapDevice::port), 520U);
  }
}

TEST(TheSourceRecords, HaveTheirMembersInOrder) {
  expectAscending({offsetOf(&BtPairedDevice::id), offsetOf(&BtPairedDevice::name), offsetOf(&BtPairedDevice::address),
                   offsetOf(&BtPairedDevice::info), offsetOf(&BtPairedDevice::flag1),
                   offsetOf(&BtPairedDevice::flag2)});
  expectAscending({offsetOf(&AapDevice::session), offsetOf(&AapDevice::name), offsetOf(&AapDevice::id),
                   offsetOf(&AapDevice::btid), offsetOf(&AapDevice::port)});
  EXPECT_EQ(slotCount<BtPairedDevice>(), 2U);
  EXPECT_EQ(slotCount<AapDevice>(), 2U);
  EXPECT_FALSE(std::is_polymorphic_v<cps_def::WCPAtom>);
}

TEST(TheListedRecords, HaveTheirMembersInOrder) {
  EXPECT_EQ(sizeof(LmSIntegratedDeviceListDef::DeviceType), 4U);
  EXPECT_EQ(offsetOf(&DeviceInfo::type), 0U);
  expectAscending({offsetOf(&DeviceInfo::type), offsetOf(&DeviceInfo::name), offsetOf(&DeviceInfo::btid),
                   offsetOf(&DeviceInfo::port), offsetOf(&DeviceInfo::session), offsetOf(&DeviceInfo::cpDeviceId),
                   offsetOf(&DeviceInfo::aapId), offsetOf(&DeviceInfo::suffix)});
  EXPECT_EQ(offsetOf(static_cast<LmSIntegratedDeviceListDef::DeviceType IntegratedDevice::*>(&IntegratedDevice::type)),
            0U);
  expectAscending({offsetOf(static_cast<std::uint8_t IntegratedDevice::*>(&IntegratedDevice::suffix)),
                   offsetOf(&IntegratedDevice::btDevice), offsetOf(&IntegratedDevice::cpDevice),
                   offsetOf(&IntegratedDevice::aapDevice)});
  EXPECT_FALSE(std::is_polymorphic_v<IntegratedDevice>);
}

template <class Segment>
void expectSegmentLayout() {
  expectAscending({sizeof(LmSharedSyncObject) - 1, offsetOf(&Segment::fd), offsetOf(&Segment::address),
                   offsetOf(&Segment::created)});
  EXPECT_EQ(sizeof(Segment::fd), 4U);
  EXPECT_EQ(sizeof(Segment::created), 1U);
  EXPECT_EQ(slotOf(&Segment::lock), 2U);
  EXPECT_EQ(slotOf(&Segment::unlock), 3U);
  EXPECT_EQ(slotCount<Segment>(), 4U);
}

TEST(ASegment, HasItsMembersAndVirtualFunctionsInOrder) {
  EXPECT_EQ(slotOf(&LmSharedSyncObject::lock), 2U);
  EXPECT_EQ(slotOf(&LmSharedSyncObject::unlock), 3U);
  EXPECT_EQ(slotCount<LmSharedSyncObject>(), 4U);
  expectSegmentLayout<FuncInfoSharedMem>();
  expectSegmentLayout<BtPairedDeviceListSharedMem>();
  expectSegmentLayout<AapDeviceListSharedMem>();
  expectSegmentLayout<CarPlayInfoSharedMem>();
}

TEST(ASegment, IsNoMoreThanTheTemplateMakesIt) {
  EXPECT_EQ(sizeof(FuncInfoSharedMem), sizeof(LmSharedMemory<idl::wire::FuncInfoStruct, 1>));
  EXPECT_EQ(sizeof(BtPairedDeviceListSharedMem), sizeof(LmSharedMemory<idl::wire::BtPairedDeviceList, 1>));
  EXPECT_EQ(sizeof(AapDeviceListSharedMem), sizeof(LmSharedMemory<idl::wire::AapDeviceList, 1>));
}

TEST(TheCarPlayResource, HasItsBasesAndMembersInOrder) {
  using Base = LmSharedMemory<idl::wire::CarPlaySharedMemStruct, 1>;
  alignas(CarPlayInfoSharedMem) static const char storage[sizeof(CarPlayInfoSharedMem)] = {};
  const auto* whole = reinterpret_cast<const CarPlayInfoSharedMem*>(storage);  // addresses alone: there is no object
  const auto distance = [&](const void* part) {
    return static_cast<std::size_t>(static_cast<const char*>(part) - static_cast<const char*>(storage));
  };

  EXPECT_EQ(distance(static_cast<const Base*>(whole)), 0U);
  EXPECT_GE(distance(static_cast<const LmSubject*>(whole)), sizeof(Base) - alignof(Base));
  expectAscending({distance(static_cast<const LmSubject*>(whole)), offsetOf(&CarPlayInfoSharedMem::notifier),
                   offsetOf(&CarPlayInfoSharedMem::observer)});
  EXPECT_TRUE(std::has_virtual_destructor_v<LmSubject>);
  EXPECT_TRUE((std::is_same_v<decltype(CarPlayInfoSharedMem::notifier), LmSharedMemNotifier>));
}

TEST(AnObserver, HasItsVirtualFunctionsInOrder) {
  EXPECT_EQ(slotOf(&LmObserver_::Update), 2U);
  EXPECT_EQ(slotOf(&LmObserver<CarPlayInfoSharedMem>::Update), 2U);
  EXPECT_EQ(slotCount<LmObserver<CarPlayInfoSharedMem>>() - 1, 2U);
  expectAscending(
      {offsetOf(&LmObserver<CarPlayInfoSharedMem>::mTarget), offsetOf(&LmObserver<CarPlayInfoSharedMem>::mFunction)});
}

// Two destructors stand between getUsbDeviceList and getFunctionDeviceList.
template <class Adapter, class Base>
void expectAdapterLayout() {
  EXPECT_EQ(slotOf(&Base::updateDeviceList), 0U);
  EXPECT_EQ(slotOf(&Base::getBtDeviceList), 1U);
  EXPECT_EQ(slotOf(&Base::getUsbDeviceList), 2U);
  EXPECT_EQ(slotOf(&Base::getFunctionDeviceList), 5U);
  EXPECT_EQ(slotOf(&Base::createDeviceList), 6U);
  EXPECT_EQ(slotOf(&Base::toIntegratedDevice), 7U);
  EXPECT_EQ(slotOf(&Adapter::getFunctionDeviceList), 5U);
  EXPECT_EQ(slotOf(&Adapter::toIntegratedDevice), 7U);
  EXPECT_EQ(slotCount<Adapter>(), 8U);
  EXPECT_EQ(offsetOf(&Base::btList), sizeof(void*));
  expectAscending({offsetOf(&Base::btList), offsetOf(&Base::usbList), offsetOf(&Adapter::sharedMem)});
  EXPECT_EQ(sizeof(Adapter), sizeof(Base) + sizeof(void*));
}

TEST(AnAdapter, HasItsMembersAndVirtualFunctionsInOrder) {
  expectAdapterLayout<BtIntegratedDeviceList, IntegratedDeviceListBase<BtPairedDevice>>();
  expectAdapterLayout<AapIntegratedDeviceList, IntegratedDeviceListBase<AapDevice>>();
  expectAdapterLayout<CpIntegratedDeviceList, IntegratedDeviceListBase<cps_def::WCPAtom>>();
}

TEST(TheService, HasItsMembersInOrder) {
  using Impl = LmSIntegratedDeviceListImpl;

  expectAscending({offsetOf(&Impl::mutex), offsetOf(&Impl::initialized), offsetOf(&Impl::started),
                   offsetOf(&Impl::awaited), offsetOf(&Impl::btAdapter), offsetOf(&Impl::cpAdapter),
                   offsetOf(&Impl::aapAdapter), offsetOf(&Impl::mergedList), offsetOf(&Impl::suffixProvider)});
  EXPECT_EQ(slotCount<Impl>(), 2U);
}

TEST(TheService, HasAFacadeThatHoldsNothingElse) {
  EXPECT_EQ(slotCount<LmSIntegratedDeviceList>(), 2U);
  EXPECT_EQ(offsetOf(&LmSIntegratedDeviceList::mImpl), sizeof(void*));
  EXPECT_EQ(sizeof(LmSIntegratedDeviceList), 2 * sizeof(void*));
}

TEST(TheSuffixProvider, HasItsMembersInOrder) {
  expectAscending({offsetOf(&SuffixProvider::mStarted), offsetOf(&SuffixProvider::mSuffixTable),
                   offsetOf(&SuffixProvider::mSysData), offsetOf(&SuffixProvider::mFormat)});
  EXPECT_EQ(offsetOf(&SuffixProvider::mStarted), sizeof(void*));
  EXPECT_EQ(slotCount<SuffixProvider>(), 2U);
}

TEST(TheSavedFile, HasTheUnitsSize) {
  EXPECT_EQ(sizeof(SuffixRecord), 263U);
  EXPECT_EQ(sizeof(SysDataWrapper::image), 2630U);
  EXPECT_EQ(offsetOf(&SysDataWrapper::image), sizeof(void*));
  EXPECT_EQ(slotCount<SysDataWrapper>(), 2U);
}

TEST(TheSystemDataSingletons, HoldWhatTheyShould) {
  EXPECT_EQ(sizeof(SysDataFactory::slots), 204 * sizeof(void*));
  EXPECT_EQ(SysDataFactory::IDL_SUFFIX_SLOT, 202U);
  EXPECT_EQ(slotCount<SysDataFactory>(), 2U);
  EXPECT_TRUE((std::is_same_v<decltype(SysDataIDLSuffix::mutex), LmSync>));
  EXPECT_EQ(slotCount<SysDataIDLSuffix>(), 2U);
}

}  // namespace
