// SPDX-License-Identifier: Apache-2.0
// unit_images FOLDER            writes the golden files into FOLDER
// unit_images --compare FOLDER  makes them again and compares; the variable LM_TEST_GOLDEN names another folder
//
// The tables of the unit's services and the saved file, as the unit's own compiler lays them out: real objects of
// polymorphic classes, which share nothing with the library's declarations. What the compiler puts where is checked
// against the numbers that all machines agreed on; only a compiler that agrees makes any file. Exits 0 when all is
// well, 1 when something differs, 2 for bad arguments.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace {

bool layoutIsWrong = false;

void expectLayout(const char* what, std::size_t found, std::size_t expected) {
  if (found != expected) {
    std::fprintf(stderr, "unit_images: %s is %zu, not %zu\n", what, found, expected);
    layoutIsWrong = true;
  }
}

// A published Bluetooth phone.
class Pairing {
 public:
  virtual ~Pairing() = default;

  std::uint8_t id = 255;
  char name[81] = {};
  char address[18] = {};
  std::uint32_t info = 0;
  std::uint8_t flag1 = 1;
  std::uint8_t flag2 = 0;
};

// A published Android Auto phone.
class AutoPhone {
 public:
  virtual ~AutoPhone() = default;

  std::uint8_t session = 0;
  char name[257] = {};
  char id[257] = {};
  std::uint8_t btid = 255;
  std::int32_t port = 0;
};

// A CarPlay phone: plain, copied as it is.
struct CarPhone {
  std::uint64_t identifier;
  char name[256];
  std::uint8_t btid;
  std::uint8_t inSession;
  std::uint8_t session;
  std::uint8_t reserved1[2];
  std::uint8_t valid;
  std::uint8_t reserved2[26];
};

struct CarPlayState {
  std::uint8_t before[1064];
  std::uint64_t currentPhone;
  std::uint8_t between[720];
  CarPhone phones[11];
  std::uint8_t behind[8676];
  std::uint8_t initialised;
};

struct Functions {
  std::uint32_t before[127];
  std::uint8_t bluetooth;
  std::uint8_t behind[1595];
};

struct SavedNumber {
  std::uint8_t inUse;
  std::uint8_t btid;
  char name[260];
  std::uint8_t suffix;
};

// What every segment is: the payload's size, then the payload where its alignment puts it.
template <class Payload>
struct Segment {
  std::uint32_t dataSize = sizeof(Payload);
  Payload payload = {};
};

struct PairingList {
  Pairing slots[10];
};

struct AutoPhoneList {
  AutoPhone slots[12];
};

static_assert(sizeof(Pairing) == 112 && sizeof(AutoPhone) == 524 && sizeof(CarPhone) == 296);
static_assert(sizeof(Segment<PairingList>) == 1124 && sizeof(Segment<AutoPhoneList>) == 6292);
static_assert(sizeof(CarPlayState) == 13728 && sizeof(Segment<CarPlayState>) == 13736 && alignof(CarPhone) == 8);
static_assert(sizeof(Functions) == 2104 && sizeof(Segment<Functions>) == 2108);
static_assert(sizeof(SavedNumber[10]) == 2630);
static_assert(std::is_polymorphic_v<Pairing> && std::is_polymorphic_v<AutoPhone>);

// The bytes of objects as they lie in memory, with everything that is no field's at zero: header words, padding.
class Image {
 public:
  explicit Image(std::size_t size) : mBytes(size, '\0') {}

  template <class Object, class Field>
  void add(const char* what, const Object& whole, const Field& field, std::size_t expectedOffset) {
    static_assert(std::is_trivially_copyable_v<Field>);
    const auto offset =
        static_cast<std::size_t>(reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&whole));
    expectLayout(what, offset, expectedOffset);
    if (offset + sizeof(Field) <= mBytes.size()) {
      std::memcpy(&mBytes[offset], &field, sizeof(Field));
    }
  }

  const std::string& bytes() const { return mBytes; }

 private:
  std::string mBytes;
};

std::string run(char first, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    text += static_cast<char>(first + static_cast<char>(i % 26));
  }
  return text;
}

const std::string NAME_OF_80 = run('A', 80);
const std::string NAME_OF_255 = run('k', 255);
const std::string NAME_OF_256 = run('a', 256);
const std::string ID_OF_256 = run('B', 256);
const std::string NAME_OF_259 = run('C', 259);

// Text and NUL; what stood behind in the field stays.
template <std::size_t Size>
void setText(char (&field)[Size], const std::string& text) {
  if (text.size() >= Size) {
    std::abort();
  }
  std::memcpy(field, text.c_str(), text.size() + 1);
}

