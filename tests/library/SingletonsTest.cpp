// SPDX-License-Identifier: Apache-2.0
// The singletons as a process has them that uses the shared libraries: one instance, whoever asks.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "LmFramework/LmSingletonFinalizer.h"
#include "LmFramework/SaveFileAccessFactory.h"
#include "support/ChildProcess.h"
#include "support/SegmentTest.h"

namespace {

using LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using testing::Each;

/// What eight threads get that ask at the same time.
template <class T>
std::vector<T*> askedAtOnce() {
  constexpr unsigned count = 8;
  std::atomic<unsigned> arrived{0};
  std::vector<T*> got(count);
  std::vector<std::thread> threads;
  threads.reserve(count);
  for (unsigned i = 0; i < count; ++i) {
    threads.emplace_back([&arrived, &got, i] {
      ++arrived;
      while (arrived < count) {
        std::this_thread::yield();
      }
      got[i] = T::getInstance();
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return got;
}

class Singletons : public SegmentTest {
 protected:
  ~Singletons() override {
    LmSIntegratedDeviceList::destroy();
    SaveFileAccessFactory::destroy();
  }
};

TEST_F(Singletons, AreTheSameForThreadsThatRaceToTheFirstCall) {
  for (unsigned round = 0; round < 50; ++round) {
    LmSIntegratedDeviceList::destroy();
    SaveFileAccessFactory::destroy();

    EXPECT_THAT(askedAtOnce<LmSIntegratedDeviceList>(), Each(LmSIntegratedDeviceList::getInstance()));
    EXPECT_THAT(askedAtOnce<SaveFileAccessFactory>(), Each(SaveFileAccessFactory::getInstance()));
  }
}

TEST_F(Singletons, StayUntilTheyAreDestroyed) {
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();

  EXPECT_EQ(LmSIntegratedDeviceList::getInstance(), list);
}

TEST_F(Singletons, MayBeDestroyedWithoutAnInstanceAndTwice) {
  LmSIntegratedDeviceList::destroy();
  LmSIntegratedDeviceList::getInstance();
  LmSIntegratedDeviceList::destroy();
  LmSIntegratedDeviceList::destroy();

  EXPECT_NE(LmSIntegratedDeviceList::getInstance(), nullptr);
}

TEST_F(Singletons, BeginASecondLifeAnew) {
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_AAP);
  std::vector<IntegratedDevice> phones;
  ASSERT_TRUE(list->getDeviceList(phones));

  LmSIntegratedDeviceList::destroy();
  list = LmSIntegratedDeviceList::getInstance();

  EXPECT_FALSE(list->getDeviceList(phones));
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_AAP);
  EXPECT_TRUE(list->getDeviceList(phones));
}

TEST_F(Singletons, EndWithTheProcessThatUsedThem) {
  ChildProcess user(
      [] {
        LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
        list->initialize();
        list->updateDeviceList(DEVICE_TYPE_AAP);
        return 7;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(user.wait(), 7);
}

TEST_F(Singletons, EndInTheirSecondLifeToo) {
  ChildProcess user(
      [] {
        LmSIntegratedDeviceList::getInstance();
        LmSIntegratedDeviceList::destroy();
        LmSIntegratedDeviceList::getInstance();
        return 7;
      },
      ChildProcess::End::EXIT);

  EXPECT_EQ(user.wait(), 7);
}

// --- Two libraries in one process -------------------------------------------------------------------------------

struct Loading {
  std::string name;
  int flags;
};

void PrintTo(const Loading& loading, std::ostream* stream) { *stream << loading.name; }

class SingletonsOfAProcessWithTwoLibraries : public Singletons, public testing::WithParamInterface<Loading> {
 protected:
  using Instance = void* (*)();
  using Destroy = void (*)();

  void SetUp() override {
    for (const char* path : {SINGLETON_USER_A, SINGLETON_USER_B}) {
      void* const library = dlopen(path, RTLD_NOW | GetParam().flags);
      ASSERT_NE(library, nullptr) << dlerror();
      libraries.push_back(library);
    }
  }

  ~SingletonsOfAProcessWithTwoLibraries() override {
    for (void* library : libraries) {
      dlclose(library);
    }
  }

  template <class Function>
  Function function(unsigned library, const char* name) const {
    void* const found = dlsym(libraries[library], name);
    EXPECT_NE(found, nullptr) << dlerror();
    return reinterpret_cast<Function>(found);
  }

  void* instance(unsigned library, const char* name) const { return function<Instance>(library, name)(); }

  std::vector<void*> libraries;
};

TEST_P(SingletonsOfAProcessWithTwoLibraries, AreTwoDifferentLibraries) {
  EXPECT_NE(function<Instance>(0, "deviceListOfThisLibrary"), function<Instance>(1, "deviceListOfThisLibrary"));
}

TEST_P(SingletonsOfAProcessWithTwoLibraries, AreThoseOfTheExecutable) {
  void* const list = instance(0, "deviceListOfThisLibrary");
  void* const factory = instance(0, "saveFileAccessFactoryOfThisLibrary");

  EXPECT_EQ(instance(1, "deviceListOfThisLibrary"), list);
  EXPECT_EQ(instance(1, "saveFileAccessFactoryOfThisLibrary"), factory);
  EXPECT_EQ(LmSIntegratedDeviceList::getInstance(), list);
  EXPECT_EQ(SaveFileAccessFactory::getInstance(), factory);
}

TEST_P(SingletonsOfAProcessWithTwoLibraries, AreDestroyedForAllByOne) {
  LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  list->updateDeviceList(DEVICE_TYPE_AAP);

  function<Destroy>(0, "destroyDeviceListOfThisLibrary")();

  std::vector<IntegratedDevice> phones;
  EXPECT_FALSE(LmSIntegratedDeviceList::getInstance()->getDeviceList(phones));
  EXPECT_EQ(instance(1, "deviceListOfThisLibrary"), LmSIntegratedDeviceList::getInstance());
}

TEST_P(SingletonsOfAProcessWithTwoLibraries, OutliveTheLibraryThatMadeThem) {
  void* const list = instance(0, "deviceListOfThisLibrary");
  dlclose(libraries[0]);
  libraries.erase(libraries.begin());

  LmSIntegratedDeviceList::getInstance()->initialize();

  EXPECT_EQ(LmSIntegratedDeviceList::getInstance(), list);
}

std::string loadingName(const testing::TestParamInfo<Loading>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Loaded, SingletonsOfAProcessWithTwoLibraries,
                         testing::Values(Loading{"Locally", RTLD_LOCAL}, Loading{"Globally", RTLD_GLOBAL}),
                         loadingName);

}  // namespace
