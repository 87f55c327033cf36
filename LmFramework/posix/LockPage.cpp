// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/LockPage.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <mutex>

#include "LmFramework/posix/LockFile.h"

namespace {

// The call itself: what wraps it, such as a sanitizer's bookkeeping, may be what the signal has just interrupted.
#ifdef SYS_mmap2
constexpr long MMAP = SYS_mmap2;
#else
constexpr long MMAP = SYS_mmap;
#endif

std::mutex gMutex;
bool gHandlesBusErrors = false;
struct sigaction gFormer;
std::size_t gPageSize = 0;

}  // namespace

std::atomic<LockPage::Entry*> LockPage::sEntries{nullptr};

/// What runs when the signal comes: calls that a handler may make, and loads and stores of atomics.
struct LockPageSignals {
  static void handle(int signal, siginfo_t* info, void* context) {
    const int error = errno;
    if (info->si_code <= 0 || !replaceLost(reinterpret_cast<std::uintptr_t>(info->si_addr))) {
      passOn(signal, info, context);
    }
    errno = error;
  }

 private:
  // The access is made again when the handler returns.
  static bool replaceLost(std::uintptr_t address) {
    for (LockPage::Entry* entry = LockPage::sEntries.load(std::memory_order_acquire); entry != nullptr;
         entry = entry->next) {
      LockFilePage* page = entry->page.load(std::memory_order_relaxed);
      const auto start = reinterpret_cast<std::uintptr_t>(page);
      if (page != nullptr && address >= start && address - start < gPageSize) {
        entry->isLost.store(true, std::memory_order_relaxed);
        return syscall(MMAP, page, gPageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
                       0L) != -1;
      }
    }
    return false;
  }

  // Whether the former handler has passed it on to this one, and so on: each time deeper in the stack. One that jumps
  // out of its handler instead comes from above again, sooner or later.
  static bool goesRound() {
    const auto thread = static_cast<long>(syscall(SYS_gettid));
    const auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    const bool isDeeper = sLastThread.exchange(thread, std::memory_order_relaxed) == thread &&
                          frame < sLastFrame.load(std::memory_order_relaxed);
    sLastFrame.store(frame, std::memory_order_relaxed);
    sRounds.store(isDeeper ? sRounds.load(std::memory_order_relaxed) + 1 : 0, std::memory_order_relaxed);
    return sRounds.load(std::memory_order_relaxed) >= MAX_ROUNDS;
  }

  static void passOn(int signal, siginfo_t* info, void* context) {
    const bool isHandled =
        (gFormer.sa_flags & SA_SIGINFO) != 0 || (gFormer.sa_handler != SIG_DFL && gFormer.sa_handler != SIG_IGN);
    if (!isHandled) {
      if (info->si_code > 0 || gFormer.sa_handler == SIG_DFL) {
        dieOf(signal, info);
      }
    } else if (goesRound()) {
      dieOf(signal, info);
    } else if ((gFormer.sa_flags & SA_SIGINFO) != 0) {
      gFormer.sa_sigaction(signal, info, context);
    } else {
      gFormer.sa_handler(signal);
    }
  }

  // As it would have without us: of the access, which is made again, or of the signal sent again.
  static void dieOf(int signal, const siginfo_t* info) {
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    if (info->si_code <= 0) {
      raise(signal);
    }
  }

  static constexpr unsigned MAX_ROUNDS = 16;

  // Of whatever thread passed on last: where several do at once, they only take longer to find out.
  static std::atomic<long> sLastThread;
  static std::atomic<std::uintptr_t> sLastFrame;
  static std::atomic<unsigned> sRounds;
};

std::atomic<long> LockPageSignals::sLastThread{0};
std::atomic<std::uintptr_t> LockPageSignals::sLastFrame{0};
std::atomic<unsigned> LockPageSignals::sRounds{0};

LockPage::LockPage() : mEntry(newEntry()) {}

LockPage::~LockPage() {
  unmap();
  const std::lock_guard<std::mutex> guard(gMutex);
  mEntry->isUsed = false;
}

LockPage::Entry* LockPage::newEntry() {
  const std::lock_guard<std::mutex> guard(gMutex);
  Entry* const first = sEntries.load(std::memory_order_relaxed);
  for (Entry* entry = first; entry != nullptr; entry = entry->next) {
    if (!entry->isUsed) {
      entry->isUsed = true;
      return entry;
    }
  }
  auto* entry = new Entry;
  entry->next = first;
  sEntries.store(entry, std::memory_order_release);
  return entry;
}

// If it fails, a file that is cut short kills the process as it would without a handler.
void LockPage::handleBusErrors() {
  if (gHandlesBusErrors) {
    return;
  }
  gHandlesBusErrors = true;
  gPageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  struct sigaction action = {};
  sigaction(SIGBUS, nullptr, &gFormer);  // it has to be known before ours can run
  action.sa_sigaction = &LockPageSignals::handle;
  action.sa_mask = gFormer.sa_mask;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART | (gFormer.sa_flags & SA_NODEFER);
  static_cast<void>(sigaction(SIGBUS, &action, &gFormer));
}

int LockPage::map(int descriptor) {
  const std::lock_guard<std::mutex> guard(gMutex);
  handleBusErrors();
  void* page = mmap(nullptr, LockFile::FILE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (page == MAP_FAILED) {
    return errno;
  }
  mEntry->isLost.store(false, std::memory_order_relaxed);
  mEntry->page.store(static_cast<LockFilePage*>(page), std::memory_order_relaxed);
  return 0;
}

void LockPage::unmap() {
  const std::lock_guard<std::mutex> guard(gMutex);
  LockFilePage* page = mEntry->page.load(std::memory_order_relaxed);
  if (page != nullptr) {
    mEntry->page.store(nullptr, std::memory_order_relaxed);
    munmap(page, LockFile::FILE_SIZE);
  }
  mEntry->isLost.store(false, std::memory_order_relaxed);
}

void LockPage::prepareFork() { gMutex.lock(); }

void LockPage::parentAfterFork() { gMutex.unlock(); }

void LockPage::childAfterFork() {
  for (Entry* entry = sEntries.load(std::memory_order_relaxed); entry != nullptr; entry = entry->next) {
    LockFilePage* page = entry->page.load(std::memory_order_relaxed);
    if (page != nullptr) {
      entry->page.store(nullptr, std::memory_order_relaxed);
      munmap(page, LockFile::FILE_SIZE);
    }
    entry->isLost.store(false, std::memory_order_relaxed);
  }
  gMutex.unlock();
}
