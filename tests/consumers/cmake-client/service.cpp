// SPDX-License-Identifier: Apache-2.0
// What a service needs of the installed framework: the lock of its table, and the notification of a change.
#include <LmFramework/LmSyncGuard.h>
#include <LmFramework/SharedMemory/LmSharedMemNotifier.h>
#include <LmFramework/SharedMemory/LmSharedSyncObject.h>

int main() {
  const LmSharedSyncObject tableLock("BtPairedDeviceList");
  LmSharedMemNotifier notifier(false);
  const LmSyncGuard guard(tableLock);
  const unsigned value = 1;
  return notifier.Publish(6, &value, sizeof(value)) ? 0 : 1;
}
