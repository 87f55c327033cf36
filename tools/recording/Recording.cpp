// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/Recording.h"

#include <tuple>

namespace idl::tools::recording {

namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are little-endian");

template <class Field>
void append(std::string& image, const Field& field) {
  image.append(reinterpret_cast<const char*>(&field), sizeof(field));
}

auto asTuple(const LmSIntegratedDeviceListDef::DeviceInfo& info) {
  return std::tie(info.type, info.name, info.btid, info.port, info.session, info.cpDeviceId, info.aapId, info.suffix);
}

}  // namespace

bool operator==(const RecordedRow& a, const RecordedRow& b) {
  return asTuple(a.header) == asTuple(b.header) && a.bt == b.bt && a.cp == b.cp && a.aap == b.aap;
}

RecordedRow rowOf(const LmSIntegratedDeviceListDef::IntegratedDevice& phone) {
  RecordedRow row;
  row.header = static_cast<const LmSIntegratedDeviceListDef::DeviceInfo&>(phone);
  append(row.bt, phone.btDevice.id);
  append(row.bt, phone.btDevice.name);
  append(row.bt, phone.btDevice.address);
  append(row.bt, phone.btDevice.info);
  append(row.bt, phone.btDevice.flag1);
  append(row.bt, phone.btDevice.flag2);
  append(row.cp, phone.cpDevice);
  append(row.aap, phone.aapDevice.session);
  append(row.aap, phone.aapDevice.name);
  append(row.aap, phone.aapDevice.id);
  append(row.aap, phone.aapDevice.btid);
  append(row.aap, phone.aapDevice.port);
  return row;
}

}  // namespace idl::tools::recording
