// SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_BENCHSEGMENT_H
#define SIMULATOR_BENCHSEGMENT_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"

namespace idl::bench {

/// Removes the shared-memory object `name`, without a slash, if there is one. @throw std::runtime_error
void removeObject(const std::string& name);

/// Makes the shared-memory object `name` exactly `size` bytes long; new bytes are zeros. @throw std::runtime_error
void resizeObject(const std::string& name, std::size_t size);

/// `size` bytes by chance; the same ones for the same seed, on every machine.
std::string garbageOf(std::uint32_t seed, std::size_t size);

/// Kills this process as a fault would: no destructor runs, a lock that is held stays held.
[[noreturn]] void dieHere();

/// The segment of a stand-in: the payload T under its lock. Offsets count from the start of the segment.
///
/// Writing goes through the descriptor, so that a table that somebody has cut short is an error and not a death.
/// For one thread. Nothing is cleared up at the end: the table outlives its publisher, as a service's does.
template <class T>
class BenchSegment {
  using Memory = LmSharedMemory<T, 1>;

 public:
  static constexpr std::size_t DATA_OFFSET = Memory::DATA_OFFSET;

  /// Opens or creates the segment `name`. @throw std::runtime_error when it cannot be mapped.
  explicit BenchSegment(const char* name) : mName(name), mLock(name) { attach(); }

  /// The lock under which read() and write() are called; the same one whatever becomes of the object.
  const LmSharedSyncObject& lock() const { return mLock; }

  /// @throw std::runtime_error, and nothing is written, when the segment is too short.
  void write(std::size_t offset, const void* image, std::size_t size) const {
    if (!mMemory->write(offset, image, size)) {
      throw std::runtime_error(mName + ": cannot be written");
    }
  }

  /// @throw std::runtime_error when the segment is too short; `image` may then be written in part.
  void read(std::size_t offset, void* image, std::size_t size) const {
    if (mMemory->read(offset, image, size) != size) {
      throw std::runtime_error(mName + ": cannot be read");
    }
  }

  /// Fills the payload with bytes by chance, under the lock. @throw std::runtime_error as write()
  void writeGarbage(std::uint32_t seed) const {
    const std::string bytes = garbageOf(seed, sizeof(T));
    const LmSyncGuard guard(mLock);
    write(DATA_OFFSET, bytes.data(), bytes.size());
  }

  /// Removes the object. Who is attached keeps what it has, this segment included. @throw std::runtime_error
  void vanish() const { removeObject(mName); }

  /// Attaches whatever has the name now, or creates it, and writes `payload`: nobody who takes the lock sees it
  /// without. @throw std::runtime_error when it cannot be mapped or is too short.
  void comeBack(const T& payload) {
    const LmSyncGuard guard(mLock);
    attach();
    write(DATA_OFFSET, &payload, sizeof(payload));
  }

  /// Makes the object `size` bytes long and its first ones those of `image`, which may be fewer: nobody who takes the
  /// lock sees a part of it. @throw std::runtime_error, also when it has vanished.
  void replaceImage(const std::string& image, std::size_t size) const {
    const LmSyncGuard guard(mLock);
    resizeObject(mName, size);
    if (!image.empty()) {
      write(0, image.data(), image.size());
    }
  }

  /// Cuts or lengthens the object, under the lock. @throw std::runtime_error, also when it has vanished.
  void resize(std::size_t size) const {
    const LmSyncGuard guard(mLock);
    resizeObject(mName, size);
  }

 private:
  void attach() {
    auto memory = std::make_unique<Memory>(mName.c_str());
    if (memory->data() == nullptr) {
      throw std::runtime_error(mName + ": no segment");
    }
    mMemory = std::move(memory);
  }

  const std::string mName;
  const LmSharedSyncObject mLock;
  std::unique_ptr<Memory> mMemory;
};

}  // namespace idl::bench

#endif
