// SPDX-License-Identifier: Apache-2.0
#include "saved/FolderRecording.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <utility>

namespace {

namespace fs = std::filesystem;
using Kind = FolderHistory::Kind;

thread_local FolderRecording* current = nullptr;

}  // namespace

FolderRecording::FolderRecording(const fs::path& root) : mRoot(root) {
  mHistory.nodes.emplace_back();
  mHistory.nodes[FolderHistory::ROOT].isFolder = true;
  read(root, FolderHistory::ROOT);
  mNow = mHistory.nodes;
  current = this;
}

FolderRecording::~FolderRecording() { current = nullptr; }

bool FolderRecording::isComplete() const { return treeOf(mNow) == readTree(mRoot); }

void FolderRecording::read(const fs::path& folder, std::size_t node) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::size_t child = mHistory.nodes.size();
    mHistory.nodes.emplace_back();
    mHistory.nodes[node].entries[entry.path().filename()] = child;
    if (entry.is_directory()) {
      mHistory.nodes[child].isFolder = true;
      read(entry.path(), child);
    } else {
      std::ifstream file(entry.path(), std::ios::binary);
      mHistory.nodes[child].bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
  }
}

void FolderRecording::record(const FolderHistory::Step& step) {
  applyStep(step, mNow);
  mHistory.steps.push_back(step);
}

std::size_t FolderRecording::add(bool isFolder) {
  FolderHistory::Node node;
  node.isFolder = isFolder;
  mHistory.nodes.push_back(node);
  mNow.push_back(node);
  return mNow.size() - 1;
}

FolderRecording::Place FolderRecording::find(int folder, const std::string& path) const {
  std::size_t node = FolderHistory::ROOT;
  fs::path rest = path;
  if (rest.is_absolute()) {
    rest = rest.lexically_normal().lexically_relative(mRoot);
    if (rest.empty() || *rest.begin() == "..") {
      return {};
    }
  } else {
    node = nodeOf(folder);  // nothing here works with relative paths otherwise
  }
  Place place;
  for (const fs::path& part : rest) {
    if (node == NOWHERE) {
      return {};
    }
    place = {node, part};
    node = nodeAt(place);
  }
  return place;
}

std::size_t FolderRecording::nodeAt(const Place& place) const {
  if (place.folder == NOWHERE || place.name == ".") {
    return place.folder;
  }
  const auto& entries = mNow[place.folder].entries;
  const auto found = entries.find(place.name);
  return found != entries.end() ? found->second : NOWHERE;
}

std::size_t FolderRecording::nodeOf(int descriptor) const {
  const auto found = mOpen.find(descriptor);
  return found != mOpen.end() ? found->second : NOWHERE;
}

void FolderRecording::aboutToOpen(int folder, const char* path, int flags) const {
  const Place place = find(folder, path);
  if (mHook && (flags & O_CREAT) != 0 && place.folder != NOWHERE) {
    mHook(mRoot / place.name);
  }
}

void FolderRecording::opened(int descriptor, int folder, const char* path, int flags) {
  mOpen.erase(descriptor);
  const Place place = find(folder, path);
  if (place.folder == NOWHERE) {
    return;
  }
  std::size_t node = nodeAt(place);
  if (node == NOWHERE) {
    node = add(false);
    record({Kind::ENTER, node, place.folder, place.name, 0, "", 0, ""});
  } else if ((flags & O_TRUNC) != 0) {
    record({Kind::RESIZE, node, 0, "", 0, "", 0, ""});
  }
  mOpen[descriptor] = node;
}

void FolderRecording::wrote(int descriptor, std::size_t offset, const void* bytes, std::size_t size) {
  const std::size_t node = nodeOf(descriptor);
  if (node != NOWHERE) {
    record({Kind::WRITE, node, 0, "", 0, "", offset, std::string(static_cast<const char*>(bytes), size)});
  }
}

