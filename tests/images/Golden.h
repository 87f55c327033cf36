// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_IMAGES_GOLDEN_H
#define TESTS_IMAGES_GOLDEN_H

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

/// The bytes that the unit's own programs made (unit_images). Nothing here knows a type of the library.
namespace golden {

/// A golden file whole; throws when it is not there or not `size` bytes long.
inline std::string load(const std::string& name, std::size_t size) {
  const char* elsewhere = std::getenv("LM_TEST_GOLDEN");
  const std::filesystem::path folder = elsewhere != nullptr ? elsewhere : LM_TEST_GOLDEN_FOLDER;
  std::ifstream file(folder / name, std::ios::binary);
  if (!file) {
    throw std::runtime_error("no golden file " + (folder / name).string());
  }
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (bytes.size() != size) {
    throw std::runtime_error(name + " has another size");
  }
  return bytes;
}

inline std::string pairings() { return load("BtPairedDeviceList.bin", 1124); }
inline std::string autoPhones() { return load("AapDeviceList.bin", 6292); }
inline std::string carPlay() { return load("LmSCarplayResource.bin", 13736); }
inline std::string functions() { return load("FuncInfo.bin", 2108); }
inline std::string savedBefore() { return load("IDLSuffix.ini.bin", 2630); }
inline std::string savedAfter() { return load("IDLSuffix.after.bin", 2630); }

/// The little-endian number of `width` bytes at `offset`.
inline std::uint64_t number(const std::string& bytes, std::size_t offset, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = width; i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes.at(offset + i - 1));
  }
  return value;
}

/// A run of letters, as long names are made of.
inline std::string run(char first, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    text += static_cast<char>(first + static_cast<char>(i % 26));
  }
  return text;
}

}  // namespace golden

#endif
