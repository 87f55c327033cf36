// SPDX-License-Identifier: Apache-2.0
// Every value of every byte of a slot, texts without an end, extreme and random numbers: what the adapters list is
// compared with what this file, which knows offsets and nothing else, takes from the same bytes.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CpIntegratedDeviceList.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "trust/Campaign.h"
#include "trust/SharedFindings.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr auto WATCHDOG = std::chrono::seconds(20);

unsigned byteAt(const std::string& bytes, std::size_t offset) { return static_cast<unsigned char>(bytes.at(offset)); }

std::uint64_t numberAt(const std::string& bytes, std::size_t offset, unsigned width) {
  std::uint64_t number = 0;
  for (unsigned i = 0; i < width; ++i) {
    number |= std::uint64_t{byteAt(bytes, offset + i)} << (8 * i);
  }
  return number;
}

std::int32_t signedAt(const std::string& bytes, std::size_t offset) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(numberAt(bytes, offset, 4)));
}

std::string textAt(const std::string& bytes, std::size_t offset, std::size_t size) {
  const std::string field = bytes.substr(offset, size);
  return field.substr(0, field.find('\0'));
}

template <std::size_t Size>
std::string bytesOf(const char (&field)[Size]) {
  return std::string(field, Size);
}

/// A phone in the words of this campaign: what is in the header of a record, and the bytes of the source's own record.
struct Phone {
  unsigned type;
  std::string name;
  unsigned btid;
  std::int32_t port;
  unsigned session;
  std::uint64_t identifier;
  std::string aapId;
  std::string record;

  bool operator==(const Phone& other) const {
    return type == other.type && name == other.name && btid == other.btid && port == other.port &&
           session == other.session && identifier == other.identifier && aapId == other.aapId && record == other.record;
  }
};

struct Lists {
  std::vector<Phone> paired;
  std::vector<Phone> attached;

  void file(const Phone& phone) {
    if (phone.btid != 255) {
      paired.push_back(phone);
    } else if (phone.port > 0) {
      attached.push_back(phone);
    }
  }
};

struct Bluetooth {
  using Adapter = BtIntegratedDeviceList;
  static constexpr const char* NAME = "/BtPairedDeviceList";
  static constexpr std::size_t SIZE = 1124;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 112;
  static constexpr unsigned SLOTS = 10;
  static constexpr std::size_t NUMBERS[] = {104};
  static constexpr std::size_t PAIRING = 4;  // where the Bluetooth id is
  static constexpr std::size_t OUTSIDE = 0;  // bytes elsewhere in the table that are read

  static void prepare(std::string& /*table*/) {}

  static Lists expected(const std::string& table) {
    Lists lists;
    for (unsigned k = 0; k < SLOTS; ++k) {
      const std::string slot = table.substr(FIRST_SLOT + SLOT_SIZE * k, SLOT_SIZE);
      if (byteAt(slot, 4) != 255) {
        lists.file({0, textAt(slot, 5, 81), byteAt(slot, 4), 0, 0, 0, "", slot.substr(4, 106)});
      }
    }
    return lists;
  }

  static std::string recordOf(const IntegratedDevice& device) {
    const BtPairedDevice& record = device.btDevice;
    return static_cast<char>(record.id) + bytesOf(record.name) + bytesOf(record.address) +
           RawSegment::littleEndian(record.info, 4) + static_cast<char>(record.flag1) + static_cast<char>(record.flag2);
  }
};

struct AndroidAuto {
  using Adapter = AapIntegratedDeviceList;
  static constexpr const char* NAME = "/AapDeviceList";
  static constexpr std::size_t SIZE = 6292;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 524;
  static constexpr unsigned SLOTS = 12;
  static constexpr std::size_t NUMBERS[] = {520};
  static constexpr std::size_t PAIRING = 519;
  static constexpr std::size_t OUTSIDE = 0;

  static void prepare(std::string& /*table*/) {}

  static Lists expected(const std::string& table) {
    Lists lists;
    for (unsigned k = 0; k < SLOTS; ++k) {
      const std::string slot = table.substr(FIRST_SLOT + SLOT_SIZE * k, SLOT_SIZE);
      if (byteAt(slot, 262) != 0) {
        lists.file({2, textAt(slot, 5, 257), byteAt(slot, 519), signedAt(slot, 520), byteAt(slot, 4), 0,
                    textAt(slot, 262, 257), slot.substr(4)});
      }
    }
    return lists;
  }

