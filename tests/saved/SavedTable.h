// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_SAVED_SAVEDTABLE_H
#define TESTS_SAVED_SAVEDTABLE_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "LmFramework/SaveFileAccessFactory.h"
#include "SysDataFactory.h"
#include "SysDataWrapper.h"

/// The table of numbers in a folder, as the library itself saves it and reads it, and as its bytes say.
namespace saved_table {

using Table = std::vector<LmSIntegratedDeviceListDef::DeviceInfo>;

constexpr char NAME[] = "IDLSuffix.ini";
constexpr std::size_t SIZE = 2630;
constexpr std::size_t RECORD_SIZE = 263;

/// "3 Phone 2": Bluetooth id, name and number.
inline std::string told(unsigned btid, const std::string& name, unsigned suffix) {
  return std::to_string(btid) + " " + name + " " + std::to_string(suffix);
}

inline std::vector<std::string> told(const Table& table) {
  std::vector<std::string> texts;
  texts.reserve(table.size());
  for (const auto& entry : table) {
    texts.push_back(told(entry.btid, entry.name, entry.suffix));
  }
  return texts;
}

/// What a file's bytes mean, read byte by byte.
inline std::vector<std::string> meaningOf(std::string bytes) {
  bytes.resize(SIZE, '\0');
  std::vector<std::string> texts;
  for (std::size_t at = 0; at < SIZE && bytes[at] != 0; at += RECORD_SIZE) {
    std::string name;
    for (std::size_t i = at + 2; i < at + 262 && bytes[i] != 0; ++i) {
      name += bytes[i];
    }
    texts.push_back(told(static_cast<unsigned char>(bytes[at + 1]), name, static_cast<unsigned char>(bytes[at + 262])));
  }
  return texts;
}

inline LmSIntegratedDeviceListDef::DeviceInfo phone(unsigned btid, const std::string& name, unsigned suffix) {
  LmSIntegratedDeviceListDef::DeviceInfo info;
  info.btid = static_cast<std::uint8_t>(btid);
  info.name = name;
  info.suffix = static_cast<std::uint8_t>(suffix);
  return info;
}

/// Lets the library work in `folder` from now on. The access object stays while the folder does: what it is made of
/// keeps a registration for each of its lives, and thousands of them make slow tests.
inline void useFolder(const std::filesystem::path& folder) {
  const char* const used = std::getenv("LM_SAVE_FILE_DIR");
  if (used == nullptr || folder != used) {
    setenv("LM_SAVE_FILE_DIR", folder.c_str(), 1);
    SysDataFactory::destroy();
    SaveFileAccessFactory::destroy();
  }
}

/// What somebody who starts now loads from `folder`.
inline Table load(const std::filesystem::path& folder) {
  useFolder(folder);
  SysDataWrapper wrapper;
  Table table;
  wrapper.load(table);
  return table;
}

/// Saves `table` as somebody does who has loaded what is there.
inline void save(const std::filesystem::path& folder, const Table& table) {
  useFolder(folder);
  SysDataWrapper wrapper;
  Table before;
  wrapper.load(before);
  wrapper.save(table);
}

}  // namespace saved_table

#endif
