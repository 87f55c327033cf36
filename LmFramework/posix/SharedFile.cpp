// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/SharedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "LmFramework/posix/ForkHandlers.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

// Where shm_open has its objects; the nameless file must be on the same file system to be given its name.
constexpr char FOLDER[] = "/dev/shm";
constexpr std::size_t FOLDER_SIZE = sizeof FOLDER - 1;
// Nothing for others: whoever may open a lock's file, even only for reading, can lock bytes of it and so hold it up.
constexpr mode_t MODE = 0660;
constexpr mode_t ALL_MODE_BITS = 07777;
// How often it may be made or removed by somebody else between two steps of open() before that is an error.
constexpr int MAX_ATTEMPTS = 100;

std::mutex gOpenFilesMutex;
SharedFile* gOpenFiles = nullptr;

int writeAll(int descriptor, std::uint32_t offset, const void* bytes, std::size_t size) {
  const char* from = static_cast<const char*>(bytes);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = retryInterrupted(
        [&] { return pwrite(descriptor, from + done, size - done, static_cast<off_t>(offset + done)); });
    if (count <= 0) {
      return count == 0 ? EIO : errno;
    }
    done += static_cast<std::size_t>(count);
  }
  return 0;
}

// Opening without O_CREAT comes first, because a kernel with fs.protected_regular set refuses O_CREAT on
// another user's object. Not blocking, in case somebody put a pipe there.
int openExisting(const char* path) { return shm_open(path + FOLDER_SIZE, O_RDWR | O_NONBLOCK, 0); }

// The mode comes by fchmod: the umask belongs to the process.
int finish(int descriptor, const SharedFile::Contents& contents) {
  if (fchmod(descriptor, MODE) != 0 || ftruncate(descriptor, static_cast<off_t>(contents.fileSize)) != 0) {
    return errno;
  }
  return writeAll(descriptor, 0, contents.bytes, contents.size);
}

int makeUnderItsName(const char* path, const SharedFile::Contents& contents, int& descriptor) {
  descriptor = shm_open(path + FOLDER_SIZE, O_RDWR | O_CREAT | O_EXCL, MODE);
  if (descriptor == -1) {
    return errno;
  }
  const int error = finish(descriptor, contents);
  if (error != 0) {
    shm_unlink(path + FOLDER_SIZE);  // whoever has opened it meanwhile finds it removed, and no file of ours
  }
  return error;
}

// EEXIST when somebody else was faster.
int make(const char* path, const SharedFile::Contents& contents, int& descriptor) {
  descriptor = ::open(FOLDER, O_TMPFILE | O_RDWR | O_CLOEXEC, MODE);
  if (descriptor == -1) {
    return makeUnderItsName(path, contents, descriptor);
  }
  const int error = finish(descriptor, contents);
  if (error != 0) {
    return error;
  }
  char nameless[32];
  std::snprintf(nameless, sizeof nameless, "/proc/self/fd/%d", descriptor);
  if (linkat(AT_FDCWD, nameless, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0) {
    return 0;
  }
  if (errno != ENOENT) {
    return errno;
  }
  ::close(descriptor);
  return makeUnderItsName(path, contents, descriptor);
}

int openOrMake(const char* path, const SharedFile::Contents& contents, int& descriptor) {
  for (int attempt = 0; attempt < MAX_ATTEMPTS; ++attempt) {
    descriptor = openExisting(path);
    if (descriptor != -1 || errno != ENOENT) {
      return descriptor == -1 ? errno : 0;
    }
    const int error = make(path, contents, descriptor);
    if (error == 0) {
      return 0;
    }
    if (descriptor != -1) {
      ::close(descriptor);
      descriptor = -1;
    }
    if (error != EEXIST) {
      return error;
    }
  }
  return EAGAIN;
}

// Whoever made it may have died before it had its mode, and nobody else could open it then. Without the right to change
// it, it is as usable as it was.
void restoreMode(int descriptor, const struct stat& status) {
  if (status.st_uid == geteuid() && (status.st_mode & ALL_MODE_BITS) != MODE) {
    static_cast<void>(fchmod(descriptor, MODE));
  }
}

// A process may have closed a standard stream, and would read or write the file where it means the stream.
int moveAboveStreams(int& descriptor) {
  if (descriptor > STDERR_FILENO) {
    return 0;
  }
  const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = above == -1 ? errno : 0;
  ::close(descriptor);
  descriptor = above;
  return error;
}

}  // namespace

