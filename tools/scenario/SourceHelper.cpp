// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/SourceHelper.h"

#include <map>
#include <stdexcept>

#include "LmFramework/SharedMemory/LmSharedMemory.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "simulator/TableClaim.h"
#include "tools/scenario/Bench.h"

namespace idl::tools::scenario {

namespace {

Phone takePhone(Record& record) {
  Phone phone;
  phone.name = record.text();
  phone.btid = static_cast<std::uint8_t>(record.number());
  phone.address = record.text();
  phone.cpId = record.number();
  phone.aapId = record.text();
  phone.port = static_cast<std::int32_t>(record.number());
  phone.session = static_cast<std::uint8_t>(record.number());
  return phone;
}

void convert(const Phone& phone, bench::BtPhone& converted) {
  converted.id = phone.btid;
  converted.name = phone.name;
  converted.address = phone.address;
}

void convert(const Phone& phone, bench::CpPhone& converted) {
  converted.identifier = phone.cpId;
  converted.name = phone.name;
  converted.btid = phone.btid == BTID_NONE ? std::uint8_t{0} : phone.btid;  // 0 says that there
  converted.session = phone.session;
}

void convert(const Phone& phone, bench::AapPhone& converted) {
  converted.id = phone.aapId;
  converted.name = phone.name;
  converted.session = phone.session;
  converted.btid = phone.btid;
  converted.port = phone.port;
}

template <class Publisher>
typename Publisher::Phone phoneIn(Record& record) {
  typename Publisher::Phone converted;
  convert(takePhone(record), converted);
  return converted;
}

bench::CrashPoint crashPoint(std::uint64_t moment) {
  switch (static_cast<CrashMoment>(moment)) {
    case CrashMoment::LOCKED:
      return bench::CrashPoint::LOCKED;
    case CrashMoment::HALF:
      return bench::CrashPoint::HALF_WRITTEN;
    case CrashMoment::NOTIFY:
      break;
  }
  return bench::CrashPoint::BEFORE_NOTIFY;
}

void setCurrent(bench::CpPublisher& publisher, std::uint64_t identifier) { publisher.setCurrentPhone(identifier); }

template <class Publisher>
void setCurrent(Publisher& /*publisher*/, std::uint64_t /*identifier*/) {
  throw std::invalid_argument("this service connects no phone");
}

template <class Publisher>
void obey(Publisher& publisher, Record& request) {
  switch (static_cast<SourceRequest>(request.number())) {
    case SourceRequest::INITIALISE:
      publisher.initialise();
      return;
    case SourceRequest::PUT: {
      const auto slot = static_cast<unsigned>(request.number());
      publisher.put(slot, phoneIn<Publisher>(request));
      return;
    }
    case SourceRequest::CLEAR:
      publisher.clear(static_cast<unsigned>(request.number()));
      return;
    case SourceRequest::REPLACE_ALL: {
      std::map<unsigned, typename Publisher::Phone> phones;
      for (std::uint64_t left = request.number(); left > 0; --left) {
        const auto slot = static_cast<unsigned>(request.number());
        phones[slot] = phoneIn<Publisher>(request);
      }
      publisher.replaceAll(phones);
      return;
    }
    case SourceRequest::CURRENT:
      setCurrent(publisher, request.number());
      return;
    case SourceRequest::CRASH: {
      const bench::CrashPoint point = crashPoint(request.number());
      const auto slot = static_cast<unsigned>(request.number());
      publisher.crash(point, slot, phoneIn<Publisher>(request));
    }
    case SourceRequest::GARBAGE:
      publisher.writeGarbage(static_cast<std::uint32_t>(request.number()));
      return;
  }
  throw std::invalid_argument("there is no such request");
}

template <class Publisher>
void serve(Source source, const BenchEnd& end) {
  const bench::TableClaim claim(segmentOf(source));
  Publisher publisher;
  end.serve([&](Record& request) {
    obey(publisher, request);
    return Record();
  });
}

}  // namespace

void addPhone(Record& record, const Phone& phone) {
  record.add(phone.name).add(phone.btid).add(phone.address).add(phone.cpId).add(phone.aapId);
  record.add(static_cast<std::uint64_t>(phone.port)).add(phone.session);
}

void runSource(Source source, const BenchEnd& end) {
  switch (source) {
    case Source::BT:
      serve<bench::BtPublisher>(source, end);
      return;
    case Source::CP:
      serve<bench::CpPublisher>(source, end);
      return;
    case Source::AAP:
      serve<bench::AapPublisher>(source, end);
      return;
  }
}

void runFuncInfo(const BenchEnd& end) {
  bench::FuncInfoPublisher publisher;
  end.serve([&](Record& request) {
    publisher.setBluetooth(request.number() != 0);
    return Record();
  });
}

const char* segmentOf(Source source) {
  switch (source) {
    case Source::BT:
      return wire::BT_SEGMENT;
    case Source::CP:
      return wire::CARPLAY_SEGMENT;
    case Source::AAP:
      break;
  }
  return wire::AAP_SEGMENT;
}

std::size_t segmentSize(Source source) {
  switch (source) {
    case Source::BT:
      return LmSharedMemory<wire::BtPairedDeviceList, 1>::SEGMENT_SIZE;
    case Source::CP:
      return LmSharedMemory<wire::CarPlaySharedMemStruct, 1>::SEGMENT_SIZE;
    case Source::AAP:
      break;
  }
  return LmSharedMemory<wire::AapDeviceList, 1>::SEGMENT_SIZE;
}

}  // namespace idl::tools::scenario
