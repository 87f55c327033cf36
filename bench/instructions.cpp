// SPDX-License-Identifier: Apache-2.0
// instructions WHAT: does WHAT as often as it says, for scripts/instructions to have it counted. Only what measured()
// does is to be counted.
//
//     instructions bluetooth|carplay|aap|read
//
// Run it with LM_SAVE_FILE_DIR at an empty folder.

#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Phones.h"

namespace {

using idl::cost::DeviceType;
using idl::cost::IntegratedDevice;

// As many as it takes for what a lock does only now and then (once in 65 times) to come up as often as it should.
constexpr unsigned ROUNDS = 65;

void settle(LmSIntegratedDeviceList& list) {
  for (unsigned round = 0; round < 2; ++round) {
    for (const DeviceType source : idl::cost::SOURCES) {
      list.updateDeviceList(source);
    }
  }
}

}  // namespace

// Not in line and not in a namespace, so that its name is found.
extern "C" __attribute__((noinline, visibility("default"))) void measured(LmSIntegratedDeviceList& list,
                                                                          const DeviceType* source,
                                                                          std::vector<IntegratedDevice>& copy) {
  for (unsigned round = 0; round < ROUNDS; ++round) {
    if (source != nullptr) {
      list.updateDeviceList(*source);
    } else {
      list.getDeviceList(copy);
    }
  }
}

int main(int argc, char** argv) {
  const std::string what = argc == 2 ? argv[1] : "";
  const DeviceType* source = nullptr;
  for (const DeviceType& candidate : idl::cost::SOURCES) {
    if (what == idl::cost::nameOf(candidate)) {
      source = &candidate;
    }
  }
  if (source == nullptr && what != "read") {
    std::cerr << "usage: instructions bluetooth|carplay|aap|read\n";
    return 2;
  }

  LmSIntegratedDeviceList& list = *LmSIntegratedDeviceList::getInstance();
  list.initialize();
  idl::cost::Phones phones;
  phones.fill(idl::cost::Names::DIFFERENT);
  settle(list);
  std::vector<IntegratedDevice> copy;
  if (!list.getDeviceList(copy) || copy.size() != idl::cost::MOST_PHONES) {
    throw std::logic_error("not as many phones as there should be");
  }

  measured(list, source, copy);
  std::cout << ROUNDS << '\n';
  return 0;
}
