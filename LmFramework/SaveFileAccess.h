// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SAVEFILEACCESS_H
#define LMFRAMEWORK_SAVEFILEACCESS_H

#include "LmFramework/LmFrameworkExport.h"
#include "LmFramework/SaveFileAccessBase.h"

/// One save file, worked on as an image in memory: FOpen reads the file into the image, Flush replaces the file by it.
///
/// Whoever reads the file sees the old image or the new one, whole, after a power cut too: Flush writes
/// a temporary file in the same folder, syncs it, renames it over the file and syncs the folder.
/// Two processes may save; the last one to flush wins.
///
/// Made by SaveFileAccessFactory. Not for two threads at once. Each failure is one log line with the file and the
/// reason.
class LM_FRAMEWORK_API SaveFileAccess : public SaveFileAccessBase {
 public:
  /// Reads the file anew and stands at offset 0; an image that is still open is forgotten. A missing file is an empty
  /// one.
  /// @return false when there is a file that could not be opened or read, or is longer than 1 MiB. It is not open then,
  ///         and this object never writes again: what could not be read is not to be replaced by what was made without
  ///         it.
  bool FOpen() override = 0;

  /// Forgets the image; what was not flushed is not written.
  bool FClose() override = 0;

  /// Copies up to `size` bytes from the current offset to `buffer` and moves on; the rest of `buffer` keeps its
  /// contents.
  /// @return the number of bytes copied, 0 at the end; -1 when not open.
  virtual int Read(void* buffer, unsigned size) = 0;

  /// Puts `size` bytes into the image at the current offset, lengthening it as needed, and moves on.
  /// @return `size`, or -1 when not open or the image would pass 1 MiB; nothing is changed then.
  virtual int Write(const void* buffer, unsigned size) = 0;

  /// Moves to `offset` from the start (`origin` 0), from here (1) or from the end (2).
  /// @return false, and the offset stays, when that lies outside the image or `origin` is none of these.
  virtual bool Seek(long offset, int origin) = 0;

  /// Makes the image the file's contents, durably.
  /// @return false when it did not; the file is as it was, unless only the last sync of the folder failed.
  virtual bool Flush() = 0;
};

#endif
