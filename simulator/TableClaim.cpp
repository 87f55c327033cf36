// SPDX-License-Identifier: Apache-2.0
#include "simulator/TableClaim.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace idl::bench {

namespace {

constexpr mode_t MODE = 0660;

int openFile(const std::string& table) {
  const std::string name = "/LmBench." + table;
  int file = ::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, MODE);
  if (file != -1) {
    static_cast<void>(::fchmod(file, MODE));  // whatever the umask took; it is ours, so there is no way to fail
    return file;
  }
  if (errno == EEXIST) {
    file = ::shm_open(name.c_str(), O_RDWR, 0);  // fs.protected_regular forbids O_CREAT on another user's file
  }
  if (file == -1) {
    throw std::system_error(errno, std::generic_category(), "LmBench." + table + ": cannot be opened");
  }
  return file;
}

// 0, or an error number.
int lockWhole(int file) {
  // The lock is the open file's and not the process's: two claims in one process exclude each other, too.
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return ::fcntl(file, F_OFD_SETLK, &whole) == 0 ? 0 : errno;
}

}  // namespace

TableTaken::TableTaken(const std::string& table)
    : std::runtime_error("another stand-in has the table " + table + ", and only one may write it") {}

TableClaim::TableClaim(const std::string& table) : mFile(openFile(table)) {
  const int error = lockWhole(mFile);
  if (error == 0) {
    return;
  }
  ::close(mFile);
  if (error == EAGAIN || error == EACCES) {
    throw TableTaken(table);
  }
  throw std::system_error(error, std::generic_category(), "LmBench." + table + ": cannot be locked");
}

TableClaim::~TableClaim() { ::close(mFile); }

}  // namespace idl::bench
