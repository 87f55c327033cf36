// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_POSIX_POSIXSAVEFILE_H
#define LMFRAMEWORK_POSIX_POSIXSAVEFILE_H

#include <cstddef>
#include <string>
#include <vector>

#include "LmFramework/SaveFileAccess.h"

/// A save file as a plain file in a folder.
///
/// Its temporary files are called ".NAME." with six letters or digits behind. A writer holds an flock on its own for as
/// long as it lives: one that can be locked was left over by a process that died, and the next Flush of the same file
/// removes it. Whoever dies in the middle of a Flush leaves such a file at most, or an empty folder of such a name
/// beside the folder that it was about to make.
class PosixSaveFile : public SaveFileAccess {
 public:
  static constexpr std::size_t MAX_SIZE = std::size_t{1024} * 1024;
  static constexpr std::size_t MAX_NAME = 240;  // the temporary's name must fit into the 255 bytes of a file system

  /// An empty `folder` is one that could not be found out; every FOpen fails then, as with an unusable name.
  PosixSaveFile(std::string folder, std::string name, bool writable);

  bool FOpen() override;
  bool FClose() override;
  int Read(void* buffer, unsigned size) override;
  int Write(const void* buffer, unsigned size) override;
  bool Seek(long offset, int origin) override;
  bool Flush() override;

 private:
  const std::string mFolder;
  const std::string mName;
  const bool mWritable;

  bool mOpen = false;
  bool mSpoilt = false;  // the file could not be read once: it must not be replaced by what was made without it
  std::vector<unsigned char> mImage;
  std::size_t mOffset = 0;  // never past the image's end
};

#endif
