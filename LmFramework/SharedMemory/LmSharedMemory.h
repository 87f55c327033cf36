// SPDX-License-Identifier: Apache-2.0
#ifndef LMFRAMEWORK_SHAREDMEMORY_LMSHAREDMEMORY_H
#define LMFRAMEWORK_SHAREDMEMORY_LMSHAREDMEMORY_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmString.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

/// A named shared-memory segment: a 32-bit size word, then N records T at their natural alignment. It is its own
/// named lock, under which whoever reads or writes records stands:
///
///     LmSharedMemory<Table, 1> segment("Table");
///     if (segment.data() != nullptr) {
///       LmSyncGuard guard(segment);
///       segment.data()->...
///     }
///
/// Constructing attaches the segment, or creates it, zeroed and with mode 0664; it never fails as a whole, data()
/// tells. An object stays as it began: there is no later try. Destroying detaches; the segment stays, it is never
/// unlinked.
///
/// A process that dies while it creates a segment leaves one that the next to attach makes whole: what is still
/// empty under the lock was never sized.
///
/// The calls are those with 64-bit offsets by name, so that a 32-bit program may be compiled without
/// _FILE_OFFSET_BITS and still share this code with the library.
///
/// The mapping is for whoever owns the table. It is as long as it should be even if the object is shorter, and touching
/// what is beyond the object's end kills the process; a reader of somebody else's table therefore copies with read().
template <class T, unsigned N>
class LmSharedMemory : public LmSharedSyncObject {
  static_assert(std::is_trivially_copyable_v<T>, "a record in shared memory has no life of its own");

  struct Segment {
    std::uint32_t dataSize;
    T payload[N];
  };

 public:
  static constexpr std::size_t DATA_SIZE = N * sizeof(T);  ///< what the size word says
  static constexpr std::size_t DATA_OFFSET = (sizeof(std::uint32_t) + alignof(T) - 1) / alignof(T) * alignof(T);
  static constexpr std::size_t SEGMENT_SIZE = sizeof(Segment);

