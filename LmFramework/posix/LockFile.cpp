// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/LockFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "LmFramework/posix/Futex.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

// How often the file may be removed between being opened and being looked at before that counts as a failure.
constexpr int MAX_ATTEMPTS = 100;

constexpr bool wordsAreFarApart() {
  for (unsigned one = 0; one <= LockWord::SLOTS; ++one) {
    for (unsigned other = 0; other < one; ++other) {
      const std::uint32_t different = LockWord::heldBy(one) ^ LockWord::heldBy(other);
      for (unsigned shift = 0; shift < 32; shift += 8) {
        // W may be set in one and not in the other.
        if ((different >> shift & (shift == 24 ? 0x7FU : 0xFFU)) == 0) {
          return false;
        }
      }
    }
  }
  return true;
}
static_assert(wordsAreFarApart() && LockWord::heldBy(0) == LockWord::FREE);

}  // namespace

LockFile::LockFile(const std::string& name) : mFile(name) {}

LockFile::~LockFile() { close(); }

void LockFile::close() {
  mPage.unmap();
  mFile.close();
  mSlot = 0;
  mUsesLeft = 0;
}

// The seal comes last when the header is written, so it is read first: with it, the rest is there too.
LockFile::Header LockFile::headerOf(const LockFilePage& page) {
  constexpr std::uint32_t CHECKSUM = checksumOf(MAGIC, VERSION, FILE_SIZE);
  const std::uint32_t seal = page.seal.load(std::memory_order_acquire);
  const std::uint32_t magic = page.magic.load(std::memory_order_relaxed);
  const std::uint32_t version = page.version.load(std::memory_order_relaxed);
  const std::uint32_t fileSize = page.fileSize.load(std::memory_order_relaxed);
  const std::uint32_t checksum = page.checksum.load(std::memory_order_relaxed);
  if (isOfAnotherVersion(magic, version, fileSize, checksum)) {
    return Header::OTHER_VERSION;
  }
  if (seal == ~CHECKSUM && magic == MAGIC && version == VERSION && fileSize == FILE_SIZE && checksum == CHECKSUM) {
    return Header::INTACT;
  }
  const auto isNothingElseThan = [](std::uint32_t seen, std::uint32_t value) { return seen == 0 || seen == value; };
  const bool isNew = seal == 0 && isNothingElseThan(magic, MAGIC) && isNothingElseThan(version, VERSION) &&
                     isNothingElseThan(fileSize, FILE_SIZE) && isNothingElseThan(checksum, CHECKSUM);
  return isNew ? Header::NEW : Header::GARBAGE;
}

// All write the same, so several may do so at once. The word is not touched: it may be somebody's.
void LockFile::repairHeader(LockFilePage& page) {
  page.magic.store(MAGIC, std::memory_order_relaxed);
  page.version.store(VERSION, std::memory_order_relaxed);
  page.fileSize.store(FILE_SIZE, std::memory_order_relaxed);
  page.checksum.store(checksumOf(MAGIC, VERSION, FILE_SIZE), std::memory_order_relaxed);
  page.seal.store(~checksumOf(MAGIC, VERSION, FILE_SIZE), std::memory_order_release);
}

int LockFile::open(bool& repaired) {
  const int error = openIntact(repaired);
  return error != 0 || mSlot != 0 ? error : takeSlot();
}

int LockFile::openIntact(bool& repaired) {
  const bool wasLost = mPage.isLost();
  if (wasLost) {
    mPage.unmap();
  }
  // A forked child has neither file nor page, whatever its parent was about to do. Whoever damages the header may have
  // cut the file as well.
  const bool isOpen = mPage.get() != nullptr && mFile.isOpen();
  if (mUsesLeft == 0 || !isOpen || !hasIntactHeader(*mPage.get())) {
    const int error = openFile(wasLost, repaired);
    if (error != 0) {
      return error;
    }
  }
  LockFilePage& page = *mPage.get();
  const Header header = headerOf(page);
  if (header == Header::INTACT) {
    mIsJustOpened = false;
    return 0;
  }
  if (header == Header::OTHER_VERSION) {
    return EPROTONOSUPPORT;
  }
  repaired = repaired || !mIsJustOpened || header == Header::GARBAGE;
  repairHeader(page);
  mIsJustOpened = false;
  return 0;
}

int LockFile::openFile(bool wasLost, bool& repaired) {
  std::uint64_t size = 0;
  int error = openCurrent(size);
  if (error == 0 && (wasLost || size < FILE_SIZE)) {
    repaired = repaired || size != 0 || !mIsJustOpened;
    error = lengthen();
  }
  if (error == 0 && mPage.get() == nullptr) {
    error = mPage.map(mFile.descriptor());
  }
  if (error == 0 && mSlot != 0) {
    mUsesLeft = USES;
  }
  return error;
}

// Another version may be shorter, and is not ours to change.
int LockFile::lengthen() const {
  std::uint32_t header[4] = {};
  if (mFile.read(0, header, sizeof header) && isOfAnotherVersion(header[0], header[1], header[2], header[3])) {
    return EPROTONOSUPPORT;
  }
  // Not only the length: touching a page that is not there kills where there is no memory left for it.
  return retryInterrupted([this] { return fallocate(mFile.descriptor(), 0, 0, FILE_SIZE); }) == 0 ? 0 : errno;
}

