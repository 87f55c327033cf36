// SPDX-License-Identifier: Apache-2.0
// client_agent: a client that does what its standard input says, line by line, and answers each. Says "ok" first, when
// it has its list and listens to notifications.
//
//     initialise        "ok"
//     number-first      "ok": names are displayed with the number in front
//     refresh SOURCE    "ok": takes over that table
//     list              "none", or "list N" and N lines, one for each phone (see rowOf)
//     heard SOURCE N    waits until it has heard of N changes of that source since its start; "heard N", the number
//     then
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmObserver.h"
#include "LmFramework/SharedMemory/LmSharedMemNotifier.h"
#include "processes/Words.h"
#include "simulator/BenchNotification.h"

namespace {

using LmSIntegratedDeviceListDef::DeviceType;
using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr std::chrono::seconds WATCHDOG(20);
constexpr std::array<unsigned, 3> NOTIFICATIONS = {idl::bench::BT_NOTIFICATION_ID, idl::wire::CARPLAY_NOTIFICATION_ID,
                                                   idl::bench::AAP_NOTIFICATION_ID};

/// Counts the notifications of each source.
class Ear {
 public:
  Ear() : mNotifier(false), mObserver(this, &Ear::update) {
    if (!mNotifier.AddObserver(&mObserver, NOTIFICATIONS.data(), static_cast<unsigned>(NOTIFICATIONS.size()))) {
      throw std::runtime_error("no notifications");
    }
  }

  ~Ear() { mNotifier.RemoveObserver(&mObserver); }

  Ear(const Ear&) = delete;
  Ear& operator=(const Ear&) = delete;

  unsigned waitFor(unsigned source, unsigned count) {
    std::unique_lock<std::mutex> lock(mMutex);
    mArrived.wait_for(lock, WATCHDOG, [&] { return mCounts.at(source) >= count; });
    return mCounts.at(source);
  }

 private:
  unsigned update(unsigned id, void* /*data*/, unsigned /*size*/) {
    const std::lock_guard<std::mutex> guard(mMutex);
    for (unsigned source = 0; source < NOTIFICATIONS.size(); ++source) {
      mCounts.at(source) += NOTIFICATIONS.at(source) == id ? 1U : 0U;
    }
    mArrived.notify_all();
    return 0;
  }

  std::mutex mMutex;
  std::condition_variable mArrived;
  std::array<unsigned, NOTIFICATIONS.size()> mCounts = {};
  LmSharedMemNotifier mNotifier;
  LmObserver<Ear> mObserver;
};

std::string numberFirst(const std::string& name, unsigned char suffix) { return std::to_string(suffix) + ". " + name; }

template <std::size_t Size>
std::string written(const char (&field)[Size]) {
  return Words::written(std::string(field, strnlen(field, Size)));
}

/// The header in the order of its fields, and each source's own name for the phone.
std::string rowOf(const IntegratedDevice& phone) {
  return std::to_string(static_cast<int>(phone.type)) + ' ' + Words::written(phone.name) + ' ' +
         std::to_string(phone.btid) + ' ' + std::to_string(phone.port) + ' ' + std::to_string(phone.session) + ' ' +
         std::to_string(phone.cpDeviceId) + ' ' + Words::written(phone.aapId) + ' ' + std::to_string(phone.suffix) +
         ' ' + written(phone.btDevice.name) + ' ' + written(phone.cpDevice.name) + ' ' + written(phone.aapDevice.name);
}

void tellList(LmSIntegratedDeviceList& list) {
  std::vector<IntegratedDevice> phones;
  if (!list.getDeviceList(phones)) {
    std::cout << "none" << std::endl;
    return;
  }
  std::cout << "list " << phones.size() << '\n';
  for (const IntegratedDevice& phone : phones) {
    std::cout << rowOf(phone) << '\n';
  }
  std::cout << std::flush;
}

void obey(LmSIntegratedDeviceList& list, Ear& ear, const std::string& line) {
  Words words(line);
  const std::string command = words.word();
  if (command == "list") {
    tellList(list);
    return;
  }
  if (command == "heard") {
    const auto source = words.number<unsigned>();
    std::cout << "heard " << ear.waitFor(source, words.number<unsigned>()) << std::endl;
    return;
  }
  if (command == "initialise") {
    list.initialize();
  } else if (command == "number-first") {
    list.setFormat(numberFirst);
  } else if (command == "refresh") {
    list.updateDeviceList(static_cast<DeviceType>(words.number<int>()));
  } else {
    throw std::invalid_argument("no command: " + command);
  }
  std::cout << "ok" << std::endl;
}

}  // namespace

int main() {
  try {
    Ear ear;
    LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
    std::cout << "ok" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
      obey(*list, ear, line);
    }
    return 0;
  } catch (const std::exception& error) {
    std::cout << "error " << error.what() << std::endl;
    return 1;
  }
}
