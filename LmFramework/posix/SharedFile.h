// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_SHAREDFILE_H
#define LMFRAMEWORK_POSIX_SHAREDFILE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "LmFramework/LmUncopyable.h"

/// A file of the port's own in the shared-memory folder, which all processes of the unit share.
///
/// It has mode 0660 whatever the umask, and has its first contents before it has its name; only where the
/// kernel cannot make a file without a name, or /proc is missing, others may see it empty for a moment, and whoever
/// dies in that moment leaves it so. Its owner sets the mode right whenever it opens it. Once made it is never
/// removed here. Reading and writing is by calls: a load from a mapping kills the process when somebody cuts the file
/// short (LockPage has a way out of that). No descriptor is one of a standard stream.
///
/// Used by one thread at a time. fork() closes the descriptor in the child, so that a lock on the open file
/// remains the parent's alone and ends with it.
class SharedFile : private LmUncopyable {
 public:
  /// `name` is the file's name without a folder.
  /// @throw std::bad_alloc
  explicit SharedFile(const std::string& name);
  ~SharedFile();

  /// What a new file is made of: `size` bytes at `bytes`, and zeros up to `fileSize`.
  struct Contents {
    const void* bytes;
    std::size_t size;
    std::uint32_t fileSize;
  };

  /// Opens the file, and makes it with `contents` when there is none. Does nothing when it is open. Allocates nothing.
  /// @return 0 or an error number: EINVAL for a bad name or for what is no regular file.
  int open(const Contents& contents);

  void close();

  bool isOpen() const { return mDescriptor != -1; }

  /// False when it is not open, or was removed or replaced meanwhile: whoever opens it now gets another file. One that
  /// was given another name counts as current.
  bool isCurrent() const;

  /// As isCurrent(), and false also when it was given another name.
  bool hasItsName() const;

  /// True when it has no length: made by somebody who gives it its owner only, or cut.
  bool isEmpty() const;

  /// Reads all of `size` bytes. False when the file is shorter or cannot be read; `bytes` may then be written in part.
  bool read(std::uint32_t offset, void* bytes, std::size_t size) const;

  /// Writes all of `size` bytes; lengthens the file if need be.
  /// @return 0 or an error number
  int write(std::uint32_t offset, const void* bytes, std::size_t size) const;

  /// Makes the file exactly that long.
  /// @return 0 or an error number
  int resize(std::uint32_t size) const;

  /// -1 while it is not open.
  int descriptor() const { return mDescriptor; }

  // For the fork handlers: no file is opened or closed between the first call and one of the others.
  static void prepareFork();
  static void parentAfterFork();
  static void childAfterFork();

 private:
  void record(int descriptor);

  const std::string mPath;
  int mDescriptor = -1;
  // Of the open file, which keeps its inode's number from being given to another.
  dev_t mDevice = 0;
  ino_t mInode = 0;
  // The list of open files, by which a forked child finds what it has to close.
  SharedFile* mNext = nullptr;
  SharedFile* mPrevious = nullptr;
};

#endif
