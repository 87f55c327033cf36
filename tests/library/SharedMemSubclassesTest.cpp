// SPDX-License-Identifier: Apache-2.0
// What the segment classes have in common: their layout, and that each of their bases destroys the whole object.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "AapDeviceListSharedMem.h"
#include "BtPairedDeviceListSharedMem.h"
#include "CarPlayInfoSharedMem.h"
#include "FuncInfoSharedMem.h"
#include "support/RawSegment.h"
#include "support/SegmentTest.h"

namespace {

template <class SegmentClass>
struct Expected;

template <>
struct Expected<FuncInfoSharedMem> {
  using Template = LmSharedMemory<idl::wire::FuncInfoStruct, 1>;
  static constexpr char NAME[] = "/FuncInfo";
  static constexpr std::size_t DATA = 2104;
  static constexpr std::size_t OFFSET = 4;
  static constexpr std::size_t SIZE = 2108;
};

template <>
struct Expected<BtPairedDeviceListSharedMem> {
  using Template = LmSharedMemory<idl::wire::BtPairedDeviceList, 1>;
  static constexpr char NAME[] = "/BtPairedDeviceList";
  static constexpr std::size_t DATA = 1120;
  static constexpr std::size_t OFFSET = 4;
  static constexpr std::size_t SIZE = 1124;
};

template <>
struct Expected<CarPlayInfoSharedMem> {
  using Template = LmSharedMemory<idl::wire::CarPlaySharedMemStruct, 1>;
  static constexpr char NAME[] = "/LmSCarplayResource";
  static constexpr std::size_t DATA = 13728;
  static constexpr std::size_t OFFSET = 8;
  static constexpr std::size_t SIZE = 13736;
};

template <>
struct Expected<AapDeviceListSharedMem> {
  using Template = LmSharedMemory<idl::wire::AapDeviceList, 1>;
  static constexpr char NAME[] = "/AapDeviceList";
  static constexpr std::size_t DATA = 6288;
  static constexpr std::size_t OFFSET = 4;
  static constexpr std::size_t SIZE = 6292;
};

template <class SegmentClass>
class ASegmentClass : public SegmentTest {
 protected:
  using Known = Expected<SegmentClass>;
  static_assert(!std::is_copy_constructible_v<SegmentClass> && !std::is_copy_assignable_v<SegmentClass>);
  static_assert(std::is_base_of_v<typename Known::Template, SegmentClass>);
  static_assert(std::has_virtual_destructor_v<SegmentClass>);

  /// Destroys one through a pointer to Base and looks at what is left.
  template <class Base>
  void expectDestroyedWholeThrough() {
    std::unique_ptr<Base> segment = std::make_unique<SegmentClass>();
    ASSERT_EQ(mappings(Known::NAME), 1U);
    ASSERT_EQ(descriptors(Known::NAME), 1U);

    segment.reset();

    EXPECT_EQ(mappings(Known::NAME), 0U);
    EXPECT_EQ(descriptors(Known::NAME), 0U);
    EXPECT_EQ(RawSegment(Known::NAME).size(), Known::SIZE);
  }
};

using SegmentClasses =
    ::testing::Types<FuncInfoSharedMem, BtPairedDeviceListSharedMem, CarPlayInfoSharedMem, AapDeviceListSharedMem>;
struct SegmentNames {
  template <class SegmentClass>
  static std::string GetName(int /*position*/) {
    return Expected<SegmentClass>::NAME + 1;
  }
};
TYPED_TEST_SUITE(ASegmentClass, SegmentClasses, SegmentNames);

TYPED_TEST(ASegmentClass, HasTheSizesOfItsFormat) {
  using Format = Expected<TypeParam>;
  const TypeParam segment;

  EXPECT_EQ(std::size_t{TypeParam::DATA_SIZE}, std::size_t{Format::DATA});
  EXPECT_EQ(std::size_t{TypeParam::DATA_OFFSET}, std::size_t{Format::OFFSET});
  EXPECT_EQ(std::size_t{TypeParam::SEGMENT_SIZE}, std::size_t{Format::SIZE});
  RawSegment raw(Format::NAME);
  EXPECT_EQ(raw.size(), Format::SIZE);
  EXPECT_EQ(raw.bytes(0, 4), RawSegment::littleEndian(Format::DATA, 4));
}

TYPED_TEST(ASegmentClass, ShowsItsPayloadBehindTheSizeWord) {
  using Format = Expected<TypeParam>;
  const TypeParam segment;
  RawSegment raw(Format::NAME);
  raw.put8(Format::OFFSET, 0xAB);
  raw.put8(Format::SIZE - 1, 0xCD);

  const auto* const payload = reinterpret_cast<const unsigned char*>(segment.data());

  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(payload[0], 0xAB);
  EXPECT_EQ(payload[Format::DATA - 1], 0xCD);
}

TYPED_TEST(ASegmentClass, AddsNothingToTheTemplateUnlessItIsASubject) {
  using Template = typename Expected<TypeParam>::Template;

  EXPECT_EQ(sizeof(TypeParam) == sizeof(Template), !(std::is_base_of_v<LmSubject, TypeParam>));
}

TYPED_TEST(ASegmentClass, IsDestroyedWholeThroughTheTemplate) {
  this->template expectDestroyedWholeThrough<typename Expected<TypeParam>::Template>();
}

TYPED_TEST(ASegmentClass, IsDestroyedWholeThroughTheNamedLock) {
  this->template expectDestroyedWholeThrough<LmSharedSyncObject>();
}

TYPED_TEST(ASegmentClass, IsDestroyedWholeThroughItsOwnType) {
  this->template expectDestroyedWholeThrough<TypeParam>();
}

class TheCarPlaySegment : public ASegmentClass<CarPlayInfoSharedMem> {};

TEST_F(TheCarPlaySegment, IsDestroyedWholeThroughTheSubject) { expectDestroyedWholeThrough<LmSubject>(); }

}  // namespace