int LockFile::openCurrent(std::uint64_t& size) {
  // The word is not among the contents: where the file has its name before them, somebody may hold the lock already.
  const std::uint32_t contents[] = {MAGIC, VERSION, FILE_SIZE, checksumOf(MAGIC, VERSION, FILE_SIZE)};
  for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
    struct stat status = {};
    if (mFile.isOpen() && fstat(mFile.descriptor(), &status) == 0 && status.st_nlink != 0) {
      size = static_cast<std::uint64_t>(status.st_size);
      return 0;
    }
    close();
    const int error = mFile.open({contents, sizeof contents, FILE_SIZE});
    if (error != 0) {
      return error;
    }
    mIsJustOpened = true;
  }
  return ESTALE;
}

// When the word names the slot that is got here, its former user died holding the lock. Nobody else can find that out
// any more: attempt() has to.
int LockFile::takeSlot() {
  int error = takeAnyByte();
  for (int look = 1; error == EUSERS && look < LOOKS_FOR_A_SLOT; ++look) {
    const timespec pause = {0, 1000000};
    nanosleep(&pause, nullptr);
    error = takeAnyByte();
  }
  if (error != 0) {
    return error;
  }
  mMine = LockWord::heldBy(mSlot);
  mProcess = static_cast<std::uint32_t>(getpid());
  mUsesLeft = USES;
  // At once: it may be a waiter's slot now, and named by an earlier user's id it would tell of somebody dead.
  std::atomic<std::uint32_t>& process = mPage.get()->processes[mSlot];
  mFormerProcess = process.exchange(mProcess, std::memory_order_relaxed);
  return 0;
}

int LockFile::takeAnyByte() {
  for (unsigned slot = 1; slot <= LockWord::SLOTS; ++slot) {
    const int error = lockByte(slot);
    if (error == 0) {
      mSlot = slot;
      return 0;
    }
    if (error != EAGAIN && error != EACCES) {
      return error;
    }
  }
  return EUSERS;
}

LockFile::Attempt LockFile::attempt(bool hasWaited, std::uint32_t& holder) {
  LockFilePage& page = *mPage.get();
  mSeen = page.word.load(std::memory_order_relaxed);
  if (mSeen == LockWord::FREE) {
    return replace(page, mSeen, hasWaited ? mMine | LockWord::WAITERS : mMine) ? Attempt::TAKEN : Attempt::CHANGED;
  }
  const std::uint32_t mineAndAwaited = mMine | LockWord::WAITERS;  // those that sleep cannot be told from here
  if (!LockWord::isHeld(mSeen)) {
    return replace(page, mSeen, mineAndAwaited) ? Attempt::TAKEN_FROM_GARBAGE : Attempt::CHANGED;
  }
  const unsigned slot = LockWord::slotOf(mSeen);
  holder = slot == mSlot ? mFormerProcess : page.processes[slot].load(std::memory_order_relaxed);
  if (slot == mSlot) {
    return replace(page, mSeen, mineAndAwaited) ? Attempt::TAKEN_FROM_THE_DEAD : Attempt::CHANGED;
  }
  if (lockByte(slot) != 0) {
    return Attempt::HELD;
  }
  const bool taken = replace(page, mSeen, mineAndAwaited);
  unlockByte(slot);
  return taken ? Attempt::TAKEN_FROM_THE_DEAD : Attempt::CHANGED;
}

void LockFile::wait(std::chrono::milliseconds timeout) {
  LockFilePage& page = *mPage.get();
  const std::uint32_t awaited = mSeen | LockWord::WAITERS;
  if (mSeen != awaited && !page.word.compare_exchange_strong(mSeen, awaited, std::memory_order_relaxed)) {
    return;
  }
  const int result = SharedFutex::wait(page.word, awaited, timeout);
  if (result != 0 && result != EAGAIN) {
    mUsesLeft = 0;  // the file may have been removed, or cut short
  }
}

bool LockFile::give() {
  for (;;) {
    LockFilePage* page = mPage.get();
    std::uint32_t seen = page->word.load(std::memory_order_relaxed);
    if ((seen & ~LockWord::WAITERS) == mMine && !mPage.isLost()) {
      if (page->word.compare_exchange_strong(seen, LockWord::FREE, std::memory_order_release,
                                             std::memory_order_relaxed)) {
        SharedFutex::wake(page->word, 1);
        return true;
      }
      continue;
    }
    // Not open(): a slot that the word names may only be taken by somebody who goes on to take the lock.
    bool repaired = false;
    mUsesLeft = 0;
    if (openIntact(repaired) != 0) {
      return false;  // the next to lock finds the same, and says so
    }
    page = mPage.get();
    seen = page->word.load(std::memory_order_relaxed);
    if (seen != LockWord::FREE && !LockWord::isHeld(seen) &&
        page->word.compare_exchange_strong(seen, LockWord::FREE, std::memory_order_release,
                                           std::memory_order_relaxed)) {
      SharedFutex::wakeAll(page->word);
    }
    return false;
  }
}

int LockFile::lockByte(unsigned slot) const {
  struct flock range = {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(slot);
  range.l_len = 1;
  return fcntl(mFile.descriptor(), F_OFD_SETLK, &range) == 0 ? 0 : errno;
}

void LockFile::unlockByte(unsigned slot) const {
  struct flock range = {};
  range.l_type = F_UNLCK;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(slot);
  range.l_len = 1;
  static_cast<void>(fcntl(mFile.descriptor(), F_OFD_SETLK, &range));  // there is no way for this to fail
}
