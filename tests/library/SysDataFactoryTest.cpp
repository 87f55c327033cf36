// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <type_traits>

#include "LmFramework/SaveFileAccess.h"
#include "SysDataFactory.h"
#include "support/SaveFolder.h"

namespace {

static_assert(SysDataFactory::SLOT_COUNT == 204 && SysDataFactory::IDL_SUFFIX_SLOT == 202);
static_assert(std::has_virtual_destructor_v<SysDataFactory>);
static_assert(std::is_base_of_v<LmSingleton<SysDataFactory>, SysDataFactory>);
static_assert(!std::is_copy_constructible_v<SysDataFactory> && !std::is_default_constructible_v<SysDataFactory>);

class AFactory : public testing::Test {
 protected:
  SaveFolder folder;
  SysDataFactory* factory = SysDataFactory::getInstance();
};

TEST_F(AFactory, HasNoAccessObjectAtFirst) {
  for (unsigned slot = 0; slot < 204; ++slot) {
    EXPECT_EQ(factory->getSlot(slot), nullptr) << slot;
  }
}

TEST_F(AFactory, KeepsTheSuffixFilesAccessObjectInItsSlotAndNoOther) {
  SaveFileAccess* const access = factory->getIDLSuffixAccess();

  ASSERT_NE(access, nullptr);
  for (unsigned slot = 0; slot < 204; ++slot) {
    EXPECT_EQ(factory->getSlot(slot), slot == 202 ? access : nullptr) << slot;
  }
}

TEST_F(AFactory, GivesTheSameAccessObjectAgain) {
  SaveFileAccess* const first = factory->getIDLSuffixAccess();

  EXPECT_EQ(factory->getIDLSuffixAccess(), first);
  EXPECT_EQ(SysDataFactory::getInstance(), factory);
}

TEST_F(AFactory, BeginsItsSecondLifeWithoutAccessObjects) {
  factory->getIDLSuffixAccess();

  SysDataFactory::destroy();

  EXPECT_EQ(SysDataFactory::getInstance()->getSlot(202), nullptr);
}

TEST_F(AFactory, GivesAccessToTheFileOfItsName) {
  folder.put("IDLSuffix.ini", "bytes");
  SaveFileAccess* const access = factory->getIDLSuffixAccess();
  char buffer[5] = {};

  EXPECT_TRUE(access->FOpen());
  EXPECT_EQ(access->Read(buffer, sizeof(buffer)), 5);
  EXPECT_TRUE(access->FClose());

  EXPECT_EQ(std::string(buffer, sizeof(buffer)), "bytes");
}

}  // namespace
