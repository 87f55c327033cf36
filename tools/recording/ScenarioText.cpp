// SPDX-License-Identifier: Apache-2.0
#include "tools/recording/ScenarioText.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "IntegratedDeviceList/WireFormat.h"
#include "tools/inspect/InspectedList.h"
#include "tools/inspect/TableDump.h"
#include "tools/text/Duration.h"
#include "tools/text/Escape.h"

namespace idl::tools::recording {

namespace {

std::string handleOf(const Source& source, unsigned slot) { return source.word + std::to_string(slot); }

std::string btidText(std::uint64_t btid) { return btid == 255 ? "none" : std::to_string(btid); }

const DumpedField& fieldCalled(const DumpedSlot& slot, const std::string& name) {
  return *std::find_if(slot.fields.begin(), slot.fields.end(),
                       [&](const DumpedField& field) { return field.name == name; });
}

std::string text(const DumpedSlot& slot, const char* name) { return quotedText(fieldCalled(slot, name).text); }

std::uint64_t number(const DumpedSlot& slot, const char* name) { return fieldCalled(slot, name).number; }

std::string rowText(const LmSIntegratedDeviceListDef::DeviceInfo& phone) {
  return quotedText(phone.name) + " type=" + sourceOf(phone.type).word + " btid=" + btidText(phone.btid) +
         " port=" + std::to_string(phone.port) + " session=" + std::to_string(phone.session) +
         " suffix=" + std::to_string(phone.suffix) + " cp=" + std::to_string(phone.cpDeviceId) +
         " aap=" + quotedText(phone.aapId);
}

}  // namespace

ScenarioText::ScenarioText(std::ostream& output) : mOutput(output) {
  mOutput
      << "# Told from a recording. Phones are called by their source and slot; the client refreshes as often as the\n"
         "# recorded list did.\nclient stop\n";
}

void ScenarioText::take(const Event& event) {
  switch (event.kind) {
    case Event::Kind::FUNC_INFO:
      mFuncInfo = event.copy;  // clients read it when they start
      return;
    case Event::Kind::SAVED:
      mSaved = event.saved;
      return;
    case Event::Kind::BEGIN:
      beginClient();
      return;
    case Event::Kind::END:
      return;
    case Event::Kind::TABLE:
      break;
  }
  const Source& source = *event.source;
  mOutput << "\n# " << durationText(event.time) << '\n';
  takeTable(source, event.copy);
  if (event.isPass) {
    mOutput << "client refresh " << source.word << '\n';
    expect(event.list);
  }
}

void ScenarioText::beginClient() {
  std::set<unsigned> known;
  for (const auto& entry : savedEntries(mSaved)) {
    if (entry.btid == LmSIntegratedDeviceListDef::DeviceInfo::BTID_NONE || !known.insert(entry.btid).second) {
      mOutput << "# a saved number that scenarios cannot tell: " << quotedText(entry.name) << '\n';
      mIsTold = false;
      continue;
    }
    mOutput << "saved set " << quotedText(entry.name) << " btid=" << unsigned{entry.btid}
            << " suffix=" << unsigned{entry.suffix} << '\n';
  }
  if (awaitsBluetooth(mFuncInfo)) {
    mOutput << "funcinfo bt=yes\n";
  }
  mOutput << "client start follow=no refresh=none\n";
}

void ScenarioText::takeTable(const Source& source, const TableCopy& copy) {
  Table& table = tableOf(source);
  if (copy.isAbsent()) {
    mOutput << "# " << source.word << " vanished; a list keeps its phones\n";
    return;
  }
  if (copy.state == TableCopy::State::UNREADABLE) {
    mOutput << "# " << source.word << " could not be read\n";
    return;
  }
  if (table.isCut) {
    mOutput << source.word << " return\n";
    table.isCut = false;
  }
  if (copy.isRead()) {
    tellPhones(source, copy);
  }
  if (copy.bytes.size() < source.segmentSize) {
    mOutput << source.word << " cut bytes=" << copy.bytes.size() << '\n';
    table.isCut = true;
  }
}

void ScenarioText::tellPhones(const Source& source, const TableCopy& copy) {
  Table& table = tableOf(source);
  std::map<unsigned, Listed> now;
  for (const DumpedSlot& slot : dumpTable(source, copy).slots) {
    if (!slot.isOccupied) {
      continue;
    }
    Listed phone;
    phone.fields = " name=" + text(slot, "name");
    if (&source == &BT_SOURCE) {
      phone.fields += " btid=" + btidText(number(slot, "id")) + " address=" + text(slot, "address");
      phone.verb = "bt pair ";
    } else if (&source == &CP_SOURCE) {
      const std::uint64_t btid = number(slot, "btid");
      if (btid == LmSIntegratedDeviceListDef::DeviceInfo::BTID_NONE) {
        mOutput << "# CarPlay gives " << handleOf(source, slot.slot)
                << " the Bluetooth id 255, which scenarios cannot tell\n";
        mIsTold = false;
      }
      phone.cpDeviceId = number(slot, "identifier");
      phone.fields += " cp=" + std::to_string(phone.cpDeviceId) + " btid=" + btidText(btid == 0 ? 255 : btid) +
                      " session=" + std::to_string(number(slot, "inSession") != 0 ? 1 : number(slot, "session"));
      phone.verb = "cp known ";
    } else {
      const auto port = static_cast<std::int64_t>(number(slot, "port"));
      phone.fields += " aap=" + text(slot, "id") + " btid=" + btidText(number(slot, "btid")) +
                      " port=" + std::to_string(port) + " session=" + std::to_string(number(slot, "session"));
      phone.verb = port != 0 ? "aap plug " : "aap known ";
    }
    const bool haveEnds =
        std::all_of(slot.fields.begin(), slot.fields.end(), [](const auto& field) { return field.hasEnd; });
    if (!haveEnds) {
      mOutput << "# a text of " << handleOf(source, slot.slot) << " has no end, which scenarios cannot tell\n";
      mIsTold = false;
    }
    now[slot.slot] = phone;
  }
  const std::map<unsigned, Listed> former = table.phones;
  for (const auto& [slot, phone] : former) {
    if (now.count(slot) == 0) {
      forget(source, slot);
    }
  }
  for (const auto& [slot, phone] : now) {
    tellPhone(source, slot, phone);
  }
  std::vector<unsigned> order;
  for (const auto& [slot, place] : table.places) {
    order.push_back(place);
  }
  if (!std::is_sorted(order.begin(), order.end())) {
    relist(source);
  }
  if (&source == &CP_SOURCE) {
    connect(fieldAt<std::uint64_t>(copy, source.dataOffset + offsetof(wire::CarPlaySharedMemStruct, currentPhone)));
  }
}

void ScenarioText::tellPhone(const Source& source, unsigned slot, const Listed& phone) {
  Table& table = tableOf(source);
  const std::string handle = handleOf(source, slot);
  const auto known = table.phones.find(slot);
  if (known == table.phones.end() || known->second.fields != phone.fields) {
    mOutput << (mHandles.insert(handle).second ? "phone add " : "phone change ") << handle << phone.fields << '\n';
  }
  if (known == table.phones.end()) {
    unsigned place = 0;
    while (std::any_of(table.places.begin(), table.places.end(),
                       [&](const auto& taken) { return taken.second == place; })) {
      ++place;
    }
    table.places[slot] = place;
    mOutput << phone.verb << handle << '\n';
  }
  table.phones[slot] = phone;
}

void ScenarioText::forget(const Source& source, unsigned slot) {
  Table& table = tableOf(source);
  const std::string handle = handleOf(source, slot);
  mOutput << source.word << (&source == &BT_SOURCE ? " unpair " : " forget ") << handle << '\n';
  table.phones.erase(slot);
  table.places.erase(slot);
  if (table.connectedTo == handle) {
    table.connectedTo.clear();
  }
}

// In the order of the recorded slots, which a list keeps where nothing else decides.
void ScenarioText::relist(const Source& source) {
  Table& table = tableOf(source);
  mOutput << source.word << " clear\n";
  table.connectedTo.clear();
  unsigned place = 0;
  for (const auto& [slot, phone] : table.phones) {
    mOutput << phone.verb << handleOf(source, slot) << '\n';
    table.places[slot] = place++;
  }
}

void ScenarioText::connect(std::uint64_t identifier) {
  Table& table = tableOf(CP_SOURCE);
  const auto wanted = std::find_if(table.phones.begin(), table.phones.end(), [&](const auto& phone) {
    return identifier != 0 && phone.second.cpDeviceId == identifier;
  });
  const std::string handle = wanted == table.phones.end() ? "" : handleOf(CP_SOURCE, wanted->first);
  if (identifier != 0 && handle.empty()) {
    mOutput << "# CarPlay says that " << identifier << " is connected, which is no phone of its table\n";
    mIsTold = false;
  }
  if (handle != table.connectedTo) {
    mOutput << (handle.empty() ? "cp disconnect" : "cp connect " + handle) << '\n';
    table.connectedTo = handle;
  }
}

void ScenarioText::expect(const RecordedList& list) {
  const char* const begin = mIsTold ? "" : "# ";
  if (!list.isStarted) {
    mOutput << begin << "expect started no\n";
    mExpected = list;
    return;
  }
  mOutput << begin << "expect list count=" << list.rows.size() << '\n';
  for (std::size_t k = 0; k < list.rows.size(); ++k) {
    if (k >= mExpected.rows.size() || mExpected.rows[k] != list.rows[k]) {
      mOutput << begin << "expect row " << k + 1 << ' ' << rowText(list.rows[k].header) << '\n';
    }
  }
  mExpected = list;
}

}  // namespace idl::tools::recording
