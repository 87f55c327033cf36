// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/NotifierRing.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

namespace {

constexpr std::uint32_t MAGIC = 0x524E6D4C;
constexpr std::uint32_t VERSION = 1;
constexpr std::size_t HEADER_CHECKED_SIZE = offsetof(NotifierRingHeader, head);
constexpr std::size_t SLOT_CHECKED_SIZE = offsetof(NotifierRingSlot, checksum);
// What the futex word needs to be mapped; the kernel rounds it up to a page.
constexpr std::size_t MAPPED_SIZE = sizeof(NotifierRingHeader);
// A header or slot read just while it is being written is read again so many times.
constexpr int MAX_READS = 4;
// Where writers lock a byte, by their generation; a header that is not intact counts as generation 0. Made generations
// are odd, so none has that byte.
constexpr off_t FIRST_LOCK_BYTE = 0x40000000;
constexpr std::uint64_t LOCK_BYTES = 0x100000;
// What those lock who pass by a writer that stands still.
constexpr off_t PASSING_LOCK_BYTE = FIRST_LOCK_BYTE + static_cast<off_t>(LOCK_BYTES);
// How long a writer may take, however slow the machine, before it counts as stopped.
constexpr std::chrono::nanoseconds STANDS_STILL_AFTER = std::chrono::seconds(1);
// All the waiting for one message: a writer that stands still is passed by within it.
constexpr std::chrono::nanoseconds MAX_WAIT = std::chrono::seconds(2);
constexpr std::chrono::nanoseconds LOCK_INTERVAL = std::chrono::microseconds(50);
// So much of one interval counts. Who was stopped himself while he waited has not seen the other stand still.
constexpr std::chrono::nanoseconds MAX_COUNTED_INTERVAL = std::chrono::milliseconds(10);
// How often others may make the ring anew or remove it while one message is published.
constexpr int MAX_ATTEMPTS = 20;

// FNV-1a: it has to tell torn and random bytes from whole ones, not to withstand anybody.
std::uint64_t checksum(const void* bytes, std::size_t size) {
  const std::string_view text(static_cast<const char*>(bytes), size);
  std::uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : text) {
    sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  }
  return sum;
}

// Time and process tell two generations apart; so do they for two rings made in different processes at once.
std::uint64_t newGeneration() {
  static std::atomic<std::uint32_t> made{0};
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  const std::uint64_t time =
      static_cast<std::uint64_t>(now.tv_sec) * 1000000000 + static_cast<std::uint64_t>(now.tv_nsec);
  const std::uint64_t process = static_cast<std::uint64_t>(getpid()) << 40;
  const std::uint64_t count = made.fetch_add(2, std::memory_order_relaxed);
  return ((time ^ process) + count * 0x9E3779B97F4A7C15) | 1;
}

std::uint64_t headCheckOf(const NotifierRingHeader& header) { return ~(header.head ^ header.generation); }

NotifierRingHeader newHeader() {
  NotifierRingHeader header = {};
  header.magic = MAGIC;
  header.version = VERSION;
  header.slotCount = NotifierRing::SLOT_COUNT;
  header.slotSize = sizeof(NotifierRingSlot);
  header.generation = newGeneration();
  header.headCheck = headCheckOf(header);
  header.checksum = checksum(&header, HEADER_CHECKED_SIZE);
  return header;
}

// Of everything but the head.
bool hasIntactGeneration(const NotifierRingHeader& header) {
  return header.magic == MAGIC && header.version == VERSION && header.slotCount == NotifierRing::SLOT_COUNT &&
         header.slotSize == sizeof(NotifierRingSlot) && header.generation != 0 &&
         header.checksum == checksum(&header, HEADER_CHECKED_SIZE);
}

bool isIntact(const NotifierRingHeader& header) {
  return hasIntactGeneration(header) && header.headCheck == headCheckOf(header);
}

// False when it is not intact; `header` then holds what could be read.
bool readHeader(const SharedFile& file, NotifierRingHeader& header) {
  for (int attempt = 0; attempt < MAX_READS; ++attempt) {
    header = {};
    if (file.read(0, &header, sizeof header) && isIntact(header)) {
      return true;
    }
  }
  return false;
}

// 0 when it is not intact.
std::uint64_t readGeneration(const SharedFile& file, NotifierRingHeader& header) {
  return readHeader(file, header) ? header.generation : 0;
}

