// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/LockView.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

#include "LmFramework/posix/LockFile.h"
#include "tools/inspect/Descriptor.h"

namespace idl::tools {

namespace {

// A process lives as long as somebody has the byte of its slot. Asking takes no lock.
bool isAlive(int descriptor, unsigned slot) {
  struct flock range = {};
  range.l_type = F_WRLCK;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(slot);
  range.l_len = 1;
  return fcntl(descriptor, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

void readPage(int descriptor, LockView& view) {
  alignas(LockFilePage) unsigned char bytes[sizeof(LockFilePage)] = {};
  const std::size_t size = readAt(descriptor, 0, bytes, sizeof bytes);
  const auto* page = new (bytes) LockFilePage;  // of atomics that are trivially made: the bytes stay
  const LockFile::Header header = LockFile::headerOf(*page);
  if (header == LockFile::Header::OTHER_VERSION) {
    view.state = LockView::State::OTHER_VERSION;
    return;
  }
  const std::uint32_t word = page->word.load(std::memory_order_relaxed);
  if (header != LockFile::Header::INTACT || size < sizeof bytes) {
    const bool isNew = header == LockFile::Header::NEW && word == LockWord::FREE;
    view.state = isNew ? LockView::State::NEW : LockView::State::GARBAGE;
    return;
  }
  if (word == LockWord::FREE) {
    view.state = LockView::State::FREE;
    return;
  }
  if (!LockWord::isHeld(word)) {
    view.state = LockView::State::GARBAGE;
    return;
  }
  const unsigned slot = LockWord::slotOf(word);
  view.holder = page->processes[slot].load(std::memory_order_relaxed);
  view.state = isAlive(descriptor, slot) ? LockView::State::HELD : LockView::State::HELD_BY_DEAD;
}

}  // namespace

std::string lockObjectOf(const std::string& name) { return "LmLock." + name; }

LockView viewLock(const std::string& name) {
  LockView view;
  const Descriptor file(shm_open(('/' + lockObjectOf(name)).c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW, 0));
  if (!file.isOpen()) {
    view.error = errno;
    view.state = view.error == ENOENT ? LockView::State::ABSENT : LockView::State::UNREADABLE;
    return view;
  }
  struct stat status = {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    view.state = LockView::State::NOT_A_LOCK;
    return view;
  }
  view.mode = status.st_mode & 07777;
  view.owner = status.st_uid;
  view.group = status.st_gid;
  readPage(file.get(), view);
  return view;
}

}  // namespace idl::tools
