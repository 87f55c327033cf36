// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_LOCKFILE_H
#define LMFRAMEWORK_POSIX_LOCKFILE_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/LockPage.h"
#include "LmFramework/posix/LockWord.h"
#include "LmFramework/posix/SharedFile.h"

// The file "LmLock.NAME" is one page. Little-endian, the same for 32 and 64 bits.
//
//     offset  size
//          0     4  magic, the characters "LmLk"
//          4     4  version of this format, 1
//          8     4  size of the file, 4096
//         12     4  checksum of the bytes 0 to 11 (FNV-1a)
//         16     4  the word: who holds the lock (LockWord.h); the futex
//         20     4  seal: all bits of the checksum inverted. Behind the word, so that a file that is cut off before or
//                   in the word is not intact: lengthening it, which makes zeros of what is behind its end, has to
//                   come before taking it
//         24    40  zero
//         64   512  ids of the processes in the slots 0 to 127, for people only; slot 0 is nobody's
//        576  3520  zero
//
// An opening of the file has a slot for as long as it lasts: a write lock of the open file description on byte SLOT of
// the file. The kernel takes it away with the last descriptor, however the process ends; while it is there the process
// lives. A process that holds the lock is dead when somebody else gets the byte of its slot, and as long as somebody
// has that byte nobody can use the slot again, so whoever got it may take the lock over without a doubt about whom
// from.

struct LockFilePage {
  std::atomic<std::uint32_t> magic;
  std::atomic<std::uint32_t> version;
  std::atomic<std::uint32_t> fileSize;
  std::atomic<std::uint32_t> checksum;
  std::atomic<std::uint32_t> word;
  std::atomic<std::uint32_t> seal;
  std::uint32_t reserved[10];
  std::atomic<std::uint32_t> processes[LockWord::SLOTS + 1];
};
static_assert(sizeof(LockFilePage) == 576 && offsetof(LockFilePage, checksum) == 12 &&
              offsetof(LockFilePage, word) == 16 && offsetof(LockFilePage, processes) == 64);
