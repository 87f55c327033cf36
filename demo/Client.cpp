// SPDX-License-Identifier: Apache-2.0
// The client: keeps the list as fresh as the notifications allow, and tells it to whoever holds the other end of its
// standard output.
//
//     standard input      refresh bt|cp|aap    takes over that table although nobody told of a change
//     standard output     ready                the list as it is at the start ...
//                         refreshed bt 5       ... after a change, here the Bluetooth table's 5th ...
//                         refreshed bt 0       ... and after a request; each is followed by
//                         list 2               the number of rows, and the rows
//
// It ends with its standard input.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "demo/LineBuffer.h"
#include "demo/Row.h"
#include "simulator/BenchNotification.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceType;

struct SourceEntry {
  const char* word;
  unsigned notificationId;
  DeviceType type;
};

// In the order in which they are refreshed at the start: numbers that were stored for paired phones are kept only when
// Bluetooth comes first.
constexpr std::array<SourceEntry, 3> SOURCES = {{
    {"bt", idl::bench::BT_NOTIFICATION_ID, LmSIntegratedDeviceListDef::DEVICE_TYPE_BT},
    {"cp", idl::wire::CARPLAY_NOTIFICATION_ID, LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY},
    {"aap", idl::bench::AAP_NOTIFICATION_ID, LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP},
}};

/// What the notifier's delivery thread leaves for the main thread, which alone refreshes: a refresh may wait for a
/// table's lock and save a file, and the delivery thread is everybody's.
///
/// Of each source only the last change counts: however far behind the client is, it refreshes each source once.
class ChangeQueue {
 public:
  /// For each of SOURCES the number of its last change; none where nothing has changed.
  using Changes = std::array<std::optional<std::uint32_t>, SOURCES.size()>;

  ChangeQueue() : mNotifier(false), mObserver(this, &ChangeQueue::update) {
    if (::pipe2(mWake.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
      throw std::runtime_error("no pipe");
    }
    std::array<unsigned, SOURCES.size()> ids = {};
    for (std::size_t i = 0; i < ids.size(); ++i) {
      ids[i] = SOURCES[i].notificationId;
    }
    if (!mNotifier.AddObserver(&mObserver, ids.data(), static_cast<unsigned>(ids.size()))) {
      ::close(mWake[0]);
      ::close(mWake[1]);
      throw std::runtime_error("no notifications");
    }
  }

  ~ChangeQueue() {
    mNotifier.RemoveObserver(&mObserver);
    ::close(mWake[0]);
    ::close(mWake[1]);
  }

  ChangeQueue(const ChangeQueue&) = delete;
  ChangeQueue& operator=(const ChangeQueue&) = delete;

  /// Becomes readable when there is something to take.
  int wakeFd() const { return mWake[0]; }

  Changes takeAll() {
    char bytes[64];
    while (::read(mWake[0], bytes, sizeof(bytes)) > 0) {
    }
    Changes changes;
    const std::lock_guard<std::mutex> guard(mMutex);
    changes.swap(mChanges);
    return changes;
  }

 private:
  // On the delivery thread.
  unsigned update(unsigned id, void* data, unsigned size) {
    std::uint32_t number = 0;
    if (size == sizeof(number)) {
      std::memcpy(&number, data, sizeof(number));
    }
    for (std::size_t i = 0; i < SOURCES.size(); ++i) {
      if (SOURCES[i].notificationId == id) {
        const std::lock_guard<std::mutex> guard(mMutex);
        mChanges[i] = number;
      }
    }
    // A full pipe is as good: the main thread has been woken then.
    [[maybe_unused]] const ssize_t ignored = ::write(mWake[1], "", 1);
    return 0;
  }

  std::array<int, 2> mWake = {-1, -1};
  std::mutex mMutex;
  Changes mChanges;  // guarded by mMutex
  LmSharedMemNotifier mNotifier;
  LmObserver<ChangeQueue> mObserver;
};

demo::Row rowOf(const LmSIntegratedDeviceListDef::IntegratedDevice& phone) {
  return {static_cast<demo::Source>(phone.type), phone.name, phone.btid, phone.port, phone.session, phone.suffix};
}

void tell(const std::string& heading) {
  std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
  LmSIntegratedDeviceList::getInstance()->getDeviceList(phones);
  std::cout << heading << "\nlist " << phones.size() << '\n';
  for (const auto& phone : phones) {
    std::cout << demo::toLine(rowOf(phone)) << '\n';
  }
  std::cout << std::flush;
}

void refresh(const SourceEntry& source, std::uint32_t number) {
  LmSIntegratedDeviceList::getInstance()->updateDeviceList(source.type);
  tell("refreshed " + std::string(source.word) + ' ' + std::to_string(number));
}

void obey(const std::string& request) {
  for (const SourceEntry& source : SOURCES) {
    if (request == "refresh " + std::string(source.word)) {
      refresh(source, 0);
      return;
    }
  }
  std::cerr << "demo-client: unknown request: " << request << std::endl;
}

void follow(const ChangeQueue::Changes& changes) {
  for (std::size_t i = 0; i < SOURCES.size(); ++i) {
    if (changes[i]) {
      refresh(SOURCES[i], *changes[i]);
    }
  }
}

int run() {
  // Listening comes before the first look, so that no change falls between the two.
  ChangeQueue queue;
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  for (const SourceEntry& source : SOURCES) {
    list->updateDeviceList(source.type);
  }
  tell("ready");

  demo::LineBuffer requests;
  for (;;) {
    std::array<pollfd, 2> ready = {{{STDIN_FILENO, POLLIN, 0}, {queue.wakeFd(), POLLIN, 0}}};
    if (::poll(ready.data(), ready.size(), -1) < 0) {
      if (errno == EINTR) {
        continue;
      }
      return 1;
    }
    follow(queue.takeAll());
    if (ready[0].revents != 0) {
      if (!requests.fill(STDIN_FILENO)) {
        return 0;
      }
      while (const auto request = requests.take()) {
        obey(*request);
      }
    }
  }
}

}  // namespace

int main() {
  try {
    return run();
  } catch (const std::exception& error) {
    std::cerr << "demo-client: " << error.what() << std::endl;
    return 1;
  }
}
