// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/InspectedList.h"

#include <algorithm>
#include <cstring>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CarPlayDecoding.h"
#include "CpIntegratedDeviceList.h"
#include "Decisions.h"
#include "IntegratedDeviceList/WireFormat.h"
#include "LmSIntegratedDeviceListImpl.h"
#include "SuffixProvider.h"
#include "tools/inspect/SavedTableCopy.h"

namespace idl::tools {

/// The last copies that were taken over; what no client could map has no bytes.
struct InspectedList::Tables {
  TableCopy bt;
  TableCopy cp;
  TableCopy aap;

  TableCopy& of(const Source& source) { return &source == &BT_SOURCE ? bt : &source == &CP_SOURCE ? cp : aap; }
};

namespace {

// The part of the payload that the copy reaches to, as the segment's own read() would give it.
std::size_t copyOut(const TableCopy& copy, std::size_t offset, void* bytes, std::size_t size) {
  if (!copy.isRead() || copy.bytes.size() <= offset) {
    return 0;
  }
  const std::size_t count = std::min(size, copy.bytes.size() - offset);
  std::memcpy(bytes, copy.bytes.data() + offset, count);
  return count;
}

class CopiedBt : public BtIntegratedDeviceList {
 public:
  explicit CopiedBt(const TableCopy& copy) : BtIntegratedDeviceList(nullptr), mCopy(copy) {}

  void getFunctionDeviceList(std::vector<BtPairedDevice>& out) override {
    wire::BtPairedDeviceList table;
    const std::size_t size = copyOut(mCopy, BT_SOURCE.dataOffset, &table, sizeof(table));
    takeOccupied(table, size / sizeof(table.slots[0]), out);
  }

 private:
  const TableCopy& mCopy;
};

class CopiedAap : public AapIntegratedDeviceList {
 public:
  explicit CopiedAap(const TableCopy& copy) : AapIntegratedDeviceList(nullptr), mCopy(copy) {}

  void getFunctionDeviceList(std::vector<AapDevice>& out) override {
    wire::AapDeviceList table;
    const std::size_t size = copyOut(mCopy, AAP_SOURCE.dataOffset, &table, sizeof(table));
    takeOccupied(table, size / sizeof(table.slots[0]), out);
  }

 private:
  const TableCopy& mCopy;
};

// Reads as the attached resource does.
class CopiedResource {
 public:
  explicit CopiedResource(const TableCopy& copy) : mCopy(copy) {}

  const void* data() const { return mCopy.isRead() ? mCopy.bytes.data() : nullptr; }

  template <class Field>
  Field readField(std::size_t offset, Field fallback) const {
    Field field = {};
    return copyOut(mCopy, offset, &field, sizeof(field)) == sizeof(field) ? field : fallback;
  }

 private:
  const TableCopy& mCopy;
};

class CopiedCp : public CpIntegratedDeviceList {
 public:
  explicit CopiedCp(const TableCopy& copy) : CpIntegratedDeviceList(nullptr), mResource(copy) {}

  void getFunctionDeviceList(std::vector<cps_def::WCPAtom>& out) override {
    CarPlayDecoding(mResource).takeOccupied(out);
  }

  IntegratedDevice toIntegratedDevice(const cps_def::WCPAtom& atom) override {
    return CarPlayDecoding(mResource).toIntegratedDevice(atom);
  }

 private:
  const CopiedResource mResource;
};

}  // namespace

InspectedList::InspectedList(bool awaitsBluetooth, const SavedTableCopy& saved, Decisions* decisions)
    : mTables(std::make_unique<Tables>()),
      mList(std::make_unique<LmSIntegratedDeviceListImpl>(
          std::make_unique<CopiedBt>(mTables->bt), std::make_unique<CopiedCp>(mTables->cp),
          std::make_unique<CopiedAap>(mTables->aap), std::make_unique<SuffixProvider>(savedEntries(saved)),
          awaitsBluetooth)),
      mDecisions(decisions) {}

InspectedList::~InspectedList() = default;

void InspectedList::refresh(const Source& source, const TableCopy& copy) {
  mTables->of(source) = copy;
  Decisions::tell(mDecisions);
  mList->updateDeviceList(source.type);
  Decisions::tell(nullptr);
}

bool InspectedList::get(std::vector<IntegratedDevice>& list) const {
  list.clear();
  return mList->getDeviceList(list);
}

bool awaitsBluetooth(const TableCopy& funcInfo) {
  return funcInfo.isRead() && fieldAt<std::uint8_t>(funcInfo, FUNC_INFO_SOURCE.dataOffset +
                                                                  offsetof(wire::FuncInfoStruct, btFunctionFlag)) != 0;
}

}  // namespace idl::tools
