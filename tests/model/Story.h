// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_MODEL_STORY_H
#define TESTS_MODEL_STORY_H

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"

/// What happens to a unit, told in plain values: what the three services publish, what a client asks for, when it is
/// restarted and what the saved file then holds. Stories are what the library and the model of it are compared on.
namespace model {

// What a service has in one of its slots. A text may be longer than its field: whoever writes the table cuts it.

struct BtPhone {
  std::uint8_t id = 0;
  std::string name;
  std::string address;
  std::uint32_t info = 0;
  std::uint8_t flag1 = 0;
  std::uint8_t flag2 = 0;
};

struct CpPhone {
  std::uint64_t identifier = 0;
  std::string name;
  std::uint8_t btid = 0;
  std::uint8_t inSession = 0;
  std::uint8_t session = 0;
  std::uint8_t valid = 0;
  std::uint8_t reserved = 0;  // in all the bytes that belong to the service alone
};

struct AapPhone {
  std::string id;
  std::string name;
  std::uint8_t session = 0;
  std::uint8_t btid = 0;
  std::int32_t port = 0;
};

constexpr unsigned BT_SLOTS = 10;
constexpr unsigned CP_SLOTS = 11;
constexpr unsigned AAP_SLOTS = 12;

/// A service writes a slot; null: it frees it.
template <class Phone>
struct Put {
  unsigned slot = 0;
  std::optional<Phone> phone;
};

/// The CarPlay service says which phone is connected, and by bit 41 that the others are attached by USB.
struct SetCurrentPhone {
  std::uint64_t identifier = 0;
};

/// The client takes over a source's table; there is no source 3.
struct Refresh {
  int type = 0;
};

/// How the client has names displayed.
enum class Format { BUILT_IN, CONSTANT, IDENTITY, TRUNCATING, NUMBER_FIRST };
constexpr unsigned FORMAT_COUNT = 5;

using FormatFunction = std::string (*)(const std::string& name, unsigned char suffix);

/// Null for the built-in one.
FormatFunction functionOf(Format format);

struct SetFormat {
  Format format = Format::BUILT_IN;
};

struct SavedRecord {
  std::uint8_t inUse = 1;
  std::uint8_t btid = 0;
  std::string name;
  std::uint8_t suffix = 0;
};

/// A saved file as it is found at a start: so many records, and then the damage.
struct SavedFile {
  std::vector<SavedRecord> records;      // more than ten make it too long
  std::optional<std::uint32_t> cutAt;    // only so many bytes of it
  std::optional<std::uint32_t> flipped;  // the byte there has all its bits inverted
};

/// The bytes of such a file. Every name in it ends within its field.
std::string bytesOf(const SavedFile& file);

/// One byte of the file that the client before has saved: what differs in so little is easily taken for the same.
struct Overwritten {
  std::uint32_t at = 0;
  std::uint8_t value = 0;
};

/// The client is ended and another one started.
struct Restart {
  std::optional<SavedFile> file;           // takes the place of the saved file; null: that stays
  std::optional<Overwritten> overwritten;  // where it stays
  bool removesFile = false;                // there is none, whatever else is said
  bool awaitsBluetooth = false;
  bool isInitialised = true;  // false: it forgets to
  Format format = Format::BUILT_IN;
};

/// What the next client finds, where `file` is what the last one has left; null: none.
std::optional<std::string> fileAfter(const Restart& restart, std::optional<std::string> file);

using Step = std::variant<Put<BtPhone>, Put<CpPhone>, Put<AapPhone>, SetCurrentPhone, Refresh, SetFormat, Restart>;

/// Begins with a start.
struct Story {
  Restart start;
  std::vector<Step> steps;
};

/// A list as it might be merged, for the numbering alone: it reaches what no tables lead to.
struct Number {
  struct Phone {
    std::string name;
    std::uint8_t btid = 255;
    std::int32_t port = 0;
  };
  std::vector<Phone> phones;
};

/// Of a Restart only the file and the format count.
struct NumberingStory {
  Restart start;
  std::vector<std::variant<Number, SetFormat, Restart>> steps;
};

std::ostream& operator<<(std::ostream& out, const Story& story);
std::ostream& operator<<(std::ostream& out, const NumberingStory& story);

}  // namespace model

#endif