void setPairing(Pairing& slot, std::uint8_t id, const std::string& name, const std::string& address, std::uint32_t info,
                std::uint8_t flag1, std::uint8_t flag2) {
  slot.id = id;
  setText(slot.name, name);
  setText(slot.address, address);
  slot.info = info;
  slot.flag1 = flag1;
  slot.flag2 = flag2;
}

std::string makePairings() {
  const auto segment = std::make_unique<Segment<PairingList>>();
  Pairing(&slots)[10] = segment->payload.slots;
  setPairing(slots[0], 9, "Ninth", "09:11:22:33:44:55", 0x80000000, 0, 1);
  setPairing(slots[1], 3, "Phone", "A0:B1:C2:D3:E4:03", 0x12345678, 1, 0);
  setPairing(slots[2], 255, "unpaired since", "FF:FF:FF:FF:FF:FF", 7, 1, 1);
  setText(slots[3].name, "the name it had before");
  setPairing(slots[3], 5, "Phone", "", 0xFFFFFFFF, 255, 255);
  setPairing(slots[4], 254, "\x80\x81\xFE\xFF", "FE:00:00:00:00:01", 1, 1, 254);
  setPairing(slots[5], 0, "Zero", "00:00:00:00:00:00", 0, 0, 0);
  setPairing(slots[6], 7, "T\xE9l\xE9phone", "07:07:07:07:07:07", 0x000000FF, 2, 3);
  setPairing(slots[8], 2, NAME_OF_80, "02:22:22:22:22:22", 0x00FF00FF, 1, 0);
  setPairing(slots[9], 1, "First", "01:23:45:67:89:AB", 42, 16, 32);

  Image image(sizeof(*segment));
  image.add("the pairings' size word", *segment, segment->dataSize, 0);
  for (std::size_t k = 0; k < 10; ++k) {
    const std::size_t slot = 4 + 112 * k;
    image.add("Pairing::id", *segment, slots[k].id, slot + 4);
    image.add("Pairing::name", *segment, slots[k].name, slot + 5);
    image.add("Pairing::address", *segment, slots[k].address, slot + 86);
    image.add("Pairing::info", *segment, slots[k].info, slot + 104);
    image.add("Pairing::flag1", *segment, slots[k].flag1, slot + 108);
    image.add("Pairing::flag2", *segment, slots[k].flag2, slot + 109);
  }
  return image.bytes();
}

void setAutoPhone(AutoPhone& slot, std::uint8_t session, const std::string& name, const std::string& id,
                  std::uint8_t btid, std::int32_t port) {
  slot.session = session;
  setText(slot.name, name);
  setText(slot.id, id);
  slot.btid = btid;
  slot.port = port;
}

std::string makeAutoPhones() {
  const auto segment = std::make_unique<Segment<AutoPhoneList>>();
  AutoPhone(&slots)[12] = segment->payload.slots;
  setAutoPhone(slots[0], 1, "Phone", "aap-1", 3, 1);
  setAutoPhone(slots[1], 4, "has a name, but no id", "", 5, 9);
  setAutoPhone(slots[2], 255, NAME_OF_256, ID_OF_256, 255, 2);
  setAutoPhone(slots[3], 7, "Phone", "x", 1, -1);
  setAutoPhone(slots[4], 2, "Phone", "unknown pairing, attached", 77, -5);
  setAutoPhone(slots[5], 2, "Nowhere", "unknown pairing, not attached", 78, 0);
  setAutoPhone(slots[6], 2, "Nowhere", "no pairing, negative port", 255, -3);
  setAutoPhone(slots[7], 2, "Nowhere", "no pairing, no port", 255, 0);
  setText(slots[8].name, "the name it had before");
  setAutoPhone(slots[8], 3, "\x80\xFF Auto", "\xC3\xA9", 0, 2147483647);
  setAutoPhone(slots[9], 0, "", "1", 255, 4);
  setAutoPhone(slots[11], 9, "Phone", "last", 255, 5);

  Image image(sizeof(*segment));
  image.add("the Android Auto phones' size word", *segment, segment->dataSize, 0);
  for (std::size_t k = 0; k < 12; ++k) {
    const std::size_t slot = 4 + 524 * k;
    image.add("AutoPhone::session", *segment, slots[k].session, slot + 4);
    image.add("AutoPhone::name", *segment, slots[k].name, slot + 5);
    image.add("AutoPhone::id", *segment, slots[k].id, slot + 262);
    image.add("AutoPhone::btid", *segment, slots[k].btid, slot + 519);
    image.add("AutoPhone::port", *segment, slots[k].port, slot + 520);
  }
  return image.bytes();
}

