// SPDX-License-Identifier: Apache-2.0
#include "tools/comply/Ear.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "tools/inspect/Descriptor.h"

namespace idl::tools::comply {

std::uint64_t Ear::listen() {
  const bool isFirst = !mHasListened;
  mHasListened = true;
  if (!open()) {
    return mCount;
  }
  const NotifierRing::Head head = mRing.head();
  if (!head.valid) {
    mIsSure = false;  // a publisher will make it anew, and its message may be the one that spoils it
    return mCount;
  }
  if (isFirst) {
    mNext = head.position;
    return mCount;
  }
  if (mNext.generation != head.position.generation) {
    mNext = {head.position.generation, 0};
  }
  if (head.position.sequence - mNext.sequence > NotifierRing::SLOT_COUNT) {
    mIsSure = false;
    mNext.sequence = head.position.sequence - NotifierRing::SLOT_COUNT;
  }
  for (; mNext.sequence != head.position.sequence; ++mNext.sequence) {
    NotifierRingSlot message = {};
    if (!mRing.read(mNext, message)) {
      mIsSure = false;
    } else if (message.id == mId) {
      ++mCount;
    }
  }
  return mCount;
}

// Opening would make one that is not there. What is removed and made again is opened again by the ring itself.
bool Ear::open() {
  const Descriptor file(shm_open((std::string("/") + NotifierRing::NAME).c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW, 0));
  struct stat status = {};
  if (!file.isOpen()) {
    mIsSure = mIsSure && errno == ENOENT;  // nobody has ever told of anything
    return false;
  }
  if (fstat(file.get(), &status) != 0 || status.st_size < static_cast<off_t>(NotifierRing::FILE_SIZE)) {
    return false;
  }
  const bool isOpen = mRing.open() == 0;
  mIsSure = mIsSure && isOpen;
  return isOpen;
}

}  // namespace idl::tools::comply
