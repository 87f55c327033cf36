// SPDX-License-Identifier: Apache-2.0
#include "bench/Floors.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "IntegratedDeviceList/WireFormat.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedMemory.h"

namespace idl::cost {

namespace {

const unsigned char* bytes(const void* at) { return static_cast<const unsigned char*>(at); }

struct Inline {
  static void copy(void* to, const void* from, std::size_t size) { std::memcpy(to, from, size); }
};

struct Called {
  static void copy(void* to, const void* from, std::size_t size) {
    benchmark::DoNotOptimize(size);  // or the compiler would write out the copy of a length that it knows
    std::memcpy(to, from, size);
  }
};

struct Chunks {
  static void copy(void* to, const void* from, std::size_t size) {
    constexpr std::size_t CHUNK = 64;
    auto* target = static_cast<unsigned char*>(to);
    const auto* source = static_cast<const unsigned char*>(from);
    std::size_t done = 0;
    for (; done + CHUNK <= size; done += CHUNK) {
      std::memcpy(target + done, source + done, CHUNK);
    }
    std::memcpy(target + done, source + done, size - done);
  }
};

void assignAnew(std::string& to, const std::string& from) { to.assign(from.data(), from.size()); }

void assignInPlace(std::string& to, const std::string& from) {
  if (to.size() == from.size()) {
    std::copy(from.begin(), from.end(), to.begin());
  } else {
    assignAnew(to, from);
  }
}

// The bytes are those that this compiler makes of a record, its pointers to virtual functions among them: no way for
// code that has to be right everywhere.
template <class Bytes, void (*assign)(std::string&, const std::string&)>
void copyRecords(const std::vector<IntegratedDevice>& from, std::vector<IntegratedDevice>& to) {
  IntegratedDevice* target = to.data();
  for (const IntegratedDevice& record : from) {
    target->type = record.type;
    assign(target->name, record.name);
    Bytes::copy(&target->name + 1, &record.name + 1,
                static_cast<std::size_t>(bytes(&record.aapId) - bytes(&record.name + 1)));
    assign(target->aapId, record.aapId);
    Bytes::copy(&target->aapId + 1, &record.aapId + 1,
                static_cast<std::size_t>(bytes(&record + 1) - bytes(&record.aapId + 1)));
    ++target;
  }
}

void copyByFields(const std::vector<IntegratedDevice>& from, std::vector<IntegratedDevice>& to) {
  IntegratedDevice* target = to.data();
  for (const IntegratedDevice& record : from) {
    target->type = record.type;
    assignInPlace(target->name, record.name);
    target->btid = record.btid;
    target->port = record.port;
    target->session = record.session;
    target->cpDeviceId = record.cpDeviceId;
    assignInPlace(target->aapId, record.aapId);
    target->suffix = record.suffix;
    Called::copy(&target->btDevice, &record.btDevice,
                 static_cast<std::size_t>(bytes(&record + 1) - bytes(&record.btDevice)));
    ++target;
  }
}

template <class Table>
class MappedSource : public Source {
 protected:
  using Memory = LmSharedMemory<Table, 1>;

  explicit MappedSource(const char* name) : mMemory(name) {}

  void readLocked(std::size_t offset, void* to, std::size_t size) const {
    const LmSyncGuard guard(mMemory);
    mMemory.read(offset, to, size);
  }

  const Memory mMemory;
  Table mTable = {};
};

template <class Table>
class SlotSource : public MappedSource<Table> {
 public:
  explicit SlotSource(const char* name) : MappedSource<Table>(name) {}

  void copySlots() override {
    const Table& shared = *this->mMemory.data();
    auto* slot = this->mTable.slots;
    for (const auto& candidate : shared.slots) {
      if (isTaken(candidate)) {
        Called::copy(slot++, &candidate, sizeof(candidate));
      }
    }
    benchmark::DoNotOptimize(this->mTable);
    benchmark::ClobberMemory();
  }

  void read() override {
    this->readLocked(MappedSource<Table>::Memory::DATA_OFFSET, &this->mTable, sizeof(this->mTable));
    benchmark::DoNotOptimize(this->mTable);
  }

