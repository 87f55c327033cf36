// SPDX-License-Identifier: Apache-2.0
// The adapters read their tables while one process writes them under their locks and another, without a lock, cuts,
// lengthens and replaces them. Every byte of a list must be one that the writer wrote, or zero.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "AapIntegratedDeviceList.h"
#include "BtIntegratedDeviceList.h"
#include "CpIntegratedDeviceList.h"
#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmSyncGuard.h"
#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "support/CapturedStdErr.h"
#include "support/ChildProcess.h"
#include "support/RawSegment.h"
#include "support/SharedRounds.h"
#include "trust/Campaign.h"
#include "trust/SharedFindings.h"

namespace {

using LmSIntegratedDeviceListDef::IntegratedDevice;

constexpr unsigned READS_OF_AN_ADAPTER = 60;
constexpr auto WATCHDOG = std::chrono::seconds(20);
constexpr unsigned GENERATIONS = 254;
// What a link in a table's place leads to; nobody may follow it.
constexpr char ELSEWHERE[] = "elsewhere";

// What the writer puts at byte `position` of slot `slot` in its generation `generation`: never 0, which says "cut off",
// and never 255, which is a free Bluetooth slot.
unsigned char written(unsigned generation, unsigned slot, std::size_t position) {
  return static_cast<unsigned char>(1 + (generation * 31 + slot * 7 + position) % GENERATIONS);
}

// The generation in which that byte was written: 41 is the inverse of 31.
unsigned generationOf(unsigned char byte, unsigned slot, std::size_t position) {
  const std::size_t others = (std::size_t{slot} * 7 + position) % GENERATIONS;
  return static_cast<unsigned>((byte - 1 + GENERATIONS - others) * 41 % GENERATIONS);
}

struct Bluetooth {
  using Adapter = BtIntegratedDeviceList;
  static constexpr const char* NAME = "BtPairedDeviceList";
  static constexpr std::size_t SIZE = 1124;
  static constexpr std::size_t DATA_SIZE = 1120;
  static constexpr unsigned SLOTS = 10;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 112;

  static void mark(std::string& /*table*/) {}

  // The fields of a listed phone in their places in the slot.
  static std::string slotOf(const IntegratedDevice& device) {
    const BtPairedDevice& record = device.btDevice;
    std::string slot(SLOT_SIZE, '\0');
    slot[4] = static_cast<char>(record.id);
    std::memcpy(&slot[5], record.name, sizeof record.name);
    std::memcpy(&slot[86], record.address, sizeof record.address);
    std::memcpy(&slot[104], &record.info, sizeof record.info);
    slot[108] = static_cast<char>(record.flag1);
    slot[109] = static_cast<char>(record.flag2);
    return slot;
  }

  // No slot is ever free, so phone k is that of slot k.
  static unsigned numberOf(const std::string& /*slot*/, unsigned index) { return index; }
  static bool isConstant(std::size_t /*position*/) { return false; }
  static const char* nameIn(const std::string& slot) { return &slot[5]; }
  static constexpr std::size_t NAME_SIZE = 81;

  static bool hasItsHeader(const IntegratedDevice& device) {
    return device.btid == device.btDevice.id && device.port == 0 && device.session == 0;
  }
};

struct AndroidAuto {
  using Adapter = AapIntegratedDeviceList;
  static constexpr const char* NAME = "AapDeviceList";
  static constexpr std::size_t SIZE = 6292;
  static constexpr std::size_t DATA_SIZE = 6288;
  static constexpr unsigned SLOTS = 12;
  static constexpr std::size_t FIRST_SLOT = 4;
  static constexpr std::size_t SLOT_SIZE = 524;
  static constexpr std::size_t ID = 262;

  // The first character of the id says which slot it is.
  static void mark(std::string& table) {
    for (unsigned k = 0; k < SLOTS; ++k) {
      table[FIRST_SLOT + SLOT_SIZE * k + ID] = static_cast<char>('A' + k);
    }
  }

  static std::string slotOf(const IntegratedDevice& device) {
    const AapDevice& record = device.aapDevice;
    std::string slot(SLOT_SIZE, '\0');
    slot[4] = static_cast<char>(record.session);
    std::memcpy(&slot[5], record.name, sizeof record.name);
    std::memcpy(&slot[ID], record.id, sizeof record.id);
    slot[519] = static_cast<char>(record.btid);
    std::memcpy(&slot[520], &record.port, sizeof record.port);
    return slot;
  }