  /// `name` is the bare name, without a slash; object and lock share it.
  /// @throw std::bad_alloc
  explicit LmSharedMemory(const char* name) : LmSharedSyncObject(name) {
    static_assert(offsetof(Segment, payload) == DATA_OFFSET);
    LmSyncGuard guard(*this);
    LmString objectName("/", LmString::EN_CP_UTF8);
    objectName += LmString(name, LmString::EN_CP_UTF8);
    if (!open(objectName.ToCHAR(LmString::EN_CP_UTF8))) {
      return;
    }
    address = ::mmap64(nullptr, SEGMENT_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
      LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, 151, "mmap error\n");
      return;
    }
    const std::uint32_t dataSize = DATA_SIZE;
    write(0, &dataSize, sizeof(dataSize));
    if (created) {
      LmSyncGuard zeroing(*this);
      const std::array<unsigned char, DATA_SIZE> zeros{};
      write(DATA_OFFSET, zeros.data(), zeros.size());
    }
  }

  /// Takes no lock: nobody may be using the object.
  ~LmSharedMemory() override {
    if (address != MAP_FAILED) {
      ::munmap(address, SEGMENT_SIZE);
      address = MAP_FAILED;
    }
    if (fd != -1) {
      ::close(fd);
      fd = -1;
    }
  }

  /// The payload; null when the segment is not mapped. Valid as long as this object.
  T* data() const {
    return address == MAP_FAILED ? nullptr : reinterpret_cast<T*>(static_cast<char*>(address) + DATA_OFFSET);
  }

  /// Copies `size` bytes at `offset` of the segment to `buffer`, as far as the object reaches; call with the lock held.
  /// The first copy that comes short is logged.
  /// @return the number of bytes copied; 0 when the segment is not mapped. The rest of `buffer` is untouched.
  std::size_t read(std::size_t offset, void* buffer, std::size_t size) const {
    if (address == MAP_FAILED) {
      return 0;
    }
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count =
          ::pread64(fd, static_cast<char*>(buffer) + done, size - done, static_cast<off64_t>(offset + done));
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count < 0) {
        if (isFirstShortfall()) {
          LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, __LINE__, "pread error\n");
        }
        break;
      }
      if (count == 0) {
        logTooSmall();
        break;
      }
      done += static_cast<std::size_t>(count);
    }
    return done;
  }

  /// Writes `size` bytes at `offset` of the segment if the object reaches that far, and nothing otherwise: the object
  /// is never lengthened. Call with the lock held. The first refusal is logged.
  /// @return whether all was written.
  bool write(std::size_t offset, const void* buffer, std::size_t size) const {
    struct stat64 status = {};
    if (address == MAP_FAILED) {
      return false;
    }
    if (::fstat64(fd, &status) != 0) {
      if (isFirstShortfall()) {
        LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, __LINE__, "fstat error\n");
      }
      return false;
    }
    if (status.st_size < static_cast<off64_t>(offset + size)) {
      logTooSmall();
      return false;
    }
    std::size_t done = 0;
    while (done < size) {
      const ssize_t count =
          ::pwrite64(fd, static_cast<const char*>(buffer) + done, size - done, static_cast<off64_t>(offset + done));
      if (count < 0 && errno == EINTR) {
        continue;
      }
      if (count <= 0) {
        if (isFirstShortfall()) {
          LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, __LINE__, "pwrite error\n");
        }
        return false;
      }
      done += static_cast<std::size_t>(count);
    }
    return true;
  }

 private:
  static constexpr mode_t MODE = 0664;

  // Of every log line, wherever this header lies.
  static constexpr char FILE_TEXT[] = "LmFramework/SharedMemory/LmSharedMemory";
  static constexpr char FUNCTION[] = "LmSharedMemory";

  // One line for each object: a table that stays short is read at every refresh.
  bool isFirstShortfall() const {
    const bool isFirst = !shortfallLogged;
    shortfallLogged = true;
    return isFirst;
  }

  void logTooSmall() const {
    if (isFirstShortfall()) {
      LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, __LINE__, "segment too small\n");
    }
  }

  // Opens or creates the object, and sizes it if that is ours to do. False: there is nothing to map.
  bool open(const char* objectName) {
    fd = ::shm_open(objectName, O_RDWR | O_CREAT | O_EXCL, MODE);
    if (fd != -1) {
      created = true;
    } else if (errno == EEXIST) {
      attach(objectName);
    } else {
      LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, 122, "shm_open error\n");
      return false;
    }
    if (created) {
      ::fchmod(fd, MODE);  // whatever the umask took; fails only where another user died creating it
      if (::ftruncate64(fd, static_cast<off64_t>(SEGMENT_SIZE)) == -1) {
        shortfallLogged = true;  // this line says it
        LmDbgOutput::DbgPrintStdErr(FILE_TEXT, FUNCTION, 135, "ftruncate error\n");
      }
    }
    return true;
  }

  void attach(const char* objectName) {
    fd = ::shm_open(objectName, O_RDWR | O_CREAT, MODE);
    if (fd == -1 && errno == EACCES) {
      fd = ::shm_open(objectName, O_RDWR, MODE);  // fs.protected_regular forbids O_CREAT on another user's object
    }
    struct stat64 status = {};
    if (fd == -1 || ::fstat64(fd, &status) != 0) {
      return;
    }
    if (!S_ISREG(status.st_mode)) {  // a pipe or a device, of which some can be mapped: nobody's table
      ::close(fd);
      fd = -1;
      return;
    }
    // Sizing is done under the lock that we hold: an object without any length has lost its creator before that. Where
    // the lock excludes no other process, which it has logged, this may be a creator at work: both then zero a new
    // table.
    created = status.st_size == 0;
  }

  int fd = -1;
  void* address = MAP_FAILED;
  bool created = false;
  mutable bool shortfallLogged = false;
};

#endif