void FolderRecording::resized(int descriptor, std::size_t size) {
  const std::size_t node = nodeOf(descriptor);
  if (node != NOWHERE) {
    record({Kind::RESIZE, node, 0, "", 0, "", size, ""});
  }
}

void FolderRecording::synced(int descriptor) {
  const std::size_t node = nodeOf(descriptor);
  if (node != NOWHERE) {
    record({Kind::SYNC, node, 0, "", 0, "", 0, ""});
  }
}

void FolderRecording::made(int folder, const char* path) {
  const Place place = find(folder, path);
  if (place.folder != NOWHERE) {
    record({Kind::ENTER, add(true), place.folder, place.name, 0, "", 0, ""});
  }
}

void FolderRecording::moved(int folder, const char* path, int toFolder, const char* toPath) {
  const Place from = find(folder, path);
  const Place to = find(toFolder, toPath);
  const std::size_t node = nodeAt(from);
  if (node != NOWHERE && to.folder != NOWHERE) {
    record({Kind::MOVE, node, from.folder, from.name, to.folder, to.name, 0, ""});
  }
}

void FolderRecording::removed(int folder, const char* path) {
  const Place place = find(folder, path);
  if (place.folder != NOWHERE) {
    record({Kind::LEAVE, 0, place.folder, place.name, 0, "", 0, ""});
  }
}

namespace {

template <class Call>
int recordedOpen(int folder, const char* path, int flags, const Call& call) {
  if (current != nullptr) {
    current->aboutToOpen(folder, path, flags);
  }
  const int descriptor = call();
  if (current != nullptr && descriptor >= 0) {
    current->opened(descriptor, folder, path, flags);
  }
  return descriptor;
}

int recordedResize(int result, int descriptor, off_t size) {
  if (current != nullptr && result == 0) {
    current->resized(descriptor, static_cast<std::size_t>(size));
  }
  return result;
}

ssize_t recordedWrite(ssize_t result, int descriptor, off_t offset, const void* bytes) {
  if (current != nullptr && result > 0) {
    current->wrote(descriptor, static_cast<std::size_t>(offset), bytes, static_cast<std::size_t>(result));
  }
  return result;
}

int recordedSync(int result, int descriptor) {
  if (current != nullptr && result == 0) {
    current->synced(descriptor);
  }
  return result;
}

int recordedMake(int result, int folder, const char* path) {
  if (current != nullptr && result == 0) {
    current->made(folder, path);
  }
  return result;
}

int recordedMove(int result, int folder, const char* path, int toFolder, const char* toPath) {
  if (current != nullptr && result == 0) {
    current->moved(folder, path, toFolder, toPath);
  }
  return result;
}

int recordedRemoval(int result, int folder, const char* path) {
  if (current != nullptr && result == 0) {
    current->removed(folder, path);
  }
  return result;
}

}  // namespace

// The linker sends each call X to __wrap_X, and gives X itself the name __real_X. All objects here are compiled for
// 64-bit file offsets, so calls that have them go by their names with "64"; what goes by others would be missing, and
// isComplete() finds that.
static_assert(sizeof(off_t) == 8);

#define LM_REAL(symbol) asm("__real_" symbol)
#define LM_WRAP(symbol) asm("__wrap_" symbol) __attribute__((visibility("default")))

