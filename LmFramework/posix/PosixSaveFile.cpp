// SPDX-License-Identifier: Apache-2.0
#include "LmFramework/posix/PosixSaveFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmUncopyable.h"
#include "LmFramework/posix/SystemCall.h"

namespace {

constexpr char LOG_FILE[] = "LmFramework/posix/SaveFileAccess";
constexpr int LOG_TAG = 1;

constexpr mode_t FILE_MODE = 0660;
constexpr mode_t FOLDER_MODE = 0770;
constexpr mode_t PARENT_MODE = 0755;
constexpr mode_t ALL_MODE_BITS = 07777;

/// The folder of the save files, or one that is only on the way to it.
enum class FolderKind { OWN, PARENT };

constexpr std::size_t SUFFIX_LENGTH = 6;
constexpr char SUFFIX_LETTERS[] = "0123456789abcdefghijklmnopqrstuvwxyz";
constexpr int MAX_CREATE_TRIES = 100;

/// Why a step of ours failed: a reason in words, or the system's error number. Without a step nothing failed.
struct Failure {
  const char* step = nullptr;
  int error = 0;
  const char* reason = nullptr;

  explicit operator bool() const { return step != nullptr; }
};

constexpr Failure NONE = {};

Failure failed(const char* step) { return {step, errno, nullptr}; }

void logFailure(const char* function, int line, const std::string& folder, const std::string& name, const char* what,
                const Failure& failure) {
  const ErrorText error(failure.error);
  const char* reason = failure.reason != nullptr ? failure.reason : error.get();
  LmDbgOutput::DbgPrint(LOG_FILE, function, line, LOG_TAG, "%s/%s %s: %s: %s\n", folder.c_str(), name.c_str(), what,
                        failure.step, reason);
}

class Descriptor : private LmUncopyable {
 public:
  Descriptor() = default;
  ~Descriptor() { reset(-1); }

  /// Errors of close() are ignored: what matters has been synced by then, and nothing is to be done about the rest.
  void reset(int descriptor) {
    if (mDescriptor != -1) {
      close(mDescriptor);
    }
    mDescriptor = descriptor;
  }

  bool openAt(int folder, const char* name, int flags, mode_t mode = 0) {
    reset(retryInterrupted([&] { return openat(folder, name, flags | O_CLOEXEC, mode); }));
    return mDescriptor != -1;
  }

  int get() const { return mDescriptor; }

  /// Somebody else closes it from now on.
  void release() { mDescriptor = -1; }

