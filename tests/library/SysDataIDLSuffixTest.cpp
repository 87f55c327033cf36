// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "SysDataIDLSuffix.h"
#include "SysDataWrapper.h"
#include "support/SaveFolder.h"

namespace {

static_assert(std::has_virtual_destructor_v<SysDataIDLSuffix>);
static_assert(std::is_base_of_v<LmSingleton<SysDataIDLSuffix>, SysDataIDLSuffix>);
static_assert(!std::is_copy_constructible_v<SysDataIDLSuffix> && !std::is_default_constructible_v<SysDataIDLSuffix>);

bool anotherThreadGets(LmSync& mutex, int timeoutMs) {
  return std::async(std::launch::async,
                    [&] {
                      const bool got = mutex.Lock(timeoutMs);
                      return got && mutex.Unlock();
                    })
      .get();
}

class TheSuffixFilesMutex : public testing::Test {
 protected:
  ~TheSuffixFilesMutex() override { SysDataIDLSuffix::destroy(); }

  LmSync& mutex = SysDataIDLSuffix::getInstance()->getMutex();
};

TEST_F(TheSuffixFilesMutex, IsOneInTheProcess) { EXPECT_EQ(&SysDataIDLSuffix::getInstance()->getMutex(), &mutex); }

TEST_F(TheSuffixFilesMutex, KeepsOtherThreadsOutWhileItIsHeld) {
  mutex.Lock();
  EXPECT_FALSE(anotherThreadGets(mutex, 0));

  mutex.Unlock();

  EXPECT_TRUE(anotherThreadGets(mutex, 60000));
}

TEST_F(TheSuffixFilesMutex, IsFreeAgainInASecondLife) {
  SysDataIDLSuffix::destroy();

  EXPECT_TRUE(anotherThreadGets(SysDataIDLSuffix::getInstance()->getMutex(), 60000));
}

TEST_F(TheSuffixFilesMutex, IsGivenBackAfterLoadingAndSaving) {
  const SaveFolder folder;
  SysDataWrapper wrapper;
  std::vector<LmSIntegratedDeviceListDef::DeviceInfo> table(1);
  table[0].btid = 3;

  wrapper.save(table);
  wrapper.load(table);

  EXPECT_TRUE(anotherThreadGets(mutex, 60000));
}

TEST_F(TheSuffixFilesMutex, KeepsTwoWritersFromMixingTheirImages) {
  const SaveFolder folder;
  const auto writer = [](std::uint8_t btid) {
    for (unsigned i = 0; i < 20; ++i) {
      SysDataWrapper wrapper;
      std::vector<LmSIntegratedDeviceListDef::DeviceInfo> table(10);
      for (auto& entry : table) {
        entry.btid = btid;
        entry.name = std::string(259, static_cast<char>('a' + btid));
      }
      wrapper.save(table);
    }
  };

  std::thread other(writer, std::uint8_t{1});
  writer(2);
  other.join();

  SysDataWrapper reader;
  std::vector<LmSIntegratedDeviceListDef::DeviceInfo> table;
  reader.load(table);
  ASSERT_EQ(table.size(), 10U);
  for (const auto& entry : table) {
    EXPECT_EQ(entry.btid, table[0].btid);
    EXPECT_EQ(entry.name, std::string(259, static_cast<char>('a' + table[0].btid)));
  }
}

}  // namespace