  static unsigned numberOf(const std::string& slot, unsigned /*index*/) {
    return static_cast<unsigned char>(slot[ID]) - static_cast<unsigned>('A');
  }
  static bool isConstant(std::size_t position) { return position == ID; }
  static const char* nameIn(const std::string& slot) { return &slot[5]; }
  static constexpr std::size_t NAME_SIZE = 257;

  static bool hasItsHeader(const IntegratedDevice& device) {
    const AapDevice& record = device.aapDevice;
    return device.btid == record.btid && device.port == record.port && device.session == record.session &&
           device.aapId == std::string(record.id, strnlen(record.id, sizeof record.id));
  }
};

struct CarPlay {
  using Adapter = CpIntegratedDeviceList;
  static constexpr const char* NAME = "LmSCarplayResource";
  static constexpr std::size_t SIZE = 13736;
  static constexpr std::size_t DATA_SIZE = 13728;
  static constexpr unsigned SLOTS = 11;
  static constexpr std::size_t FIRST_SLOT = 1800;
  static constexpr std::size_t SLOT_SIZE = 296;
  static constexpr std::size_t IDENTIFIER_SIZE = 8;
  static constexpr unsigned FIRST_IDENTIFIER = 0x10;

  // Each byte of an identifier says which slot it is; the last phone is connected; the resource is initialised.
  static void mark(std::string& table) {
    for (unsigned k = 0; k < SLOTS; ++k) {
      table.replace(FIRST_SLOT + SLOT_SIZE * k, IDENTIFIER_SIZE, IDENTIFIER_SIZE,
                    static_cast<char>(FIRST_IDENTIFIER + k));
    }
    table.replace(1072, IDENTIFIER_SIZE, IDENTIFIER_SIZE, static_cast<char>(FIRST_IDENTIFIER + SLOTS - 1));
    table[13732] = 1;
  }

  static std::string slotOf(const IntegratedDevice& device) {
    std::string slot(SLOT_SIZE, '\0');
    std::memcpy(slot.data(), &device.cpDevice, SLOT_SIZE);
    return slot;
  }

  static unsigned numberOf(const std::string& slot, unsigned /*index*/) {
    const std::size_t first = slot.find_first_not_of('\0');
    return first < IDENTIFIER_SIZE ? static_cast<unsigned char>(slot[first]) - FIRST_IDENTIFIER : SLOTS;
  }
  static bool isConstant(std::size_t position) { return position < IDENTIFIER_SIZE; }
  static const char* nameIn(const std::string& slot) { return &slot[8]; }
  static constexpr std::size_t NAME_SIZE = 256;