 private:
  int mDescriptor = -1;
};

bool isUsableName(const std::string& name) {
  // Names with a dot in front are those of the temporary files (and of the folder itself).
  return !name.empty() && name.size() <= PosixSaveFile::MAX_NAME && name[0] != '.' &&
         name.find('/') == std::string::npos;
}

Failure readAll(int file, std::vector<unsigned char>& image) {
  unsigned char part[16 * 1024];
  for (;;) {
    const ssize_t got = retryInterrupted([&] { return read(file, part, sizeof part); });
    if (got < 0) {
      return failed("read");
    }
    if (got == 0) {
      return NONE;
    }
    if (static_cast<std::size_t>(got) > PosixSaveFile::MAX_SIZE - image.size()) {
      return {"read", EFBIG, nullptr};
    }
    image.insert(image.end(), part, part + got);
  }
}

/// Reads the file into the empty `image`. A missing file, or folder, is an empty file.
Failure load(const std::string& folderPath, const std::string& name, std::vector<unsigned char>& image) {
  if (folderPath.empty()) {
    return {"folder", 0, "not known"};
  }
  if (!isUsableName(name)) {
    return {"name", 0, "not usable"};
  }
  Descriptor folder;
  if (!folder.openAt(AT_FDCWD, folderPath.c_str(), O_RDONLY | O_DIRECTORY)) {
    return errno == ENOENT ? NONE : failed("open folder");
  }
  // Not waiting for anybody to write, should the file be a pipe.
  Descriptor file;
  if (!file.openAt(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY)) {
    return errno == ENOENT ? NONE : failed("open");
  }
  struct stat status = {};
  if (fstat(file.get(), &status) != 0) {
    return failed("fstat");
  }
  if (!S_ISREG(status.st_mode)) {
    return {"open", 0, "not a regular file"};
  }
  return readAll(file.get(), image);
}

Failure syncFolder(const std::string& path) {
  Descriptor folder;
  if (!folder.openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY)) {
    return failed("open parent folder");
  }
  return retryInterrupted([&] { return fsync(folder.get()); }) == 0 ? NONE : failed("fsync parent folder");
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string temporaryPrefix(const std::string& name) { return "." + name + "."; }

/// Six letters that this process has not used before, and hardly any other: exclusive creation makes them unique.
std::string makeSuffix() {
  static std::atomic<std::uint32_t> counter{0};
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  std::uint64_t value = static_cast<std::uint64_t>(now.tv_nsec) * 2654435761U;
  value += static_cast<std::uint64_t>(getpid()) * 40503U + std::uint64_t{counter.fetch_add(1)} * 131U;
  std::string suffix;
  for (std::size_t i = 0; i < SUFFIX_LENGTH; ++i) {
    constexpr std::size_t LETTER_COUNT = sizeof SUFFIX_LETTERS - 1;
    suffix += SUFFIX_LETTERS[value % LETTER_COUNT];
    value /= LETTER_COUNT;
  }
  return suffix;
}

/// What a folder made under `status`'s mode is to have instead: the group's inheritance stays as the parent gave it.
/// The process's umask does not count for the save files' own folder, and leaves the others usable for their owner.
mode_t folderMode(const struct stat& status, FolderKind kind) {
  return kind == FolderKind::OWN ? FOLDER_MODE | (status.st_mode & S_ISGID)
                                 : (status.st_mode & ALL_MODE_BITS) | S_IRWXU;
}

/// Gives a folder its name unless that is taken; EEXIST then. File systems without that call give the name plainly,
/// which replaces an empty folder at worst.
int nameFolder(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  const bool isUnknown = errno == EINVAL || errno == ENOSYS;
  return isUnknown && rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

/// Makes a folder under another name; `made` says which. It gets its mode there, so that nobody ever sees it with
/// another one.
Failure makeNamelessFolder(const std::string& path, FolderKind kind, std::string& made) {
  const std::size_t nameAt = path.rfind('/') + 1;  // 0 without a slash
  for (int tries = 0; tries < MAX_CREATE_TRIES; ++tries) {
    made = path.substr(0, nameAt) + temporaryPrefix(path.substr(nameAt)) + makeSuffix();
    if (mkdir(made.c_str(), kind == FolderKind::OWN ? FOLDER_MODE : PARENT_MODE) == 0) {
      struct stat status = {};
      if (stat(made.c_str(), &status) != 0 || chmod(made.c_str(), folderMode(status, kind)) != 0) {
        const Failure failure = failed("chmod folder");
        rmdir(made.c_str());
        return failure;
      }
      return NONE;
    }
    if (errno != EEXIST) {
      return failed("make folder");
    }
  }
  return {"make folder", EEXIST, nullptr};
}

/// Makes one folder, durably, unless it is there.
Failure makeFolder(const std::string& path, FolderKind kind) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    return NONE;
  }
  if (errno != ENOENT) {
    return failed("stat folder");
  }
  std::string nameless;
  if (const Failure failure = makeNamelessFolder(path, kind, nameless)) {
    return failure;
  }
  const int error = nameFolder(nameless, path);
  if (error != 0) {
    rmdir(nameless.c_str());
    const bool wasFaster = error == EEXIST || error == ENOTEMPTY;
    return wasFaster ? NONE : Failure{"name folder", error, nullptr};
  }
  return syncFolder(parentOf(path));
}

Failure makeFolders(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    if (path[slash - 1] == '/') {
      continue;
    }
    if (const Failure failure = makeFolder(path.substr(0, slash), FolderKind::PARENT)) {
      return failure;
    }
  }
  return makeFolder(path, FolderKind::OWN);
}

Failure openOrMakeFolder(std::string path, Descriptor& folder) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  if (folder.openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY)) {
    return NONE;
  }
  if (errno != ENOENT) {
    return failed("open folder");
  }
  if (const Failure failure = makeFolders(path)) {
    return failure;
  }
  return folder.openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY) ? NONE : failed("open folder");
}

bool isTemporary(const std::string& prefix, const char* entry) {
  return std::strncmp(entry, prefix.c_str(), prefix.size()) == 0 &&
         std::strspn(entry + prefix.size(), SUFFIX_LETTERS) == SUFFIX_LENGTH &&
         entry[prefix.size() + SUFFIX_LENGTH] == '\0';
}

