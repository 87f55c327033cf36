// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "idlctl/FolderPicture.h"
#include "tools/comply/Ear.h"

namespace {

using idl::tools::comply::Ear;

constexpr unsigned ID = 6;

void publish(unsigned id, unsigned times = 1) {
  LmSharedMemNotifier notifier(false);
  for (unsigned k = 0; k < times; ++k) {
    ASSERT_TRUE(notifier.Publish(id, &id, sizeof(id)));
  }
}

TEST(AnEar, HearsWhatComesAfterItListenedFirst) {
  publish(ID);
  Ear ear(ID);
  EXPECT_EQ(ear.listen(), 0U);

  publish(ID, 2);
  publish(ID + 1);

  EXPECT_EQ(ear.listen(), 2U);
  EXPECT_TRUE(ear.isSure());
}

TEST(AnEar, HearsTheFirstMessageEver) {
  Ear ear(ID);
  EXPECT_EQ(ear.listen(), 0U);

  publish(ID);

  EXPECT_EQ(ear.listen(), 1U);
  EXPECT_TRUE(ear.isSure());
}

TEST(AnEar, MakesNothing) {
  const auto before = pictureOf("/dev/shm");
  Ear ear(ID);

  ear.listen();

  EXPECT_EQ(pictureOf("/dev/shm"), before);
}

TEST(AnEar, KnowsThatItMissedSome) {
  Ear ear(ID);
  publish(ID);
  ear.listen();

  publish(ID, 300);
  ear.listen();

  EXPECT_FALSE(ear.isSure());
}

}  // namespace