void setCarPhone(CarPhone& slot, std::uint64_t identifier, const std::string& name, std::uint8_t btid,
                 std::uint8_t inSession, std::uint8_t session, std::uint8_t valid) {
  slot.identifier = identifier;
  setText(slot.name, name);
  slot.btid = btid;
  slot.inSession = inSession;
  slot.session = session;
  slot.valid = valid;
}

// What the service writes into a fresh resource, at its offset in the segment.
struct Default {
  std::size_t offset;
  std::size_t width;
  std::uint32_t value;
};

constexpr Default DEFAULTS[] = {
    {452, 4, 10},          {456, 1, 1},           {457, 1, 1},           {458, 1, 1},           {459, 1, 1},
    {460, 1, 1},           {736, 4, 1},           {752, 4, 1},           {740, 4, 100},         {744, 4, 100},
    {748, 4, 100},         {756, 4, 100},         {760, 4, 100},         {764, 4, 100},         {768, 4, 0xFFFFFFFF},
    {772, 4, 0xFFFFFFFF},  {776, 4, 0xFFFFFFFF},  {1368, 4, 255},        {1376, 4, 255},        {1380, 4, 255},
    {1384, 4, 255},        {1412, 4, 255},        {1496, 4, 149},        {1760, 1, 1},          {1761, 1, 1},
    {1769, 1, 1},          {1764, 4, 0xFFFFFFFF}, {1788, 4, 2},          {5120, 4, 0xCAFEF00D}, {5124, 4, 0xCAFEF00D},
    {5132, 4, 0xFFFFFFFF}, {5232, 4, 2},          {7864, 4, 0xFFFFFFFF}, {8044, 2, 7000},       {8046, 1, 1},
    {11220, 4, 44100},
};

std::string makeCarPlay() {
  const auto segment = std::make_unique<Segment<CarPlayState>>();
  CarPlayState& state = segment->payload;
  for (const Default& entry : DEFAULTS) {
    std::memcpy(reinterpret_cast<char*>(&state) - 8 + entry.offset, &entry.value, entry.width);
  }
  // The upper word's bit 9 is clear, its neighbours are not: no other phone counts as attached.
  state.currentPhone = 0x00000500DEADBEEF;
  setCarPhone(state.phones[0], 1, "Phone", 3, 0, 66, 1);
  setCarPhone(state.phones[1], 0xFFFFFFFFFFFFFFFF, NAME_OF_255, 9, 1, 3, 255);
  setCarPhone(state.phones[2], 0x2222, "not valid", 5, 0, 5, 0);
  setCarPhone(state.phones[3], 0, "no identifier", 7, 0, 5, 1);
  setCarPhone(state.phones[4], state.currentPhone, "Current", 0, 0, 12, 1);
  setCarPhone(state.phones[5], 0x5555, "unknown pairing", 88, 0, 5, 1);
  setCarPhone(state.phones[6], 0x6666, "nowhere", 255, 0, 5, 1);
  setCarPhone(state.phones[10], 0x0102030405060708, "Phone 2", 254, 0, 200, 1);
  std::memset(state.phones[1].reserved1, 0x5A, sizeof(state.phones[1].reserved1));
  std::memset(state.phones[1].reserved2, 0xA5, sizeof(state.phones[1].reserved2));
  state.initialised = 1;

  Image image(sizeof(*segment));
  image.add("CarPlay's size word", *segment, segment->dataSize, 0);
  image.add("CarPlayState::before", *segment, state.before, 8);
  image.add("CarPlayState::currentPhone", *segment, state.currentPhone, 1072);
  image.add("CarPlayState::between", *segment, state.between, 1080);
  for (std::size_t k = 0; k < 11; ++k) {
    const CarPhone& phone = state.phones[k];
    const std::size_t entry = 1800 + 296 * k;
    image.add("CarPhone::identifier", *segment, phone.identifier, entry);
    image.add("CarPhone::name", *segment, phone.name, entry + 8);
    image.add("CarPhone::btid", *segment, phone.btid, entry + 264);
    image.add("CarPhone::inSession", *segment, phone.inSession, entry + 265);
    image.add("CarPhone::session", *segment, phone.session, entry + 266);
    image.add("CarPhone::reserved1", *segment, phone.reserved1, entry + 267);
    image.add("CarPhone::valid", *segment, phone.valid, entry + 269);
    image.add("CarPhone::reserved2", *segment, phone.reserved2, entry + 270);
  }
  image.add("CarPlayState::behind", *segment, state.behind, 5056);
  image.add("CarPlayState::initialised", *segment, state.initialised, 13732);
  return image.bytes();
}

