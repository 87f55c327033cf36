// SPDX-License-Identifier: Apache-2.0
#include "LmSIntegratedDeviceListImpl.h"

#include <algorithm>
#include <memory>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CpIntegratedDeviceList.h"
#include "Decisions.h"
#include "FuncInfoSharedMem.h"
#include "IntegratedDeviceList/idl.h"
#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmSyncGuard.h"
#include "SuffixProvider.h"

namespace {

constexpr char FILE_NAME[] = "src/Public/IntegratedDeviceList/private/LmSIntegratedDeviceListImpl";
constexpr int LOG_TAG = 1;

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;

std::uint8_t readBtFunctionFlag() {
  const FuncInfoSharedMem funcInfo;
  LmSyncGuard guard(funcInfo);
  std::uint8_t flag = 0;
  funcInfo.read(FuncInfoSharedMem::DATA_OFFSET + offsetof(idl::wire::FuncInfoStruct, btFunctionFlag), &flag,
                sizeof(flag));
  return flag;
}

bool isSource(LmSIntegratedDeviceListDef::DeviceType type) {
  return type == LmSIntegratedDeviceListDef::DEVICE_TYPE_BT ||
         type == LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY || type == LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP;
}

std::uint32_t bitOf(LmSIntegratedDeviceListDef::DeviceType type) { return std::uint32_t{1} << type; }

// Reads the source that `type` names if its bit is set in `unread`, and clears the bit once that has succeeded.
template <class Adapter>
void readIfUnread(LmSIntegratedDeviceListDef::DeviceType type, Adapter& adapter, std::uint32_t& unread) {
  if ((unread & bitOf(type)) != 0) {
    adapter.updateDeviceList();
    unread &= ~bitOf(type);
  }
}

void fold(const IntegratedDevice& source, IntegratedDevice& target) {
  static_cast<DeviceInfo&>(target) = static_cast<const DeviceInfo&>(source);
  if (source.type == LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY) {
    target.cpDevice = source.cpDevice;
  } else if (source.type == LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP) {
    target.aapDevice = source.aapDevice;
  }
}

// Puts `device` behind those of `order`, from `begin` on, that are not greater: for each in turn that is a stable sort,
// which allocates nothing. Tables are mostly in order already. Records are large, so that their addresses are sorted.
template <class Compare>
void insertInOrder(std::vector<const IntegratedDevice*>& order, std::size_t begin, const IntegratedDevice& device,
                   Compare compare) {
  std::size_t place = order.size();
  while (place > begin && compare(device, *order[place - 1])) {
    --place;
  }
  order.insert(order.begin() + static_cast<std::ptrdiff_t>(place), &device);
}

}  // namespace

// The adapters are handed over only when all of them stand: one that throws leaves none behind.
LmSIntegratedDeviceListImpl::LmSIntegratedDeviceListImpl()
    : initialized(false),
      started(false),
      btAdapter(nullptr),
      cpAdapter(nullptr),
      aapAdapter(nullptr),
      suffixProvider(nullptr),
      unread(0) {
  auto bt = std::make_unique<BtIntegratedDeviceList>();
  auto cp = std::make_unique<CpIntegratedDeviceList>();
  auto aap = std::make_unique<AapIntegratedDeviceList>();
  suffixProvider = new SuffixProvider;
  btAdapter = bt.release();
  cpAdapter = cp.release();
  aapAdapter = aap.release();
}

