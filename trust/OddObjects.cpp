// SPDX-License-Identifier: Apache-2.0
// Each kind of object that is no table, in the place of each table, at each moment of a client's life. The others'
// phones are listed as ever, and the log has one line.
#include "support/OddObjects.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/PhoneTables.h"
#include "support/SharedRounds.h"
#include "support/TempFolder.h"
#include "trust/Campaign.h"
#include "trust/SharedFindings.h"

namespace {

using namespace LmSIntegratedDeviceListDef;

constexpr auto WATCHDOG = std::chrono::seconds(20);
constexpr unsigned LIVES_IN_A_STORM = 10;

// A table with one phone of its own; "FuncInfo" has none.
struct Place {
  const char* name;
  const char* phone;
  void (*make)();
};

constexpr Place PLACES[] = {
    {"/BtPairedDeviceList", "Bluetooth phone", [] { BtTable().phone(2, 3, "Bluetooth phone"); }},
    {"/AapDeviceList", "Android phone", [] { AapTable().phone(5, "Android phone", "id", 255, 4); }},
    {"/LmSCarplayResource", "CarPlay phone",
     [] {
       CpTable table;
       table.phone(10, 77, "CarPlay phone", 0);
       table.connect(77);
     }},
    {"/FuncInfo", nullptr, [] { FuncInfoTable(); }},
};

std::string pathOf(const Place& place) { return std::string("/dev/shm") + place.name; }

void makeTables() {
  for (const Place& place : PLACES) {
    removeOddObject(pathOf(place));
    place.make();
  }
}

struct Life {
  std::vector<std::string> names;
  std::string log;
  std::size_t lines = 0;
};

// From the first call of a client to its last; `attached` is called when its tables are attached.
template <class Attached>
Life live(const Attached& attached) {
  const CapturedStdErr log;
  LmSIntegratedDeviceList* list = LmSIntegratedDeviceList::getInstance();
  list->initialize();
  attached();
  for (const DeviceType type : {DEVICE_TYPE_BT, DEVICE_TYPE_CARPLAY, DEVICE_TYPE_AAP, DEVICE_TYPE_BT}) {
    list->updateDeviceList(type);
  }
  std::vector<IntegratedDevice> devices;
  list->getDeviceList(devices);
  LmSIntegratedDeviceList::destroy();
  Life life;
  std::transform(devices.begin(), devices.end(), std::back_inserter(life.names),
                 [](const IntegratedDevice& device) { return device.name; });
  life.log = log.text();
  life.lines = log.lines().size();
  return life;
}

bool has(const Life& life, const char* phone) {
  return std::count(life.names.begin(), life.names.end(), std::string(phone)) == 1;
}

class Trial {
 public:
  Trial(const OddObject& object, const Place& place, const SharedFindings& findings)
      : mObject(object), mPlace(place), mFindings(findings) {}

  // The object is there before the client.
  int before() const {
    putInPlace();
    const Life life = live([] {});
    expectOthers("before", life);
    expect("before", life, mPlace.phone == nullptr || !has(life, mPlace.phone), "its phone is listed");
    expect("before", life, life.names.size() == (mPlace.phone == nullptr ? 3 : 2), "phones out of nothing");
    expect("before", life, life.lines == 1, "not one line");
    return 0;
  }

  // The object takes the name of a table that the client has attached: that one is still read.
  int whileAttached() const {
    const Life life = live([this] { putInPlace(); });
    expectOthers("while attached", life);
    expect("while attached", life, life.names.size() == 3 && (mPlace.phone == nullptr || has(life, mPlace.phone)),
           "not the phones of the attached tables");
    expect("while attached", life, life.lines == 0, "a line");
    return 0;
  }

  // Object and table change places all the time while clients come and go.
  int inAStorm() const {
    const SharedRounds changes;
    ChildProcess storm([&]() -> int {
      for (;;) {
        putInPlace();
        removeOddObject(pathOf(mPlace));
        mPlace.make();
        changes.next();
      }
    });
    if (!changes.reach(1, WATCHDOG)) {
      mFindings.add("the storm did not begin");
    }
    for (unsigned i = 0; i < LIVES_IN_A_STORM; ++i) {
      const Life life = live([] {});
      expectOthers("in a storm", life);
      // A table that is not there is made by the client, and ten nameless phones are what a new Bluetooth table says.
      expect("in a storm", life, life.names.size() <= 12, "phones out of nothing");
      expect("in a storm", life, life.lines <= 1, "more than one line");
    }
    return 0;
  }

 private:
  void putInPlace() const {
    removeOddObject(pathOf(mPlace));
    mObject.make(pathOf(mPlace));
  }

  void expectOthers(const char* moment, const Life& life) const {
    for (const Place& place : PLACES) {
      expect(moment, life, place.phone == nullptr || place.name == mPlace.name || has(life, place.phone),
             "another source's phone is missing");
    }
  }

  void expect(const char* moment, const Life& life, bool isSo, const char* otherwise) const {
    if (!isSo) {
      mFindings.add(std::string(mObject.name) + " as " + mPlace.name + ", " + moment + ": " + otherwise + "; " +
                    std::to_string(life.names.size()) + " phones, " + life.log);
    }
  }

  const OddObject& mObject;
  const Place& mPlace;
  const SharedFindings& mFindings;
};

using Moment = int (Trial::*)() const;
constexpr Moment MOMENTS[] = {&Trial::before, &Trial::whileAttached, &Trial::inAStorm};

std::vector<OddObject> objectsThatCanBeMade() {
  std::vector<OddObject> objects;
  const std::string path = "/dev/shm/lm-odd-object";
  std::copy_if(std::begin(ODD_OBJECTS), std::end(ODD_OBJECTS), std::back_inserter(objects), [&](const auto& object) {
    const bool made = object.make(path);
    removeOddObject(path);
    return made;
  });
  return objects;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("odd-objects", "objects in a table's place", argc, argv);
  SharedFindings findings;
  const std::vector<OddObject> objects = objectsThatCanBeMade();
  const TempFolder saved;
  setenv("LM_SAVE_FILE_DIR", saved.path().c_str(), 1);

  for (std::uint64_t round = 0; round < campaign.count() && findings.count() < 20; ++round) {
    const Place& place = PLACES[round % std::size(PLACES)];
    const OddObject& object = objects[static_cast<std::size_t>(round / std::size(PLACES) % objects.size())];
    const Moment moment = MOMENTS[round / std::size(PLACES) / objects.size() % std::size(MOMENTS)];
    makeTables();
    ChildProcess client([&] { return (Trial(object, place, findings).*moment)(); });
    const int end = client.wait(WATCHDOG);
    const std::string what = std::string(object.name) + " as " + place.name;
    if (end == ChildProcess::HUNG) {
      campaign.hang(what);
      break;
    }
    if (end != 0) {
      campaign.crash(what + ": ended with " + std::to_string(end));
      break;
    }
    findings.tell(campaign);
    campaign.tried();
  }
  if (!noLinkWasFollowed()) {
    campaign.violation("a link was followed");
  }
  campaign.note(std::to_string(objects.size()) + " kinds of objects");
  return campaign.finish();
}