// Bluetooth is among the functions; the other bytes are somebody else's and say so.
std::string makeFunctions() {
  const auto segment = std::make_unique<Segment<Functions>>();
  std::memset(segment->payload.before, 0x11, sizeof(segment->payload.before));
  segment->payload.bluetooth = 1;
  std::memset(segment->payload.behind, 0x22, sizeof(segment->payload.behind));

  Image image(sizeof(*segment));
  image.add("the functions' size word", *segment, segment->dataSize, 0);
  image.add("Functions::before", *segment, segment->payload.before, 4);
  image.add("Functions::bluetooth", *segment, segment->payload.bluetooth, 512);
  image.add("Functions::behind", *segment, segment->payload.behind, 513);
  return image.bytes();
}

struct Number {
  std::uint8_t btid;
  std::string name;
  std::uint8_t suffix;
};

std::string makeSavedFile(const std::vector<Number>& numbers) {
  SavedNumber records[10] = {};
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    records[i].inUse = 1;
    records[i].btid = numbers[i].btid;
    setText(records[i].name, numbers[i].name);
    records[i].suffix = numbers[i].suffix;
  }
  Image image(sizeof(records));
  for (std::size_t i = 0; i < 10; ++i) {
    image.add("SavedNumber::inUse", records, records[i].inUse, 263 * i);
    image.add("SavedNumber::btid", records, records[i].btid, 263 * i + 1);
    image.add("SavedNumber::name", records, records[i].name, 263 * i + 2);
    image.add("SavedNumber::suffix", records, records[i].suffix, 263 * i + 262);
  }
  return image.bytes();
}

// What the last journey left.
std::string makeSavedBefore() {
  return makeSavedFile({{5, "Phone", 1},
                        {3, "Phone", 4},
                        {254, "The name it had before", 3},
                        {9, NAME_OF_255, 2},
                        {100, "Gone", 9},
                        {8, NAME_OF_259, 255},
                        {0, "\x80\xFF Auto", 7}});
}

// What the list made of all the tables leaves.
std::string makeSavedAfter() {
  return makeSavedFile({{0, "\x80\xFF Auto", 7},
                        {1, "Phone", 5},
                        {2, NAME_OF_80, 1},
                        {3, "Phone", 4},
                        {5, "Phone", 1},
                        {7, "T\xE9l\xE9phone", 1},
                        {9, NAME_OF_255, 2},
                        {254, "Phone 2", 2}});
}

std::map<std::string, std::string> makeAll() {
  return {{"BtPairedDeviceList.bin", makePairings()}, {"AapDeviceList.bin", makeAutoPhones()},
          {"LmSCarplayResource.bin", makeCarPlay()},  {"FuncInfo.bin", makeFunctions()},
          {"IDLSuffix.ini.bin", makeSavedBefore()},   {"IDLSuffix.after.bin", makeSavedAfter()}};
}

bool writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    std::fprintf(stderr, "unit_images: %s cannot be written\n", path.c_str());
  }
  return static_cast<bool>(file);
}

bool compareFile(const std::string& path, const std::string& bytes) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "unit_images: %s cannot be read\n", path.c_str());
    return false;
  }
  const std::string golden{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (golden == bytes) {
    return true;
  }
  std::size_t at = 0;
  while (at < golden.size() && at < bytes.size() && golden[at] == bytes[at]) {
    ++at;
  }
  std::fprintf(stderr, "unit_images: %s has %zu bytes, made again %zu; they differ from byte %zu on\n", path.c_str(),
               golden.size(), bytes.size(), at);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  const bool compare = argc == 3 && std::string(argv[1]) == "--compare";
  if (!compare && argc != 2) {
    std::fprintf(stderr, "usage: unit_images [--compare] FOLDER\n");
    return 2;
  }
  std::string folder = argv[argc - 1];
  const char* elsewhere = std::getenv("LM_TEST_GOLDEN");
  if (compare && elsewhere != nullptr) {
    folder = elsewhere;
  }

  const std::map<std::string, std::string> files = makeAll();
  if (layoutIsWrong) {
    return 1;
  }
  bool well = true;
  for (const auto& [name, bytes] : files) {
    const std::string path = folder + "/" + name;
    well = (compare ? compareFile(path, bytes) : writeFile(path, bytes)) && well;
  }
  std::printf("%zu files %s\n", files.size(), compare ? "compared" : "written");
  return well ? 0 : 1;
}
