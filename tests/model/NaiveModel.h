// SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_MODEL_NAIVEMODEL_H
#define TESTS_MODEL_NAIVEMODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceListDef.h"
#include "model/Story.h"

namespace model {

using LmSIntegratedDeviceListDef::IntegratedDevice;
using Devices = std::vector<IntegratedDevice>;

/// What was met in the stories so far: a comparison is worth what it compares.
struct Reached {
  std::uint64_t refreshes = 0;
  std::uint64_t equalBluetoothIds = 0;  // refreshes with two pairings of one id
  std::uint64_t folded = 0;             // ... in which a record was folded into another
  std::uint64_t unknownPairing = 0;     // ... in which a phone claimed a pairing that there was not
  std::uint64_t equalKeys = 0;          // ... in which neighbours of the order had equal keys
  std::uint64_t equalNames = 0;         // ... with two phones of one name
  std::uint64_t cutNames = 0;           // ... with a name that a field had cut
  std::uint64_t carried = 0;            // ... in which a phone kept its number
  std::uint64_t clashes = 0;            // ... in which a number was passed over because of a phone of another name
  std::uint64_t unnumbered = 0;         // ... in which a phone found no number
  std::uint64_t tooMany = 0;            // ... that had too many pairings to be saved
  std::uint64_t savings = 0;
  std::uint64_t loaded = 0;   // starts that found numbers saved
  std::uint64_t refused = 0;  // ... and threw them away
};

/// The numbering of phones and the file that it is saved in, as plainly as can be.
///
/// It shares nothing with the library but the records that the library hands out.
class Numbers {
 public:
  explicit Numbers(Reached& reached) : mReached(&reached) {}

  /// A new client; `file` is what is saved, null when there is nothing.
  void restart(const std::optional<std::string>& file);
  bool setFormat(Format format, std::vector<std::string>& log);
  void start(std::vector<std::string>& log);

  /// Numbers `list`, which is in its final order and has no numbers yet.
  void number(Devices& list, std::vector<std::string>& log);

  const std::optional<std::string>& file() const { return mFile; }

  /// How often the file has been written.
  std::uint64_t writes() const { return mWrites; }

 private:
  struct Entry {
    std::string name;
    std::uint8_t btid = 255;
    std::int32_t port = 0;
    std::uint8_t suffix = 0;
  };

  struct Record {
    std::uint8_t inUse = 0;
    std::uint8_t btid = 0;
    std::string name;
    std::uint8_t suffix = 0;

    bool operator==(const Record& other) const {
      return inUse == other.inUse && btid == other.btid && name == other.name && suffix == other.suffix;
    }
  };

  static Record recordAt(const std::string& image, std::size_t index);
  std::string displayed(const std::string& name, std::uint8_t suffix) const;
  void carryOver(const std::vector<Entry>& old);
  void assign();
  void save(std::vector<std::string>& log);

  Reached* mReached;
  bool mStarted = false;
  Format mFormat = Format::BUILT_IN;
  std::vector<Entry> mTable;
  std::string mImage;                // what was last read or written
  std::optional<std::string> mFile;  // what is on the disk
  std::uint64_t mWrites = 0;
};

/// A client and the three tables it reads.
class NaiveModel {
 public:
  explicit NaiveModel(Reached& reached) : mReached(&reached), mNumbers(reached) {}

  // The services. Put changes a table; nobody sees it before a refresh.
  void apply(const Put<BtPhone>& put) { mBt.at(put.slot) = put.phone; }
  void apply(const Put<CpPhone>& put) { mCp.at(put.slot) = put.phone; }
  void apply(const Put<AapPhone>& put) { mAap.at(put.slot) = put.phone; }
  void apply(const SetCurrentPhone& step) { mCurrentPhone = step.identifier; }

  // The client.
  void restart(const Restart& restart);
  bool setFormat(Format format) { return mNumbers.setFormat(format, mLog); }

  /// Reads a table, and merges if the list is started.
  void refresh(int type);

  /// Whether there is a list to be had.
  bool ask();

  /// What the list has to be, in the order of `seen` where that order is one of those allowed: phones of equal keys may
  /// stand in any. Elsewhere it is some order, and `seen` is wrong. Once after each refresh that merged.
  Devices number(const Devices& seen);
  bool hasMerged() const { return mHasMerged; }

  const Numbers& numbers() const { return mNumbers; }

  /// What has been logged since the last call.
  std::vector<std::string> takeLog();

 private:
  template <class Phone, std::size_t Count>
  using Slots = std::array<std::optional<Phone>, Count>;

  void readBluetooth();
  void readCarPlay();
  void readAndroid();
  void file(const IntegratedDevice& device, Devices& paired, Devices& usb);
  void merge();
  void fold(const Devices& source, Devices& unmatched);

  Reached* mReached;
  Slots<BtPhone, BT_SLOTS> mBt;
  Slots<CpPhone, CP_SLOTS> mCp;
  Slots<AapPhone, AAP_SLOTS> mAap;
  std::uint64_t mCurrentPhone = 0;

  bool mInitialised = false;
  bool mStarted = false;
  bool mAwaitsBluetooth = false;
  Numbers mNumbers;
  std::vector<std::string> mLog;

  // As of each source's last refresh.
  Devices mBtPaired;
  Devices mCpPaired;
  Devices mCpUsb;
  Devices mAapPaired;
  Devices mAapUsb;

  // The merged list without numbers, its two parts in any order.
  bool mHasMerged = false;
  Devices mUsbPart;
  Devices mPairedPart;
};

/// Equal in all that a client can see, the name and the number left out where `named` is false.
bool isEqual(const IntegratedDevice& a, const IntegratedDevice& b, bool named = true);

/// One line, for whoever has to find out what went wrong.
std::string textOf(const IntegratedDevice& device);

}  // namespace model

#endif