  static std::string recordOf(const IntegratedDevice& device) {
    const AapDevice& record = device.aapDevice;
    return static_cast<char>(record.session) + bytesOf(record.name) + bytesOf(record.id) +
           static_cast<char>(record.btid) + RawSegment::littleEndian(static_cast<std::uint32_t>(record.port), 4);
  }
};

struct CarPlay {
  using Adapter = CpIntegratedDeviceList;
  static constexpr const char* NAME = "/LmSCarplayResource";
  static constexpr std::size_t SIZE = 13736;
  static constexpr std::size_t FIRST_SLOT = 1800;
  static constexpr std::size_t SLOT_SIZE = 296;
  static constexpr unsigned SLOTS = 11;
  static constexpr std::size_t NUMBERS[] = {0, 4};
  static constexpr std::size_t PAIRING = 264;
  static constexpr std::size_t OUTSIDE = 1072;

  // One of the phones is the connected one, but for what the try changes.
  static void prepare(std::string& table) { table.replace(1072, 8, table.substr(FIRST_SLOT + 3 * SLOT_SIZE, 8)); }

  static Lists expected(const std::string& table) {
    Lists lists;
    const std::uint64_t connected = numberAt(table, 1072, 8);
    const bool usb = (numberAt(table, 1076, 4) >> 9 & 1) != 0;
    for (unsigned k = 0; k < SLOTS; ++k) {
      const std::string slot = table.substr(FIRST_SLOT + SLOT_SIZE * k, SLOT_SIZE);
      const std::uint64_t identifier = numberAt(slot, 0, 8);
      if (identifier != 0 && byteAt(slot, 269) != 0) {
        lists.file({1, textAt(slot, 8, 256), byteAt(slot, 264) == 0 ? 255 : byteAt(slot, 264),
                    identifier == connected || usb ? 1 : 0, byteAt(slot, 265) != 0 ? 1 : byteAt(slot, 266), identifier,
                    "", slot});
      }
    }
    return lists;
  }

  static std::string recordOf(const IntegratedDevice& device) {
    std::string record(SLOT_SIZE, '\0');
    std::memcpy(record.data(), &device.cpDevice, record.size());
    return record;
  }
};

struct Progress {
  std::atomic<std::uint64_t> tries{0};
  std::atomic<std::uint64_t> phones{0};
};

/// One source's tables, read by one adapter.
template <class Source>
class Tables {
 public:
  Tables(std::mt19937& random, Progress& progress, const SharedFindings& findings)
      : mRandom(random), mProgress(progress), mFindings(findings) {}

  // Values to be tried one after the other: each of each byte of a slot, and of the bytes elsewhere.
  static constexpr std::uint64_t CELLS = (Source::SLOT_SIZE + (Source::OUTSIDE != 0 ? 8 : 0)) * 256;

  void tryCell(std::uint64_t cell) {
    const auto position = static_cast<std::size_t>(cell / 256);
    const auto value = static_cast<char>(cell % 256);
    std::string table = background();
    if (position < Source::SLOT_SIZE) {
      const auto slot = static_cast<unsigned>(mRandom() % Source::SLOTS);
      table[Source::FIRST_SLOT + Source::SLOT_SIZE * slot + position] = value;
    } else {
      table[Source::OUTSIDE + position - Source::SLOT_SIZE] = value;
    }
    compare(table, "byte " + std::to_string(position) + " is " + std::to_string(cell % 256));
  }

  void tryAtRandom() {
    std::string table = background();
    for (unsigned k = 0; k < Source::SLOTS; ++k) {
      changeSlot(&table[Source::FIRST_SLOT + Source::SLOT_SIZE * k]);
    }
    compare(table, "random slots");
  }

 private:
  // No byte is 0 where the try does not say so: all texts are without an end.
  std::string background() {
    std::string table(Source::SIZE, '\0');
    std::generate(table.begin(), table.end(), [this] { return static_cast<char>(1 + mRandom() % 254); });
    Source::prepare(table);
    return table;
  }