static_assert(sizeof(std::atomic<std::uint32_t>) == 4 && std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the format is little-endian");

/// One opening of the file by which processes exclude each other. Used by one thread at a time; prints nothing.
///
/// Nothing that others write into the file is believed without its redundancy, and nothing that is not intact stays so:
/// a word that is neither free nor somebody's is taken, a header that is not right is written again.
///
/// If the process dies here, its slot goes with it, and the word still names it unless it had just been given back.
class LockFile : private LmUncopyable {
 public:
  static constexpr std::uint32_t FILE_SIZE = 4096;

  enum class Header {
    INTACT,
    NEW,  // as somebody leaves it who makes the file for others, or dies while he makes it, or is just writing the
          // header
    OTHER_VERSION,
    GARBAGE
  };

  /// Good also while others write the header: what they have not finished is NEW.
  static Header headerOf(const LockFilePage& page);

  enum class Attempt {
    TAKEN,
    TAKEN_FROM_THE_DEAD,  // what the lock guards may be half written
    TAKEN_FROM_GARBAGE,   // somebody may hold it whose word was overwritten
    HELD,                 // by another process, which lives
    CHANGED,              // something has changed meanwhile: open() and try again
  };

  /// `name` is the file's name without a folder.
  /// @throw std::bad_alloc
  explicit LockFile(const std::string& name);
  ~LockFile();

  /// The whole of locking while the file is open and intact, and the lock free. False, having changed nothing, when it
  /// takes more.
  bool tryTake() {
    LockFilePage* page = mPage.get();
    if (page == nullptr || mUsesLeft == 0 || !hasIntactHeader(*page)) {
      return false;
    }
    --mUsesLeft;
    return replace(*page, LockWord::FREE, mMine);
  }

  /// The whole of giving the lock back while nobody waits for it and the word is intact. False, having changed nothing,
  /// when it takes more.
  bool tryGive() {
    LockFilePage* page = mPage.get();
    std::uint32_t expected = mMine;
    return page != nullptr && page->word.load(std::memory_order_relaxed) == mMine &&
           page->word.compare_exchange_strong(expected, LockWord::FREE, std::memory_order_release,
                                              std::memory_order_relaxed);
  }

  /// Opens the file and gets a slot, unless that has been done; makes or replaces a file that was removed, and repairs
  /// what is not intact but for the word. An empty file that is found at opening is a new one, not a damaged one.
  /// @param repaired  set when something was repaired; else untouched
  /// @return 0, when attempt() has to be called, or an error number: EUSERS when all slots are taken, EPROTONOSUPPORT
  ///         when the file is of another version, whose contents are left alone
  int open(bool& repaired);

  /// Gives back the slot. Not while the lock is held.
  void close();

  /// Tries to take the lock, from the dead if need be. Does not wait.
  /// @param hasWaited  whether the caller has waited for it: then others may be waiting as well
  /// @param holder     the process that holds or held it, for people, when that is known; else untouched
  Attempt attempt(bool hasWaited, std::uint32_t& holder);

  /// After HELD: waits until the lock is given back, or for `timeout`; or less.
  void wait(std::chrono::milliseconds timeout);

  /// Gives back the lock, and wakes who waits for it. False when it had been lost: the word was overwritten, and
  /// somebody else may have held the lock too. The file is in order again then, as far as that can be done.
  bool give();

 private:
  static constexpr std::uint32_t MAGIC = 0x6B4C6D4C;
  static constexpr std::uint32_t VERSION = 1;
  static constexpr std::uint32_t checksumOf(std::uint32_t magic, std::uint32_t version, std::uint32_t fileSize) {
    std::uint32_t sum = 0x811C9DC5;
    for (const std::uint32_t field : {magic, version, fileSize}) {
      for (unsigned shift = 0; shift < 32; shift += 8) {
        sum = (sum ^ (field >> shift & 0xFF)) * 0x01000193;
      }
    }
    return sum;
  }
  // So often the lock is taken before it is asked for again whether its file was removed: a call costs ten times as
  // much as locking.
  static constexpr unsigned USES = 64;
  // So often all slots are found taken before they are: whoever asks whether a holder is dead has its slot for a
  // moment.
  static constexpr int LOOKS_FOR_A_SLOT = 5;

  static bool hasIntactHeader(const LockFilePage& page) {
    constexpr std::uint32_t CHECKSUM = checksumOf(MAGIC, VERSION, FILE_SIZE);
    return page.magic.load(std::memory_order_relaxed) == MAGIC &&
           page.version.load(std::memory_order_relaxed) == VERSION &&
           page.fileSize.load(std::memory_order_relaxed) == FILE_SIZE &&
           page.checksum.load(std::memory_order_relaxed) == CHECKSUM &&
           page.seal.load(std::memory_order_relaxed) == ~CHECKSUM;
  }
  static bool isOfAnotherVersion(std::uint32_t magic, std::uint32_t version, std::uint32_t fileSize,
                                 std::uint32_t checksum) {
    const bool isOurs = version == VERSION && fileSize == FILE_SIZE;
    return magic == MAGIC && checksum == checksumOf(magic, version, fileSize) && !isOurs;
  }
  static void repairHeader(LockFilePage& page);

  // The lock goes to this process if the word is still `expected`. Not so when the file was just cut off under it: then
  // that was memory of this process alone.
  bool replace(LockFilePage& page, std::uint32_t expected, std::uint32_t desired) {
    if (!page.word.compare_exchange_strong(expected, desired, std::memory_order_acquire, std::memory_order_relaxed) ||
        mPage.isLost()) {
      return false;
    }
    if (page.processes[mSlot].load(std::memory_order_relaxed) != mProcess) {
      page.processes[mSlot].store(mProcess, std::memory_order_relaxed);
    }
    return true;
  }

  int openIntact(bool& repaired);
  int openFile(bool wasLost, bool& repaired);
  int openCurrent(std::uint64_t& size);
  int lengthen() const;
  int takeSlot();
  int takeAnyByte();
  int lockByte(unsigned slot) const;
  void unlockByte(unsigned slot) const;

  SharedFile mFile;
  LockPage mPage;
  bool mIsJustOpened = false;  // and not looked at yet
  unsigned mUsesLeft = 0;      // 0 without a slot: mMine is nobody's then, or somebody else's
  unsigned mSlot = 0;          // 0: none
  std::uint32_t mMine = LockWord::FREE;
  std::uint32_t mProcess = 0;
  std::uint32_t mFormerProcess = 0;      // that had the slot before
  std::uint32_t mSeen = LockWord::FREE;  // the word that attempt() found held
};

#endif
