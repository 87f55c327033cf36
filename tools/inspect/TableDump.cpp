// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/TableDump.h"

#include <type_traits>

#include "FixedText.h"
#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "IntegratedDeviceList/WireFormat.h"

namespace idl::tools {

namespace {

template <class Number>
DumpedField field(const char* name, Number value) {
  DumpedField dumped{
      name, sizeof(Number) == 8 ? DumpedField::Kind::LONG_NUMBER : DumpedField::Kind::NUMBER, 0, false, {}, true};
  dumped.isSigned = std::is_signed_v<Number>;
  dumped.number = static_cast<std::uint64_t>(value);  // a negative one keeps its bits
  return dumped;
}

template <std::size_t Size>
DumpedField field(const char* name, const char (&value)[Size]) {
  DumpedField dumped{name, DumpedField::Kind::TEXT, 0, false, std::string(fixedText(value)), true};
  dumped.hasEnd = dumped.text.size() < Size;
  return dumped;
}

DumpedSlot dumped(unsigned k, const wire::BtSlot& slot) {
  return {k,
          slot.id != LmSIntegratedDeviceListDef::DeviceInfo::BTID_NONE,
          {field("header", slot.header), field("id", slot.id), field("name", slot.name), field("address", slot.address),
           field("info", slot.info), field("flag1", slot.flag1), field("flag2", slot.flag2)}};
}

DumpedSlot dumped(unsigned k, const wire::AapSlot& slot) {
  return {k,
          !fixedText(slot.id).empty(),
          {field("header", slot.header), field("session", slot.session), field("name", slot.name), field("id", slot.id),
           field("btid", slot.btid), field("port", slot.port)}};
}

DumpedSlot dumped(unsigned k, const cps_def::WCPAtom& slot) {
  return {k,
          slot.valid != 0 && slot.identifier != 0,
          {field("identifier", slot.identifier), field("name", slot.name), field("btid", slot.btid),
           field("inSession", slot.inSession), field("session", slot.session), field("valid", slot.valid)}};
}

template <class Slot>
void addSlots(const TableCopy& copy, std::size_t offset, unsigned count, TableDump& dump) {
  for (unsigned k = 0; k < count && copy.bytes.size() >= offset + (k + 1) * sizeof(Slot); ++k) {
    dump.slots.push_back(dumped(k, fieldAt<Slot>(copy, offset + k * sizeof(Slot))));
  }
}

}  // namespace

TableDump dumpTable(const Source& source, const TableCopy& copy) {
  TableDump dump;
  if (copy.bytes.size() >= sizeof(std::uint32_t)) {
    dump.head.push_back(field("dataSize", fieldAt<std::uint32_t>(copy, 0)));
  }
  const std::size_t payload = source.dataOffset;
  if (&source == &BT_SOURCE) {
    addSlots<wire::BtSlot>(copy, payload, wire::BtPairedDeviceList::SLOT_COUNT, dump);
  } else if (&source == &AAP_SOURCE) {
    addSlots<wire::AapSlot>(copy, payload, wire::AapDeviceList::SLOT_COUNT, dump);
  } else if (&source == &CP_SOURCE) {
    using Table = wire::CarPlaySharedMemStruct;
    dump.head.push_back(field("currentPhone", fieldAt<std::uint64_t>(copy, payload + offsetof(Table, currentPhone))));
    addSlots<cps_def::WCPAtom>(copy, payload + offsetof(Table, phones), Table::PHONE_COUNT, dump);
    dump.head.push_back(field("initialised", fieldAt<std::uint8_t>(copy, payload + offsetof(Table, initialised))));
  } else {
    dump.head.push_back(
        field("btFunctionFlag", fieldAt<std::uint8_t>(copy, payload + offsetof(wire::FuncInfoStruct, btFunctionFlag))));
  }
  return dump;
}

}  // namespace idl::tools