LmSIntegratedDeviceListImpl::LmSIntegratedDeviceListImpl(std::unique_ptr<BtIntegratedDeviceList> bt,
                                                         std::unique_ptr<CpIntegratedDeviceList> cp,
                                                         std::unique_ptr<AapIntegratedDeviceList> aap,
                                                         std::unique_ptr<SuffixProvider> provider, bool awaitsBluetooth)
    : initialized(true),
      started(false),
      btAdapter(bt.release()),
      cpAdapter(cp.release()),
      aapAdapter(aap.release()),
      suffixProvider(provider.release()),
      unread(0) {
  if (awaitsBluetooth) {
    awaited.insert(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  }
}

LmSIntegratedDeviceListImpl::~LmSIntegratedDeviceListImpl() {
  delete btAdapter;
  btAdapter = nullptr;
  delete cpAdapter;
  cpAdapter = nullptr;
  delete aapAdapter;
  aapAdapter = nullptr;
  delete suffixProvider;
  suffixProvider = nullptr;
}

void LmSIntegratedDeviceListImpl::initialize() {
  LmSyncGuard guard(mutex);
  if (initialized) {
    return;
  }
  if (readBtFunctionFlag() != 0) {
    awaited.insert(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT);
  }
  initialized = true;
}

void LmSIntegratedDeviceListImpl::updateDeviceList(DeviceType type) {
  LmSyncGuard guard(mutex);
  if (!initialized) {
    LmDbgOutput::DbgPrint(FILE_NAME, "updateDeviceList", __LINE__, LOG_TAG, "not initialized.\n");
    return;
  }
  if (!isSource(type)) {
    return;
  }
  unread |= bitOf(type);
  readSources();
  if (!started) {
    tryStart(type);
  }
  if (!started) {
    return;
  }
  lastList.swap(mergedList);
  try {
    updateDeviceList();
    suffixProvider->appendSuffix(mergedList);
  } catch (...) {
    mergedList.swap(lastList);
    throw;
  }
}

// An adapter whose reading threw has half a list; merged as it is, it would cost the missing phones their numbers.
void LmSIntegratedDeviceListImpl::readSources() {
  readIfUnread(LmSIntegratedDeviceListDef::DEVICE_TYPE_BT, *btAdapter, unread);
  readIfUnread(LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY, *cpAdapter, unread);
  readIfUnread(LmSIntegratedDeviceListDef::DEVICE_TYPE_AAP, *aapAdapter, unread);
}

bool LmSIntegratedDeviceListImpl::getDeviceList(std::vector<IntegratedDevice>& list) {
  LmSyncGuard guard(mutex);
  if (!initialized) {
    LmDbgOutput::DbgPrint(FILE_NAME, "getDeviceList", __LINE__, LOG_TAG, "not initialized.\n");
    return false;
  }
  if (!started) {
    return false;
  }
  list = mergedList;
  return true;
}

bool LmSIntegratedDeviceListImpl::setFormat(NameFormatFunc format) {
  LmSyncGuard guard(mutex);
  return suffixProvider->setFormat(format);
}

void LmSIntegratedDeviceListImpl::start() {
  if (started) {
    return;
  }
  suffixProvider->start();
  started = true;
}

void LmSIntegratedDeviceListImpl::tryStart(DeviceType type) {
  if (started) {
    return;
  }
  awaited.erase(type);
  if (awaited.empty()) {
    start();
  }
}

void LmSIntegratedDeviceListImpl::updateDeviceList() {
  Decisions::heard([](Decisions& listener) { listener.mergingBegins(); });
  unmatchedList.clear();
  btAdapter->getBtDeviceList(pairedList);
  aggregateDeviceList(pairedList, cpAdapter->btDevices(), unmatchedList);
  aggregateDeviceList(pairedList, aapAdapter->btDevices(), unmatchedList);

  order.clear();
  for (const IntegratedDevice& device : cpAdapter->usbDevices()) {
    insertInOrder(order, 0, device, idl::compareUsbPort);
  }
  for (const IntegratedDevice& device : aapAdapter->usbDevices()) {
    insertInOrder(order, 0, device, idl::compareUsbPort);
  }
  for (IntegratedDevice& device : unmatchedList) {
    Decisions::heard([&](Decisions& listener) { listener.pairingUnknown(device, idl::isUsbConnected(device)); });
    if (idl::isUsbConnected(device)) {
      device.btid = DeviceInfo::BTID_NONE;  // it claims a pairing that Bluetooth does not know
      insertInOrder(order, 0, device, idl::compareUsbPort);
    }
  }
  const std::size_t usbOnlyCount = order.size();
  for (const IntegratedDevice& device : pairedList) {
    insertInOrder(order, usbOnlyCount, device, idl::compareBtDeviceId);
  }

  mergedList.resize(order.size());
  for (std::size_t i = 0; i < order.size(); ++i) {
    mergedList[i] = *order[i];
  }
}

void LmSIntegratedDeviceListImpl::aggregateDeviceList(std::vector<IntegratedDevice>& target,
                                                      const std::vector<IntegratedDevice>& source,
                                                      std::vector<IntegratedDevice>& unmatched) {
  for (const IntegratedDevice& device : source) {
    const auto match = std::find_if(target.begin(), target.end(), [&](const IntegratedDevice& candidate) {
      return idl::isBtPaired(candidate) && candidate.btid == device.btid;
    });
    if (match != target.end()) {
      Decisions::heard([&](Decisions& listener) { listener.folded(device, *match); });
      fold(device, *match);
    } else {
      unmatched.push_back(device);
    }
  }
}