 private:
  static bool isTaken(const wire::BtSlot& slot) { return slot.id != BtPairedDevice::ID_NONE; }
  static bool isTaken(const wire::AapSlot& slot) { return slot.id[0] != '\0'; }
};

class CarPlaySource : public MappedSource<wire::CarPlaySharedMemStruct> {
 public:
  CarPlaySource() : MappedSource(wire::CARPLAY_SEGMENT) {}

  void copySlots() override {
    auto* slot = mTable.phones;
    for (const cps_def::WCPAtom& candidate : mMemory.data()->phones) {
      if (candidate.valid != 0 && candidate.identifier != 0) {
        *slot++ = candidate;
      }
    }
    benchmark::DoNotOptimize(mTable);
    benchmark::ClobberMemory();
  }

  // Of each phone its entry, whether it is the connected one, and whether the others are attached.
  void read() override {
    constexpr std::size_t CURRENT = Memory::DATA_OFFSET + offsetof(wire::CarPlaySharedMemStruct, currentPhone);
    constexpr std::size_t PHONES = Memory::DATA_OFFSET + offsetof(wire::CarPlaySharedMemStruct, phones);
    for (std::size_t k = 0; k < wire::CarPlaySharedMemStruct::PHONE_COUNT; ++k) {
      readLocked(PHONES + k * sizeof(cps_def::WCPAtom), &mTable.phones[k], sizeof(cps_def::WCPAtom));
    }
    for (std::size_t k = 0; k < wire::CarPlaySharedMemStruct::PHONE_COUNT; ++k) {
      std::uint64_t current = 0;
      std::uint32_t upper = 0;
      readLocked(CURRENT, &current, sizeof(current));
      readLocked(CURRENT + sizeof(upper), &upper, sizeof(upper));
      benchmark::DoNotOptimize(current);
      benchmark::DoNotOptimize(upper);
    }
    benchmark::DoNotOptimize(mTable);
  }
};

}  // namespace

const char* nameOf(Copying copying) {
  switch (copying) {
    case Copying::ASSIGNED:
      return "assigned";
    case Copying::INLINE_BYTES:
      return "inline_bytes";
    case Copying::CALLED_BYTES:
      return "called_bytes";
    case Copying::TEXTS_IN_PLACE:
      return "texts_in_place";
    case Copying::FIELDS_IN_PLACE:
      return "fields_in_place";
    default:
      return "chunks";
  }
}

void copyList(Copying copying, const std::vector<IntegratedDevice>& from, std::vector<IntegratedDevice>& to) {
  switch (copying) {
    case Copying::ASSIGNED:
      std::copy(from.begin(), from.end(), to.begin());
      break;
    case Copying::INLINE_BYTES:
      copyRecords<Inline, assignAnew>(from, to);
      break;
    case Copying::CALLED_BYTES:
      copyRecords<Called, assignAnew>(from, to);
      break;
    case Copying::TEXTS_IN_PLACE:
      copyRecords<Called, assignInPlace>(from, to);
      break;
    case Copying::FIELDS_IN_PLACE:
      copyByFields(from, to);
      break;
    case Copying::CHUNKS:
      copyRecords<Chunks, assignInPlace>(from, to);
      break;
  }
  benchmark::DoNotOptimize(to.data());
  benchmark::ClobberMemory();
}

void copyBytes(const std::vector<IntegratedDevice>& from, std::vector<unsigned char>& to) {
  std::memcpy(to.data(), static_cast<const void*>(from.data()), to.size());
  benchmark::DoNotOptimize(to.data());
  benchmark::ClobberMemory();
}

Source& Source::of(DeviceType source) {
  static SlotSource<wire::BtPairedDeviceList> bluetooth(wire::BT_SEGMENT);
  static CarPlaySource carPlay;
  static SlotSource<wire::AapDeviceList> androidAuto(wire::AAP_SEGMENT);
  switch (source) {
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_BT:
      return bluetooth;
    case LmSIntegratedDeviceListDef::DEVICE_TYPE_CARPLAY:
      return carPlay;
    default:
      return androidAuto;
  }
}

}  // namespace idl::cost