SharedFile::SharedFile(const std::string& name) : mPath(std::string(FOLDER) + '/' + name) { installForkHandlers(); }

SharedFile::~SharedFile() { close(); }

int SharedFile::open(const Contents& contents) {
  if (isOpen()) {
    return 0;
  }
  if (mPath.size() == FOLDER_SIZE + 1 || mPath.rfind('/') != FOLDER_SIZE) {
    return EINVAL;
  }
  // Held while the descriptor exists but is not recorded: a child must not inherit one that it does not know of.
  std::lock_guard<std::mutex> guard(gOpenFilesMutex);
  int descriptor = -1;
  int error = openOrMake(mPath.c_str(), contents, descriptor);
  if (error == 0) {
    error = moveAboveStreams(descriptor);
  }
  if (error != 0) {
    return error;
  }
  struct stat status = {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(descriptor);
    return EINVAL;
  }
  restoreMode(descriptor, status);
  mDevice = status.st_dev;
  mInode = status.st_ino;
  record(descriptor);
  return 0;
}

void SharedFile::record(int descriptor) {
  mDescriptor = descriptor;
  mPrevious = nullptr;
  mNext = gOpenFiles;
  if (mNext != nullptr) {
    mNext->mPrevious = this;
  }
  gOpenFiles = this;
}

void SharedFile::close() {
  if (!isOpen()) {
    return;
  }
  std::lock_guard<std::mutex> guard(gOpenFilesMutex);
  (mPrevious != nullptr ? mPrevious->mNext : gOpenFiles) = mNext;
  if (mNext != nullptr) {
    mNext->mPrevious = mPrevious;
  }
  ::close(mDescriptor);
  mDescriptor = -1;
}

bool SharedFile::isCurrent() const {
  struct stat status = {};
  return isOpen() && fstat(mDescriptor, &status) == 0 && status.st_nlink != 0;
}

bool SharedFile::hasItsName() const {
  struct stat status = {};
  return isOpen() && lstat(mPath.c_str(), &status) == 0 && status.st_dev == mDevice && status.st_ino == mInode;
}

bool SharedFile::isEmpty() const {
  struct stat status = {};
  return isOpen() && fstat(mDescriptor, &status) == 0 && status.st_size == 0;
}

bool SharedFile::read(std::uint32_t offset, void* bytes, std::size_t size) const {
  char* to = static_cast<char*>(bytes);
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count =
        retryInterrupted([&] { return pread(mDescriptor, to + done, size - done, static_cast<off_t>(offset + done)); });
    if (count <= 0) {
      return false;
    }
    done += static_cast<std::size_t>(count);
  }
  return true;
}

int SharedFile::write(std::uint32_t offset, const void* bytes, std::size_t size) const {
  return writeAll(mDescriptor, offset, bytes, size);
}

int SharedFile::resize(std::uint32_t size) const {
  return retryInterrupted([&] { return ftruncate(mDescriptor, static_cast<off_t>(size)); }) == 0 ? 0 : errno;
}

void SharedFile::prepareFork() { gOpenFilesMutex.lock(); }

void SharedFile::parentAfterFork() { gOpenFilesMutex.unlock(); }

void SharedFile::childAfterFork() {
  while (gOpenFiles != nullptr) {
    SharedFile* file = gOpenFiles;
    gOpenFiles = file->mNext;
    ::close(file->mDescriptor);
    file->mDescriptor = -1;
  }
  gOpenFilesMutex.unlock();
}