  static bool hasItsHeader(const IntegratedDevice& device) {
    const cps_def::WCPAtom& atom = device.cpDevice;
    return device.btid == (atom.btid == 0 ? 255 : atom.btid) && (device.port == 0 || device.port == 1) &&
           device.session == (atom.inSession != 0 ? 1 : atom.session) && device.cpDeviceId == atom.identifier &&
           atom.valid != 0;
  }
};

std::string pathOf(const char* name) { return std::string("/dev/shm/") + name; }

class Descriptor {
 public:
  explicit Descriptor(int fd) : mFd(fd) {}
  ~Descriptor() {
    if (mFd != -1) {
      close(mFd);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return mFd; }

 private:
  const int mFd;
};

// -1 where something else has its name at this moment, or nothing.
int openTable(const char* name) { return open(pathOf(name).c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }

template <class Source>
std::string tableOf(unsigned generation) {
  std::string table(Source::SIZE, '\0');
  const auto dataSize = static_cast<std::uint32_t>(Source::DATA_SIZE);
  std::memcpy(table.data(), &dataSize, sizeof dataSize);
  for (unsigned k = 0; k < Source::SLOTS; ++k) {
    for (std::size_t i = 0; i < Source::SLOT_SIZE; ++i) {
      table[Source::FIRST_SLOT + Source::SLOT_SIZE * k + i] = static_cast<char>(written(generation, k, i));
    }
  }
  Source::mark(table);
  return table;
}

// One generation, in two steps under the lock, as a service does that is slow.
template <class Source>
void writeTable(unsigned generation) {
  const std::string table = tableOf<Source>(generation);
  const LmSharedSyncObject lock(Source::NAME);
  const LmSyncGuard guard(lock);
  const Descriptor fd(openTable(Source::NAME));
  const std::size_t half = table.size() / 2;
  if (fd.get() == -1 || pwrite(fd.get(), table.data(), half, 0) < 0 ||
      pwrite(fd.get(), table.data() + half, table.size() - half, static_cast<off_t>(half)) < 0) {
    return;  // it is a folder or a pipe just now
  }
}

[[noreturn]] void writeForever() {
  for (unsigned generation = 0;; ++generation) {
    writeTable<Bluetooth>(generation);
    writeTable<AndroidAuto>(generation);
    writeTable<CarPlay>(generation);
  }
}

// Takes the place of the table by one step, whatever is there.
void putInPlace(const std::string& made, const char* name) {
  if (rename(made.c_str(), pathOf(name).c_str()) != 0) {
    rmdir(pathOf(name).c_str());  // a folder is replaced by a folder alone
    unlink(pathOf(name).c_str());
    rename(made.c_str(), pathOf(name).c_str());
  }
}

/// Does to a table what nobody should, without its lock.
class Vandal {
 public:
  /// Counts what it does in `deeds`.
  Vandal(std::uint64_t seed, const SharedRounds& deeds)
      : mRandom(static_cast<std::mt19937::result_type>(seed)), mDeeds(deeds) {}

  [[noreturn]] void goOnForever() {
    for (;;) {
      const Table& table = TABLES[mRandom() % 3];
      const auto what = static_cast<unsigned>(mRandom() % 40);
      if (what < 30) {
        cut(table);
      } else if (what < 36) {
        lengthen(table);
      } else {
        replace(table, what - 36);
      }
      mDeeds.next();
    }
  }

 private:
  struct Table {
    const char* name;
    std::size_t size;
  };
  static constexpr Table TABLES[] = {
      {Bluetooth::NAME, Bluetooth::SIZE}, {AndroidAuto::NAME, AndroidAuto::SIZE}, {CarPlay::NAME, CarPlay::SIZE}};

  // To any length, nothing included; mostly made whole again at once.
  void cut(const Table& table) {
    const Descriptor fd(openTable(table.name));
    for (unsigned times = 0; times < 10; ++times) {
      resize(fd.get(), mRandom() % (table.size + 1));
      if (mRandom() % 4 != 0) {
        resize(fd.get(), table.size);
      }
    }
  }

  void lengthen(const Table& table) {
    const Descriptor fd(openTable(table.name));
    resize(fd.get(), table.size + mRandom() % 100000);
  }

  static void resize(int fd, std::size_t size) {
    if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
      return;  // it is a folder or a pipe just now
    }
  }

  void replace(const Table& table, unsigned what) {
    const std::string made = pathOf("made-by-the-vandal");
    switch (what) {
      case 0:
        mkdir(made.c_str(), 0755);
        break;
      case 1:
        mkfifo(made.c_str(), 0664);
        break;
      case 2:
        static_cast<void>(symlink(ELSEWHERE, made.c_str()) == 0);
        break;
      default:
        static_cast<void>(symlink("nowhere", made.c_str()) == 0);
        break;
    }
    putInPlace(made, table.name);
    pauseFor(std::chrono::microseconds(mRandom() % 200));
    {
      const Descriptor fd(open(made.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
      resize(fd.get(), table.size);
    }
    putInPlace(made, table.name);
  }

  std::mt19937 mRandom;
  const SharedRounds& mDeeds;
};

struct Progress {
  std::atomic<std::uint64_t> reads{0};
  std::atomic<std::uint64_t> phones{0};
  std::atomic<std::uint64_t> attached{0};
  std::atomic<std::uint64_t> complaining{0};  // adapters that wrote their log line
};

void countLine(void* context, const char* /*line*/) { ++*static_cast<std::atomic<unsigned>*>(context); }

class Reader {
 public:
  Reader(std::uint64_t count, const SharedValue<Progress>& progress, const SharedFindings& findings)
      : mCount(count), mProgress(progress), mFindings(findings) {
    LmDbgOutput::setSink(&countLine, &mOtherLines);
  }

  int run() {
    while (mProgress->reads < mCount) {
      readForAWhile<Bluetooth>();
      readForAWhile<AndroidAuto>();
      readForAWhile<CarPlay>();
      if (mOtherLines.exchange(0) != 0) {
        mFindings.add("a line in the log that none of this can cause");
      }
    }
    return 0;
  }

 private:
  template <class Source>
  void readForAWhile() {
    const CapturedStdErr log;
    typename Source::Adapter adapter;
    ++mProgress->attached;
    for (unsigned read = 0; read < READS_OF_AN_ADAPTER; ++read) {
      adapter.updateDeviceList();
      std::vector<IntegratedDevice> attached;
      adapter.getBtDeviceList(mPaired);
      adapter.getUsbDeviceList(attached);
      mPaired.insert(mPaired.end(), attached.begin(), attached.end());
      checkList<Source>();
      ++mProgress->reads;
      mProgress->phones += mPaired.size();
    }
    const std::size_t lines = log.lines().size();
    mProgress->complaining += lines != 0 ? 1 : 0;
    if (lines > 1) {
      mFindings.add(std::string(Source::NAME) + ": more than one line for an adapter: " + log.text());
    }
  }

  template <class Source>
  void checkList() {
    if (mPaired.size() > Source::SLOTS) {
      mFindings.add(std::string(Source::NAME) + ": more phones than slots");
      return;
    }
    std::optional<unsigned> generation;  // of the phones seen so far
    std::uint32_t seen = 0;              // a bit for each slot
    for (unsigned index = 0; index < mPaired.size(); ++index) {
      const std::string slot = Source::slotOf(mPaired[index]);
      const unsigned number = Source::numberOf(slot, index);
      if (number >= Source::SLOTS || (seen >> number & 1) != 0) {
        mFindings.add(std::string(Source::NAME) + ": a phone that is in no slot, or in two");
        return;
      }
      seen |= 1U << number;
      if (!Source::hasItsHeader(mPaired[index]) ||
          mPaired[index].name != std::string(Source::nameIn(slot), strnlen(Source::nameIn(slot), Source::NAME_SIZE))) {
        mFindings.add(std::string(Source::NAME) + ": a phone that is not what its record says");
      }
      if constexpr (std::is_same_v<Source, CarPlay>) {
        generation.reset();  // its entries are read one by one
      }
      checkSlot<Source>(slot, number, generation);
    }
  }

  template <class Source>
  void checkSlot(const std::string& slot, unsigned number, std::optional<unsigned>& generation) {
    for (std::size_t position = 0; position < slot.size(); ++position) {
      const auto byte = static_cast<unsigned char>(slot[position]);
      if (byte == 0) {
        continue;
      }
      if (Source::isConstant(position)) {
        if (Source::numberOf(std::string(slot.size(), static_cast<char>(byte)), number) != number) {
          mFindings.add(std::string(Source::NAME) + ": an identifier of two phones");
          return;
        }
        continue;
      }
      const unsigned found = generationOf(byte, number, position);
      if (byte == 255 || generation.value_or(found) != found) {
        mFindings.add(std::string(Source::NAME) + ": byte " + std::to_string(position) + " of slot " +
                      std::to_string(number) + " was not written together with the others");
        return;
      }
      generation = found;
    }
  }

  const std::uint64_t mCount;
  const SharedValue<Progress>& mProgress;
  const SharedFindings& mFindings;
  std::vector<IntegratedDevice> mPaired;
  std::atomic<unsigned> mOtherLines{0};
};

}  // namespace

int main(int argc, char** argv) {
  Campaign campaign("truncation", "table reads", argc, argv);
  const SharedValue<Progress> progress;
  SharedFindings findings;
  const std::string untouched(20000, 'x');
  RawSegment elsewhere(std::string("/") + ELSEWHERE, untouched.size(), 'x');
  const SharedRounds deeds;
  ChildProcess writer([]() -> int { writeForever(); });
  ChildProcess vandal([&]() -> int { Vandal(campaign.seed(), deeds).goOnForever(); });
  if (!deeds.reach(1, WATCHDOG)) {
    campaign.hang("nothing is done to the tables");
  }

  for (bool broken = !campaign.isClean(); progress->reads < campaign.count() && !broken;) {
    ChildProcess reader([&] { return Reader(campaign.count(), progress, findings).run(); });
    std::uint64_t before = 0;
    int end = ChildProcess::HUNG;
    do {
      before = progress->reads;
      end = reader.wait(WATCHDOG);
      findings.tell(campaign);
    } while (end == ChildProcess::HUNG && progress->reads != before && findings.count() < 20);
    if (end == ChildProcess::HUNG && progress->reads == before) {
      campaign.hang("a read did not end");
    } else if (end < 0 && end != ChildProcess::HUNG) {
      campaign.crash("the reader died of signal " + std::to_string(-end));
    }
    broken = !campaign.isClean();
  }

  campaign.tried(progress->reads);
  if (elsewhere.all() != untouched) {
    campaign.violation("a link was followed");
  }
  if (progress->phones == 0) {
    campaign.violation("nothing but empty tables was read");
  }
  campaign.note(std::to_string(progress->phones) + " phones read, " + std::to_string(progress->complaining) + " of " +
                std::to_string(progress->attached) + " adapters complained once, " + std::to_string(deeds.count()) +
                " deeds");
  return campaign.finish();
}
