// SPDX-License-Identifier: Apache-2.0
#ifndef BENCH_ALTERNATIVES_H
#define BENCH_ALTERNATIVES_H

#include <memory>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

/// What a unit would have without this library: the phones' header fields, by D-Bus from a service or out of a file.
/// The source records, which the library hands out too, are left out here, in favour of these.
namespace idl::cost {

using LmSIntegratedDeviceListDef::DeviceInfo;

/// The device of index `index` out of `count`.
DeviceInfo sampleDevice(unsigned index);

/// A bus of its own, with a service that answers ObjectManager.GetManagedObjects for a path of each count.
///
/// Both are processes that end with this object.
class Bus {
 public:
  /// @throw std::runtime_error when there is no dbus-daemon.
  Bus();
  ~Bus();

  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  /// Replaces `devices` by those that the service tells: 10 or 33, in any order. @throw std::runtime_error
  void getDevices(unsigned count, std::vector<DeviceInfo>& devices);

 private:
  struct Parts;
  const std::unique_ptr<Parts> mParts;
};

/// Serves on the bus at `address` until it is killed. Says a line when it can be called.
int serveDevices(const std::string& address);

/// Writes as many devices to `path` as JSON.
void writeJson(const std::string& path, unsigned count);

/// Replaces `devices` by those in the file.
void readJson(const std::string& path, std::vector<DeviceInfo>& devices);

}  // namespace idl::cost

#endif