std::uint32_t offsetOfSlot(std::uint64_t sequence) {
  return static_cast<std::uint32_t>(sizeof(NotifierRingHeader) +
                                    (sequence % NotifierRing::SLOT_COUNT) * sizeof(NotifierRingSlot));
}

off_t lockByteOf(std::uint64_t generation) { return FIRST_LOCK_BYTE + static_cast<off_t>(generation % LOCK_BYTES); }

// A lock on the open file, on one byte far behind its end. The kernel gives it up when its holder dies.
class WriteLock : private LmUncopyable {
 public:
  WriteLock(int descriptor, off_t byte) : mDescriptor(descriptor), mByte(byte) {}
  ~WriteLock() {
    if (mIsHeld) {
      static_cast<void>(change(F_UNLCK));
    }
  }

  // False when somebody else has it. Where the file cannot be locked at all the checksums have to do.
  bool tryLock() {
    mIsHeld = change(F_WRLCK);
    return mIsHeld || (errno != EAGAIN && errno != EACCES && errno != EINTR);
  }

 private:
  bool change(short type) const {
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = mByte;
    range.l_len = 1;
    return fcntl(mDescriptor, F_OFD_SETLK, &range) == 0;
  }

  const int mDescriptor;
  const off_t mByte;
  bool mIsHeld = false;
};

// Waits for the lock while `isWorthIt`, no longer than `limit`, and adds to `waited` what it has waited. False when it
// is not ours.
template <class Condition>
bool waitFor(WriteLock& lock, std::chrono::nanoseconds limit, std::chrono::nanoseconds& waited,
             const Condition& isWorthIt) {
  const auto end = waited + limit;
  auto last = std::chrono::steady_clock::now();
  while (!lock.tryLock()) {
    if (waited >= end || !isWorthIt()) {
      return false;
    }
    const timespec pause = {0, static_cast<long>(LOCK_INTERVAL.count())};
    nanosleep(&pause, nullptr);
    const auto now = std::chrono::steady_clock::now();
    waited += std::min<std::chrono::nanoseconds>(now - last, MAX_COUNTED_INTERVAL);
    last = now;
  }
  return true;
}

// The layout that SYS_futex takes, which on 32 bits is not that of a C library with 64-bit times.
struct FutexTime {
  long seconds;
  long nanoseconds;
};

long futex(std::uint32_t* word, int operation, std::uint32_t value, const FutexTime* timeout) {
  return syscall(SYS_futex, word, operation, value, timeout, nullptr, 0);
}

}  // namespace

NotifierRing::NotifierRing() : mFile(NAME) {}

NotifierRing::~NotifierRing() { close(); }

int NotifierRing::open() {
  if (mFile.hasItsName()) {
    return 0;
  }
  close();
  const NotifierRingHeader header = newHeader();
  const int error = mFile.open({&header, sizeof header, FILE_SIZE});
  if (error != 0) {
    return error;
  }
  mFoundEmpty = mFile.isEmpty();
  void* page = mmap(nullptr, MAPPED_SIZE, PROT_READ, MAP_SHARED, mFile.descriptor(), 0);
  if (page == MAP_FAILED) {
    const int reason = errno;
    mFile.close();
    return reason;
  }
  void* word = static_cast<char*>(page) + offsetof(NotifierRingHeader, head);
  mWord = static_cast<std::uint32_t*>(word);
  return 0;
}

void NotifierRing::close() {
  mFile.close();
  unmap();
}

void NotifierRing::unmap() {
  std::uint32_t* word = mWord.exchange(nullptr);
  if (word != nullptr) {
    munmap(reinterpret_cast<char*>(word) - offsetof(NotifierRingHeader, head), MAPPED_SIZE);
  }
}

NotifierRing::Head NotifierRing::head() const {
  NotifierRingHeader header = {};
  Head head;
  head.valid = readHeader(mFile, header);
  head.position = {header.generation, header.head};
  head.word = static_cast<std::uint32_t>(header.head);
  return head;
}

bool NotifierRing::read(const Position& position, NotifierRingSlot& slot) const {
  for (int attempt = 0; attempt < MAX_READS; ++attempt) {
    if (mFile.read(offsetOfSlot(position.sequence), &slot, sizeof slot) &&
        slot.checksum == checksum(&slot, SLOT_CHECKED_SIZE) && slot.generation == position.generation &&
        slot.sequence == position.sequence && slot.size <= NotifierRingSlot::DATA_SIZE) {
      return true;
    }
  }
  return false;
}

