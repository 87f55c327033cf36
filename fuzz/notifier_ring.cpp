// SPDX-License-Identifier: Apache-2.0
// The notifier's ring, of any bytes and any length. The first byte says which checksums are put right before, so that
// what stands behind them is reached too.
#include <algorithm>

#include "LmFramework/posix/NotifierRing.h"
#include "fuzz/Fuzzing.h"

using namespace fuzzing;

namespace {

void putRight(std::string& bytes, std::size_t from, std::size_t to) {
  std::uint64_t sum = 0xCBF29CE484222325;
  for (std::size_t at = from; at < to; ++at) {
    sum = (sum ^ byteAt(bytes, at)) * 0x100000001B3;
  }
  bytes.replace(to, 8, RawSegment::littleEndian(sum, 8));
}

void requireMessage(const NotifierRing& ring, const NotifierRing::Position& wanted, const std::string& bytes) {
  NotifierRingSlot slot = {};
  NotifierRingSlot again = {};
  const bool isThere = ring.read(wanted, slot);
  require(ring.read(wanted, again) == isThere, "a second reading finds the same");
  if (isThere) {
    const std::size_t at = 64 + 96 * static_cast<std::size_t>(wanted.sequence % 256);
    require(bytes.compare(at, 96, reinterpret_cast<const char*>(&slot), 96) == 0, "a message is its slot's bytes");
    require(slot.generation == wanted.generation && slot.sequence == wanted.sequence, "it is the one asked for");
    require(slot.size <= 64, "it is no longer than its field");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Object object("/LmSharedMemNotifier", 64 + 256 * 96);
  static NotifierRing ring;
  const unsigned how = size != 0 ? data[0] : 0;
  std::string bytes = input(data + (size != 0), size - (size != 0));
  if ((how & 1) != 0 && bytes.size() >= 64) {
    bytes.replace(32, 8, RawSegment::littleEndian(~(numberAt(bytes, 24, 8) ^ numberAt(bytes, 16, 8)), 8));
    bytes.replace(40, 8, std::string(8, '\0'));
    std::string checked = bytes.substr(0, 24) + std::string(8, '\0');
    putRight(checked, 0, 24);
    bytes.replace(40, 8, checked, 24, 8);
  }
  for (std::size_t at = 64; (how & 2) != 0 && at + 96 <= bytes.size(); at += 96) {
    putRight(bytes, at, at + 88);
  }
  bytes = object.hold(bytes);
  require(ring.open() == 0, "the ring is opened");

  const NotifierRing::Head head = ring.head();
  const bool mayBeValid = bytes.compare(0, 4, "LmNR") == 0 && numberAt(bytes, 4, 4) == 1 &&
                          numberAt(bytes, 8, 4) == 256 && numberAt(bytes, 12, 4) == 96 && numberAt(bytes, 16, 8) != 0;
  require(!head.valid || mayBeValid, "a valid header has its fixed fields");
  require(!head.valid || head.position.sequence == numberAt(bytes, 24, 8), "its head is the header's");
  for (std::size_t at = 64; at + 96 <= bytes.size(); at += 96) {
    requireMessage(ring, {numberAt(bytes, at, 8), numberAt(bytes, at + 8, 8)}, bytes);
  }
  requireMessage(ring, {head.position.generation, head.position.sequence - 1}, bytes);

  NotifierRing::Repairs repairs;
  require(ring.publish(7, "after", 5, repairs) == 0, "it is published into");
  require(bytes.empty() || repairs.madeAnew == !head.valid, "a ring that is not intact is made anew, no other");
  NotifierRingSlot slot = {};
  const NotifierRing::Position next = ring.head().position;
  require(!head.valid || next.generation == head.position.generation, "an intact ring is not made anew");
  require(ring.read({next.generation, next.sequence - 1}, slot) && slot.id == 7 && slot.size == 5, "and read from");
  return 0;
}