extern "C" {

int realOpen(const char*, int, mode_t) LM_REAL("open64");
int wrapOpen(const char*, int, mode_t) LM_WRAP("open64");
int wrapOpen(const char* path, int flags, mode_t mode) {
  return recordedOpen(AT_FDCWD, path, flags, [&] { return realOpen(path, flags, mode); });
}

int realOpenat(int, const char*, int, mode_t) LM_REAL("openat64");
int wrapOpenat(int, const char*, int, mode_t) LM_WRAP("openat64");
int wrapOpenat(int folder, const char* path, int flags, mode_t mode) {
  return recordedOpen(folder, path, flags, [&] { return realOpenat(folder, path, flags, mode); });
}

int realFtruncate(int, off_t) LM_REAL("ftruncate64");
int wrapFtruncate(int, off_t) LM_WRAP("ftruncate64");
int wrapFtruncate(int fd, off_t size) { return recordedResize(realFtruncate(fd, size), fd, size); }

ssize_t realPwrite(int, const void*, std::size_t, off_t) LM_REAL("pwrite64");
ssize_t wrapPwrite(int, const void*, std::size_t, off_t) LM_WRAP("pwrite64");
ssize_t wrapPwrite(int fd, const void* bytes, std::size_t size, off_t offset) {
  return recordedWrite(realPwrite(fd, bytes, size, offset), fd, offset, bytes);
}

int realClose(int) LM_REAL("close");
int wrapClose(int) LM_WRAP("close");
int wrapClose(int fd) {
  if (current != nullptr) {
    current->closed(fd);
  }
  return realClose(fd);
}

ssize_t realWrite(int, const void*, std::size_t) LM_REAL("write");
ssize_t wrapWrite(int, const void*, std::size_t) LM_WRAP("write");
ssize_t wrapWrite(int fd, const void* bytes, std::size_t size) {
  const off_t offset = current != nullptr ? lseek(fd, 0, SEEK_CUR) : 0;
  return recordedWrite(realWrite(fd, bytes, size), fd, offset, bytes);
}

int realFsync(int) LM_REAL("fsync");
int wrapFsync(int) LM_WRAP("fsync");
int wrapFsync(int fd) { return recordedSync(realFsync(fd), fd); }

int realFdatasync(int) LM_REAL("fdatasync");
int wrapFdatasync(int) LM_WRAP("fdatasync");
int wrapFdatasync(int fd) { return recordedSync(realFdatasync(fd), fd); }

int realMkdir(const char*, mode_t) LM_REAL("mkdir");
int wrapMkdir(const char*, mode_t) LM_WRAP("mkdir");
int wrapMkdir(const char* path, mode_t mode) { return recordedMake(realMkdir(path, mode), AT_FDCWD, path); }

int realRename(const char*, const char*) LM_REAL("rename");
int wrapRename(const char*, const char*) LM_WRAP("rename");
int wrapRename(const char* from, const char* to) {
  return recordedMove(realRename(from, to), AT_FDCWD, from, AT_FDCWD, to);
}

int realRenameat(int, const char*, int, const char*) LM_REAL("renameat");
int wrapRenameat(int, const char*, int, const char*) LM_WRAP("renameat");
int wrapRenameat(int fromFolder, const char* from, int toFolder, const char* to) {
  return recordedMove(realRenameat(fromFolder, from, toFolder, to), fromFolder, from, toFolder, to);
}

int realRenameat2(int, const char*, int, const char*, unsigned) LM_REAL("renameat2");
int wrapRenameat2(int, const char*, int, const char*, unsigned) LM_WRAP("renameat2");
int wrapRenameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) {
  return recordedMove(realRenameat2(fromFolder, from, toFolder, to, flags), fromFolder, from, toFolder, to);
}

int realUnlink(const char*) LM_REAL("unlink");
int wrapUnlink(const char*) LM_WRAP("unlink");
int wrapUnlink(const char* path) { return recordedRemoval(realUnlink(path), AT_FDCWD, path); }

int realUnlinkat(int, const char*, int) LM_REAL("unlinkat");
int wrapUnlinkat(int, const char*, int) LM_WRAP("unlinkat");
int wrapUnlinkat(int folder, const char* path, int flags) {
  return recordedRemoval(realUnlinkat(folder, path, flags), folder, path);
}

int realRmdir(const char*) LM_REAL("rmdir");
int wrapRmdir(const char*) LM_WRAP("rmdir");
int wrapRmdir(const char* path) { return recordedRemoval(realRmdir(path), AT_FDCWD, path); }

}  // extern "C"