  void changeSlot(char* slot) {
    constexpr std::uint32_t EXTREMES[] = {0,          1,          0x7FFFFFFF, 0x80000000, 0xFFFFFFFF,
                                          0x80000001, 0x7FFFFFFE, 0xFFFFFFFE, 0x00000200, 0xFFFFFDFF};
    switch (mRandom() % 5) {
      case 0:
        std::memset(slot, 0, Source::SLOT_SIZE);
        return;
      case 1:
        std::memset(slot, 0xFF, Source::SLOT_SIZE);
        return;
      case 2:
        std::generate(slot, slot + Source::SLOT_SIZE, [this] { return static_cast<char>(mRandom()); });
        return;
      case 3:  // an end somewhere
        slot[mRandom() % Source::SLOT_SIZE] = '\0';
        return;
      default:
        for (const std::size_t offset : Source::NUMBERS) {
          const std::uint32_t number =
              mRandom() % 2 == 0 ? EXTREMES[mRandom() % std::size(EXTREMES)] : std::uint32_t{1} << mRandom() % 32;
          std::memcpy(slot + offset, &number, sizeof number);
        }
        slot[Source::PAIRING] = static_cast<char>(mRandom() % 2 == 0 ? 255 : 0);
        return;
    }
  }

  void compare(const std::string& table, const std::string& what) {
    mRaw.put(0, table);
    const Lists expected = Source::expected(table);
    mAdapter.updateDeviceList();
    std::vector<IntegratedDevice> list;
    mAdapter.getBtDeviceList(list);
    compareList(list, expected.paired, what);
    mAdapter.getUsbDeviceList(list);
    compareList(list, expected.attached, what);
    ++mProgress.tries;
  }

  void compareList(const std::vector<IntegratedDevice>& found, const std::vector<Phone>& expected,
                   const std::string& what) {
    mProgress.phones += found.size();
    std::vector<Phone> phones;
    phones.reserve(found.size());
    for (const IntegratedDevice& device : found) {
      phones.push_back({static_cast<unsigned>(device.type), device.name, device.btid, device.port, device.session,
                        device.cpDeviceId, device.aapId, Source::recordOf(device)});
    }
    if (phones != expected) {
      mFindings.add(std::string(Source::NAME) + ": " + what + ": not what the bytes say");
    }
  }

  RawSegment mRaw{Source::NAME, Source::SIZE, 1};
  typename Source::Adapter mAdapter;
  std::mt19937& mRandom;
  Progress& mProgress;
  const SharedFindings& mFindings;
};

int tryAll(std::uint64_t seed, std::uint64_t count, Progress& progress, const SharedFindings& findings) {
  std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
  Tables<Bluetooth> bluetooth(random, progress, findings);
  Tables<AndroidAuto> androidAuto(random, progress, findings);
  Tables<CarPlay> carPlay(random, progress, findings);
  constexpr std::uint64_t CELLS = Tables<Bluetooth>::CELLS + Tables<AndroidAuto>::CELLS + Tables<CarPlay>::CELLS;
  constexpr std::uint64_t STRIDE = 100003;  // a prime that CELLS has not: a short run goes everywhere, too
  static_assert(CELLS % STRIDE != 0);

  for (std::uint64_t i = 0; progress.tries < count && findings.count() < 20; ++i) {
    std::uint64_t cell = i * STRIDE % CELLS;
    if (cell < Tables<Bluetooth>::CELLS) {
      bluetooth.tryCell(cell);
      bluetooth.tryAtRandom();
      continue;
    }
    cell -= Tables<Bluetooth>::CELLS;
    if (cell < Tables<AndroidAuto>::CELLS) {
      androidAuto.tryCell(cell);
      androidAuto.tryAtRandom();
      continue;
    }
    carPlay.tryCell(cell - Tables<AndroidAuto>::CELLS);
    carPlay.tryAtRandom();
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("fields", "tables", argc, argv);
  const SharedValue<Progress> progress;
  SharedFindings findings;
  ChildProcess reader([&] { return tryAll(campaign.seed(), campaign.count(), *progress, findings); });
  std::uint64_t before = 0;
  int end = ChildProcess::HUNG;
  do {
    before = progress->tries;
    end = reader.wait(WATCHDOG);
  } while (end == ChildProcess::HUNG && progress->tries != before);
  if (end == ChildProcess::HUNG) {
    campaign.hang("a table is not read to its end");
  } else if (end != 0) {
    campaign.crash("the reader ended with " + std::to_string(end));
  }
  findings.tell(campaign);
  campaign.tried(progress->tries);
  campaign.note(std::to_string(progress->phones) + " phones compared");
  return campaign.finish();
}
