// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "LmFramework/LmObserver.h"

namespace {

static_assert(std::has_virtual_destructor_v<LmObserver_>);
static_assert(std::is_abstract_v<LmObserver_>);

struct Target {
  unsigned update(unsigned id, void* data, unsigned size) {
    lastId = id;
    lastData = data;
    lastSize = size;
    return 77;
  }

  unsigned lastId = 0;
  void* lastData = nullptr;
  unsigned lastSize = 0;
};

TEST(ABoundObserver, HandsEverythingToItsTargetAndBack) {
  Target target;
  int payload = 5;
  const std::unique_ptr<LmObserver_> observer = std::make_unique<LmObserver<Target>>(&target, &Target::update);

  const unsigned result = observer->Update(6, &payload, sizeof payload);

  EXPECT_EQ(result, 77U);
  EXPECT_EQ(target.lastId, 6U);
  EXPECT_EQ(target.lastData, &payload);
  EXPECT_EQ(target.lastSize, sizeof payload);
}

TEST(ABoundObserver, CallsAnOverriddenFunctionOfItsTarget) {
  struct Base {
    virtual ~Base() = default;
    virtual unsigned update(unsigned, void*, unsigned) { return 1; }
  };
  struct Derived : Base {
    unsigned update(unsigned, void*, unsigned) override { return 2; }
  } target;
  LmObserver<Base> observer(&target, &Base::update);

  EXPECT_EQ(observer.Update(0, nullptr, 0), 2U);
}

TEST(ABoundObserver, LeavesItsTargetAliveWhenItIsDestroyed) {
  Target target;
  std::make_unique<LmObserver<Target>>(&target, &Target::update)->Update(9, nullptr, 0);

  EXPECT_EQ(target.lastId, 9U);
}

}  // namespace
