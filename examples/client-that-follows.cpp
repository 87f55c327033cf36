// SPDX-License-Identifier: Apache-2.0
// A client whose list is always fresh: it is told which source has changed, refreshes that one, and prints the list
// again. Runs until it is killed.
#include <IntegratedDeviceList/LmSIntegratedDeviceList.h>
#include <IntegratedDeviceList/WireFormat.h>
#include <IntegratedDeviceList/idl.h>
#include <LmFramework/LmObserver.h>
#include <LmFramework/SharedMemory/LmSharedMemNotifier.h>

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <set>
#include <stdexcept>

namespace {

using namespace LmSIntegratedDeviceListDef;

// CarPlay's id is fixed. How Bluetooth and Android Auto tell is the unit's business: these two ids are those of idlctl
// and of the publishers beside this file. Put the unit's own here.
constexpr unsigned BT_CHANGED = 0x42540001;
constexpr unsigned AAP_CHANGED = 0x41410001;
constexpr unsigned IDS[] = {BT_CHANGED, idl::wire::CARPLAY_NOTIFICATION_ID, AAP_CHANGED};

/// What the notifier's delivery thread hears, kept for the thread that refreshes. The delivery thread itself must not
/// refresh: a refresh may wait for a table's lock, and all observers of the process share that thread.
class Changes {
 public:
  Changes() : mNotifier(false), mObserver(this, &Changes::note) {
    if (!mNotifier.AddObserver(&mObserver, IDS, sizeof(IDS) / sizeof(IDS[0]))) {
      throw std::runtime_error("no notifications");
    }
  }

  ~Changes() { mNotifier.RemoveObserver(&mObserver); }

  /// Waits until something has changed. Each source is there once, however often it has changed since the last call.
  std::set<DeviceType> wait() {
    std::unique_lock<std::mutex> guard(mMutex);
    mChanged.wait(guard, [this] { return !mSources.empty(); });
    std::set<DeviceType> sources;
    sources.swap(mSources);
    return sources;
  }

 private:
  // On the delivery thread.
  unsigned note(unsigned id, void*, unsigned) {
    const std::lock_guard<std::mutex> guard(mMutex);
    mSources.insert(id == BT_CHANGED ? DEVICE_TYPE_BT : id == AAP_CHANGED ? DEVICE_TYPE_AAP : DEVICE_TYPE_CARPLAY);
    mChanged.notify_one();
    return 0;
  }

  std::mutex mMutex;
  std::condition_variable mChanged;
  std::set<DeviceType> mSources;  // guarded by mMutex
  LmSharedMemNotifier mNotifier;
  LmObserver<Changes> mObserver;
};

void print(LmSIntegratedDeviceList* list) {
  std::vector<IntegratedDevice> phones;
  if (list->getDeviceList(phones)) {
    std::printf("%zu phones\n", phones.size());
    idl::printDeviceList(phones);
  } else {
    std::puts("Bluetooth is awaited");
  }
  std::fflush(stdout);
}

}  // namespace

int main() {
  Changes changes;  // before the first look, so that no change falls between the two
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  for (DeviceType source : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP}) {
    list->updateDeviceList(source);  // Bluetooth first: it has the phones whose numbers are saved
  }
  print(list);
  for (;;) {
    for (DeviceType source : changes.wait()) {
      list->updateDeviceList(source);
    }
    print(list);
  }
}
