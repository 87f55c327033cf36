// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SIMULATOR_CLIENT_H
#define TESTS_SIMULATOR_CLIENT_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <sstream>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

/// The names that a client lists which starts now and refreshes that source alone; in a process of its own, whose death
/// is a failure.
inline std::vector<std::string> listedBy(LmSIntegratedDeviceListDef::DeviceType source) {
  const TempFolder folder;
  ChildProcess client([&folder, source] {
    setenv("LM_SAVE_FILE_DIR", (folder / "saved").c_str(), 1);
    LmSIntegratedDeviceList* const list = LmSIntegratedDeviceList::getInstance();
    list->initialize();
    list->updateDeviceList(source);
    std::vector<LmSIntegratedDeviceListDef::IntegratedDevice> phones;
    if (!list->getDeviceList(phones)) {
      return 1;
    }
    std::string names;
    for (const LmSIntegratedDeviceListDef::IntegratedDevice& phone : phones) {
      names += phone.name + "\n";
    }
    folder.put("names", names);
    return 0;
  });
  EXPECT_EQ(client.wait(), 0) << "the client";
  std::istringstream lines(folder.contents("names"));
  std::vector<std::string> names;
  for (std::string line; std::getline(lines, line);) {
    names.push_back(line);
  }
  return names;
}

#endif
