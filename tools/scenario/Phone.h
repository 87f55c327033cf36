// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_PHONE_H
#define TOOLS_SCENARIO_PHONE_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace idl::tools::scenario {

/// The services that list phones; the numbers are the list's device types.
enum class Source { BT = 0, CP = 1, AAP = 2 };

/// In the order in which a client refreshes them at its start.
constexpr std::array<Source, 3> SOURCES = {Source::BT, Source::CP, Source::AAP};

/// "bt", "cp" or "aap".
const char* wordOf(Source source);

/// The reverse; nothing for another word.
std::optional<Source> sourceOf(std::string_view word);

/// How many phones the source's table can hold.
unsigned slotCount(Source source);

constexpr std::uint8_t BTID_NONE = 255;

/// A phone, as any source may list it; each takes what its table has a field for.
struct Phone {
  std::string name;
  std::uint8_t btid = BTID_NONE;  // Bluetooth pairing id; BTID_NONE: not paired
  std::string address;            // Bluetooth's
  std::uint64_t cpId = 0;         // CarPlay's identifier
  std::string aapId;              // Android Auto's identifier
  std::int32_t port = 0;          // Android Auto's USB port; 0: not connected by USB
  std::uint8_t session = 0;       // session number at CarPlay and at Android Auto
};

/// Phones by their slots.
using PhoneTable = std::map<unsigned, Phone>;

/// A row of the client's list.
struct Row {
  Source type = Source::BT;
  std::string name;  // as displayed
  std::string own;   // as the source says it that the row's type names
  std::uint8_t btid = BTID_NONE;
  std::int32_t port = 0;
  std::uint8_t session = 0;
  std::uint8_t suffix = 0;
  std::uint64_t cpId = 0;
  std::string aapId;
};

}  // namespace idl::tools::scenario

#endif
