// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_PUBLISHEDTABLE_H
#define SIMULATOR_PUBLISHEDTABLE_H

#include <signal.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

namespace idl::bench {

/// The segment of a stand-in service: the payload T under its lock, and the notification that it has changed.
///
/// Writing goes through the descriptor, so that a table that somebody has cut short is an error and not a death.
/// For one thread. Nothing is cleared up at the end: the table outlives its publisher, as a service's does.
template <class T>
class PublishedTable {
 public:
  /// Opens or creates the segment `name`; changes are told under `notificationId`.
  /// @throw std::runtime_error when it cannot be mapped.
  PublishedTable(const char* name, unsigned notificationId)
      : mName(name), mSegment(name), mNotifier(false), mNotificationId(notificationId) {
    if (mSegment.data() == nullptr) {
      throw std::runtime_error(mName + ": no segment");
    }
  }

  /// The lock under which write(), read() and dieHere() are called.
  const LmSharedSyncObject& lock() const { return mSegment; }

  /// Writes at `offset` of the payload. @throw std::runtime_error, and nothing is written, when the segment is too
  /// short.
  void write(std::size_t offset, const void* image, std::size_t size) const {
    if (!mSegment.write(LmSharedMemory<T, 1>::DATA_OFFSET + offset, image, size)) {
      throw std::runtime_error(mName + ": cannot be written");
    }
  }

  /// Reads at `offset` of the payload. @throw std::runtime_error when the segment is too short.
  void read(std::size_t offset, void* image, std::size_t size) const {
    if (mSegment.read(LmSharedMemory<T, 1>::DATA_OFFSET + offset, image, size) != size) {
      throw std::runtime_error(mName + ": cannot be read");
    }
  }

  /// Tells every client that the table has changed; call without the lock, so that nobody who reads at once has to
  /// wait.
  /// @return how many changes this publisher has told of, this one included: the notification's data.
  /// @throw std::runtime_error when it cannot be published.
  std::uint32_t notify() {
    ++mChanges;
    if (!mNotifier.Publish(mNotificationId, &mChanges, sizeof(mChanges))) {
      throw std::runtime_error(mName + ": the change cannot be told");
    }
    return mChanges;
  }

  /// Kills this process as a fault would: no destructor runs, a lock that is held stays held.
  [[noreturn]] static void dieHere() {
    ::kill(::getpid(), SIGKILL);
    for (;;) {
      ::pause();
    }
  }

 private:
  const std::string mName;
  LmSharedMemory<T, 1> mSegment;
  LmSharedMemNotifier mNotifier;
  const unsigned mNotificationId;
  std::uint32_t mChanges = 0;
};

/// The number of bytes of a record, from its start, after which a writer is half-way through the text at `textOffset`.
inline std::size_t halfWayThrough(std::size_t textOffset, const std::string& text) {
  return textOffset + text.size() / 2;
}

}  // namespace idl::bench

#endif