bool isSameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// Removes a temporary file unless its writer lives, or it is not ours to judge.
Failure removeIfLeftOver(int folder, const char* entry) {
  Descriptor file;
  if (!file.openAt(folder, entry, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY)) {
    const bool isNotOurs = errno == ENOENT || errno == ELOOP || errno == EACCES || errno == ENXIO;
    return isNotOurs ? NONE : failed("open left-over");
  }
  struct stat opened = {};
  if (fstat(file.get(), &opened) != 0) {
    return failed("fstat left-over");
  }
  if (!S_ISREG(opened.st_mode)) {
    return NONE;
  }
  if (retryInterrupted([&] { return flock(file.get(), LOCK_EX | LOCK_NB); }) != 0) {
    return errno == EWOULDBLOCK ? NONE : failed("lock left-over");
  }
  struct stat named = {};
  if (fstatat(folder, entry, &named, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? NONE : failed("stat left-over");  // renamed by its writer meanwhile
  }
  if (isSameFile(opened, named) && unlinkat(folder, entry, 0) != 0 && errno != ENOENT) {
    return failed("unlink left-over");
  }
  return NONE;
}

/// Removes what writers of the same file that died have left. Goes on after a failure, and returns the last one.
Failure removeLeftOvers(int folder, const std::string& name) {
  Descriptor listed;
  if (!listed.openAt(folder, ".", O_RDONLY | O_DIRECTORY)) {
    return failed("open folder for left-overs");
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(listed.get()), &closedir);
  if (entries == nullptr) {
    return failed("list left-overs");
  }
  listed.release();  // closed by closedir

  const std::string prefix = temporaryPrefix(name);
  Failure last;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(entries.get());
    if (entry == nullptr) {
      return errno == 0 ? last : failed("list left-overs");
    }
    if (!isTemporary(prefix, entry->d_name)) {
      continue;
    }
    if (const Failure failure = removeIfLeftOver(folder, entry->d_name)) {
      last = failure;
    }
  }
}

/// The temporary file that becomes the saved one; removed again unless it does. Locked for as long as this lives.
class TemporaryFile : private LmUncopyable {
 public:
  TemporaryFile(int folder, const std::string& savedName) : mFolder(folder), mSavedName(savedName) {}

  ~TemporaryFile() {
    if (!mName.empty()) {
      unlinkat(mFolder, mName.c_str(), 0);  // fails at worst to what the next Flush finds and removes
    }
  }

  Failure create(mode_t mode) {
    for (int tries = 0; tries < MAX_CREATE_TRIES; ++tries) {
      const std::string name = temporaryPrefix(mSavedName) + makeSuffix();
      if (!mFile.openAt(mFolder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR)) {
        if (errno == EEXIST) {
          continue;
        }
        return failed("create temporary file");
      }
      mName = name;
      if (fchmod(mFile.get(), mode) != 0) {  // the umask belongs to the process
        return failed("chmod temporary file");
      }
      bool lost = false;
      const Failure failure = lock(lost);
      if (!lost) {
        return failure;
      }
      mName.clear();
    }
    return {"create temporary file", EEXIST, nullptr};
  }

  Failure fill(const std::vector<unsigned char>& image) const {
    for (std::size_t done = 0; done < image.size();) {
      const ssize_t written =
          retryInterrupted([&] { return write(mFile.get(), image.data() + done, image.size() - done); });
      if (written < 0) {
        return failed("write temporary file");
      }
      if (written == 0) {
        return {"write temporary file", ENOSPC, nullptr};
      }
      done += static_cast<std::size_t>(written);
    }
    return retryInterrupted([&] { return fsync(mFile.get()); }) == 0 ? NONE : failed("fsync temporary file");
  }

  Failure becomeSavedFile() {
    if (renameat(mFolder, mName.c_str(), mFolder, mSavedName.c_str()) != 0) {
      return failed("rename temporary file");
    }
    mName.clear();
    return NONE;
  }

 private:
  /// `lost` when a process that looked for left-overs saw the file before it was locked: it is gone, or will be.
  Failure lock(bool& lost) const {
    if (retryInterrupted([&] { return flock(mFile.get(), LOCK_EX | LOCK_NB); }) != 0) {
      lost = errno == EWOULDBLOCK;
      return failed("lock temporary file");
    }
    struct stat status = {};
    if (fstat(mFile.get(), &status) != 0) {
      return failed("fstat temporary file");
    }
    lost = status.st_nlink == 0;
    return NONE;
  }