int NotifierRing::publish(std::uint32_t id, const void* data, std::uint32_t size, Repairs& repairs) {
  std::chrono::nanoseconds waited{0};
  for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
    int error = open();
    if (error != 0) {
      return error;
    }
    NotifierRingHeader header = {};
    const std::uint64_t generation = readGeneration(mFile, header);
    const auto isStillThere = [&] { return readGeneration(mFile, header) == generation && mFile.hasItsName(); };
    WriteLock lock(mFile.descriptor(), lockByteOf(generation));
    const auto limit = std::min(STANDS_STILL_AFTER, MAX_WAIT - waited);
    const bool isLocked = waitFor(lock, limit, waited, isStillThere);
    if (!isStillThere()) {
      continue;
    }
    if (isLocked && generation != 0) {
      error = append(header, id, data, size);
      if (error != EAGAIN) {
        wake();
        return error;
      }
    } else if (isLocked) {
      repairs.madeAnew = repairs.madeAnew || !(mFoundEmpty && mFile.isEmpty());
      error = makeAnew();
    } else {
      // Whoever goes on in there later finds another generation. One at a time: the next one would wipe out what is
      // already published in the new ring.
      WriteLock passing(mFile.descriptor(), PASSING_LOCK_BYTE);
      const bool mayPass = limit == STANDS_STILL_AFTER && waitFor(passing, MAX_WAIT - waited, waited, isStillThere);
      if (!isStillThere()) {
        continue;
      }
      if (!mayPass) {
        return ETIMEDOUT;  // somebody has locked everything; without a lock we would overwrite each other
      }
      repairs.passedBy = true;
      error = makeAnew();
    }
    if (error != 0 && error != EAGAIN) {
      return error;
    }
  }
  return EAGAIN;
}

int NotifierRing::makeAnew() {
  mFoundEmpty = false;
  const NotifierRingHeader header = newHeader();
  const int error = mFile.resize(FILE_SIZE);
  return error != 0 ? error : mFile.write(0, &header, sizeof header);
}

int NotifierRing::append(NotifierRingHeader header, std::uint32_t id, const void* data, std::uint32_t size) {
  mFoundEmpty = false;
  NotifierRingSlot slot = {};
  slot.generation = header.generation;
  slot.sequence = header.head;
  slot.id = id;
  slot.size = size;
  if (size != 0) {
    std::memcpy(slot.data, data, size);
  }
  slot.checksum = checksum(&slot, SLOT_CHECKED_SIZE);
  const int error = mFile.write(offsetOfSlot(slot.sequence), &slot, sizeof slot);
  if (error != 0) {
    return error;
  }
  NotifierRingHeader now = {};
  if (!readHeader(mFile, now) || now.generation != header.generation || now.head != header.head) {
    return EAGAIN;
  }

  ++header.head;
  header.headCheck = headCheckOf(header);
  static_assert(offsetof(NotifierRingHeader, headCheck) == offsetof(NotifierRingHeader, head) + sizeof header.head);
  const std::uint64_t headAndCheck[] = {header.head, header.headCheck};
  const int written = mFile.write(offsetof(NotifierRingHeader, head), headAndCheck, sizeof headAndCheck);
  // We may have stood still just before that, and have spoilt the ring that others have made meanwhile: nobody has
  // heard our message, and it goes into the next one. With other bytes there, it stood in the old ring in time to be
  // heard.
  const bool isSpoilt = written == 0 && mFile.read(0, &now, sizeof now) && hasIntactGeneration(now) &&
                        now.generation != header.generation && now.head == header.head &&
                        now.headCheck == header.headCheck;
  return isSpoilt ? EAGAIN : written;
}

bool NotifierRing::wait(std::uint32_t word, std::chrono::milliseconds timeout) const {
  std::uint32_t* address = mWord;
  if (address == nullptr) {
    return false;
  }
  const FutexTime time = {static_cast<long>(timeout.count() / 1000),
                          static_cast<long>(timeout.count() % 1000 * 1000000)};
  // Woken, over, changed and interrupted are all the same to the caller, who looks at the head again.
  return futex(address, FUTEX_WAIT, word, &time) == 0 || errno == EAGAIN || errno == ETIMEDOUT || errno == EINTR;
}

void NotifierRing::wake() const {
  std::uint32_t* word = mWord;
  if (word != nullptr) {
    // An error means that the ring was cut short or unmapped just now; who waits looks again within its timeout.
    static_cast<void>(futex(word, FUTEX_WAKE, INT_MAX, nullptr));
  }
}
