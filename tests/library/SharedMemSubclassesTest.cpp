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
#include "support/SegmentFormat.h"
#include "support/SegmentTest.h"

namespace {

/// The template that a segment class is made of.
template <class SegmentClass>
struct TemplateOf;
template <>
struct TemplateOf<FuncInfoSharedMem> {
  using Type = LmSharedMemory<idl::wire::FuncInfoStruct, 1>;
};
template <>
struct TemplateOf<BtPairedDeviceListSharedMem> {
  using Type = LmSharedMemory<idl::wire::BtPairedDeviceList, 1>;
};
template <>
struct TemplateOf<CarPlayInfoSharedMem> {
  using Type = LmSharedMemory<idl::wire::CarPlaySharedMemStruct, 1>;
};
template <>
struct TemplateOf<AapDeviceListSharedMem> {
  using Type = LmSharedMemory<idl::wire::AapDeviceList, 1>;
};

template <class SegmentClass>
class ASegmentClass : public SegmentTest {
 protected:
  static constexpr SegmentFormat FORMAT = formatOf<SegmentClass>();
  static_assert(!std::is_copy_constructible_v<SegmentClass> && !std::is_copy_assignable_v<SegmentClass>);
  static_assert(std::is_base_of_v<typename TemplateOf<SegmentClass>::Type, SegmentClass>);
  static_assert(std::has_virtual_destructor_v<SegmentClass>);

  /// Destroys one through a pointer to Base and looks at what is left.
  template <class Base>
  void expectDestroyedWholeThrough() {
    std::unique_ptr<Base> segment = std::make_unique<SegmentClass>();
    ASSERT_EQ(mappings(FORMAT.name), 1U);
    ASSERT_EQ(descriptors(FORMAT.name), 1U);

    segment.reset();

    EXPECT_EQ(mappings(FORMAT.name), 0U);
    EXPECT_EQ(descriptors(FORMAT.name), 0U);
    EXPECT_EQ(RawSegment(FORMAT.name).size(), FORMAT.size());
  }
};

using SegmentClasses =
    ::testing::Types<FuncInfoSharedMem, BtPairedDeviceListSharedMem, CarPlayInfoSharedMem, AapDeviceListSharedMem>;
struct SegmentNames {
  template <class SegmentClass>
  static std::string GetName(int /*position*/) {
    return formatOf<SegmentClass>().name + 1;
  }
};
TYPED_TEST_SUITE(ASegmentClass, SegmentClasses, SegmentNames);

TYPED_TEST(ASegmentClass, HasTheSizesOfItsFormat) {
  constexpr SegmentFormat expected = formatOf<TypeParam>();
  const TypeParam segment;

  EXPECT_EQ(std::size_t{TypeParam::DATA_SIZE}, expected.data);
  EXPECT_EQ(std::size_t{TypeParam::DATA_OFFSET}, expected.offset);
  EXPECT_EQ(std::size_t{TypeParam::SEGMENT_SIZE}, expected.size());
  RawSegment raw(expected.name);
  EXPECT_EQ(raw.size(), expected.size());
  EXPECT_EQ(raw.bytes(0, 4), RawSegment::littleEndian(expected.data, 4));
}

TYPED_TEST(ASegmentClass, ShowsItsPayloadBehindTheSizeWord) {
  constexpr SegmentFormat expected = formatOf<TypeParam>();
  const TypeParam segment;
  RawSegment raw(expected.name);
  raw.put8(expected.offset, 0xAB);
  raw.put8(expected.size() - 1, 0xCD);

  const auto* const payload = reinterpret_cast<const unsigned char*>(segment.data());

  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(payload[0], 0xAB);
  EXPECT_EQ(payload[expected.data - 1], 0xCD);
}

TYPED_TEST(ASegmentClass, AddsNothingToTheTemplateUnlessItIsASubject) {
  using Template = typename TemplateOf<TypeParam>::Type;

  EXPECT_EQ(sizeof(TypeParam) == sizeof(Template), !(std::is_base_of_v<LmSubject, TypeParam>));
}

TYPED_TEST(ASegmentClass, IsDestroyedWholeThroughTheTemplate) {
  this->template expectDestroyedWholeThrough<typename TemplateOf<TypeParam>::Type>();
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