  const int mFolder;
  const std::string& mSavedName;
  std::string mName;  // empty while there is nothing to remove
  Descriptor mFile;
};

/// The mode for the new file: the old one's, if there is one. Anything but a plain file is not replaced.
Failure chooseMode(int folder, const std::string& name, mode_t& mode) {
  struct stat status = {};
  if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    mode = FILE_MODE;
    return errno == ENOENT ? NONE : failed("stat");
  }
  if (!S_ISREG(status.st_mode)) {
    return {"stat", 0, "not a regular file"};
  }
  mode = status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  return NONE;
}

Failure replaceFile(int folder, const std::string& name, const std::vector<unsigned char>& image) {
  mode_t mode = 0;
  if (const Failure failure = chooseMode(folder, name, mode)) {
    return failure;
  }
  TemporaryFile temporary(folder, name);
  if (const Failure failure = temporary.create(mode)) {
    return failure;
  }
  if (const Failure failure = temporary.fill(image)) {
    return failure;
  }
  if (const Failure failure = temporary.becomeSavedFile()) {
    return failure;
  }
  return retryInterrupted([&] { return fsync(folder); }) == 0 ? NONE : failed("fsync folder");
}

/// Makes `image` the file's contents. `cleaning` is what failed without harm to that.
Failure store(const std::string& folderPath, const std::string& name, const std::vector<unsigned char>& image,
              Failure& cleaning) {
  Descriptor folder;
  if (const Failure failure = openOrMakeFolder(folderPath, folder)) {
    return failure;
  }
  cleaning = removeLeftOvers(folder.get(), name);
  return replaceFile(folder.get(), name, image);
}

}  // namespace

PosixSaveFile::PosixSaveFile(std::string folder, std::string name, bool writable)
    : mFolder(std::move(folder)), mName(std::move(name)), mWritable(writable) {}

bool PosixSaveFile::FOpen() {
  FClose();
  std::vector<unsigned char> image;
  if (const Failure failure = load(mFolder, mName, image)) {
    mSpoilt = true;
    logFailure("FOpen", __LINE__, mFolder, mName, "was not read", failure);
    return false;
  }
  mImage = std::move(image);
  mOpen = true;
  return true;
}

bool PosixSaveFile::FClose() {
  const bool wasOpen = mOpen;
  mOpen = false;
  mImage.clear();
  mOffset = 0;
  return wasOpen;
}

int PosixSaveFile::Read(void* buffer, unsigned size) {
  if (!mOpen) {
    return -1;
  }
  const std::size_t count = std::min<std::size_t>(size, mImage.size() - mOffset);
  std::copy_n(mImage.data() + mOffset, count, static_cast<unsigned char*>(buffer));
  mOffset += count;
  return static_cast<int>(count);
}

int PosixSaveFile::Write(const void* buffer, unsigned size) {
  if (!mOpen) {
    return -1;
  }
  if (size > MAX_SIZE - mOffset) {
    logFailure("Write", __LINE__, mFolder, mName, "was not lengthened", {"write", EFBIG, nullptr});
    return -1;
  }
  if (mImage.size() < mOffset + size) {
    mImage.resize(mOffset + size);
  }
  std::copy_n(static_cast<const unsigned char*>(buffer), size, mImage.data() + mOffset);
  mOffset += size;
  return static_cast<int>(size);
}

bool PosixSaveFile::Seek(long offset, int origin) {
  if (!mOpen || origin < 0 || origin > 2) {
    return false;
  }
  const auto size = static_cast<long>(mImage.size());
  const long bases[] = {0, static_cast<long>(mOffset), size};
  const long base = bases[origin];
  if (offset < -base || offset > size - base) {
    return false;
  }
  mOffset = static_cast<std::size_t>(base + offset);
  return true;
}

bool PosixSaveFile::Flush() {
  if (!mOpen) {
    return false;
  }
  Failure cleaning;
  Failure failure;
  if (!mWritable) {
    failure = {"mode", 0, "only for reading"};
  } else if (mSpoilt) {
    failure = {"it could not be read earlier", 0, "nothing may replace it now"};
  } else {
    failure = store(mFolder, mName, mImage, cleaning);
  }
  if (failure) {
    logFailure("Flush", __LINE__, mFolder, mName, "was not saved", failure);
    return false;
  }
  if (cleaning) {
    logFailure("Flush", __LINE__, mFolder, mName, "was saved, but left-overs may remain", cleaning);
  }
  return true;
}
