// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_PRIVATE_SUFFIXPROVIDER_H
#define INTEGRATEDDEVICELIST_PRIVATE_SUFFIXPROVIDER_H

#include <string>
#include <vector>

#include "IntegratedDeviceList/LmSIntegratedDeviceList.h"

class SysDataWrapper;

/// Numbers the phones of a list so that equal names can be told apart, and builds the names to display.
///
/// Remembers the last list's phones and their numbers in the suffix table; of paired phones in the system-data file
/// too. No lock of its own: the list service's mutex is held in every call.
class SuffixProvider {
 public:
  using DeviceInfo = LmSIntegratedDeviceListDef::DeviceInfo;
  using IntegratedDevice = LmSIntegratedDeviceListDef::IntegratedDevice;

  SuffixProvider();

  /// Starts with these numbers instead of those of the system-data file, and saves none.
  explicit SuffixProvider(const std::vector<DeviceInfo>& saved);

  SuffixProvider(const SuffixProvider&) = delete;
  SuffixProvider& operator=(const SuffixProvider&) = delete;
  virtual ~SuffixProvider();  // does not save

  /// Installs `format`, or with null the built-in one; without effect once started.
  /// @return whether a format function is in force now.
  bool setFormat(NameFormatFunc format);

  /// Loads the stored table, once. One in which two entries would be displayed alike is forgotten whole.
  void start();

  /// Numbers a freshly merged list, whose names are the phones' own, and saves the table. Before start() it does
  /// nothing but log. If an allocation or the format function throws, the table is that of the last complete pass, and
  /// `list` is to be thrown away.
  void appendSuffix(std::vector<IntegratedDevice>& list);

  // The steps of a numbering pass.

  /// Makes the table that of `list`: numbers go from an old entry to the first new one of the same Bluetooth id, then
  /// to the first of the same USB port, where the names are equal too.
  void updateSuffixTable(const std::vector<IntegratedDevice>& list);

  /// Gives each entry that has none the lowest number whose displayed name is free. At most as many numbers are tried
  /// as there are entries, and at most 255; an entry that finds none keeps 0.
  void assignSuffixNumber();

  /// Writes numbers and displayed names into `list`, which must be as long as the table; otherwise nothing happens.
  /// Once for each list: it takes the names that it finds for the phones' own.
  void applySuffix(std::vector<IntegratedDevice>& list);

  std::string makeSuffixedName(const std::string& name, unsigned char suffix);
  std::string makeSuffixedName(const DeviceInfo& info);

  /// Whether all entries of `table` are displayed under different names.
  bool checkSuffixTable(const std::vector<DeviceInfo>& table);

 private:
  struct ShownName {
    std::string text;
    std::size_t hash = 0;  // tells most that differ apart at once
    bool isTaken = false;  // of an entry that has a number
  };

  void takeOverNumbers(const std::vector<IntegratedDevice>& list, std::vector<DeviceInfo>& table) const;
  void show(const std::string& name, unsigned char suffix, std::string& shown);
  void show(const std::string& name, unsigned char suffix, ShownName& shown);
  bool isTaken(const ShownName& name) const;

  bool mStarted;
  std::vector<DeviceInfo> mSuffixTable;  // entry i describes element i of the last list, under its own name
  SysDataWrapper* mSysData;              // owned; null: nothing is loaded or saved
  NameFormatFunc mFormat;                // null: the built-in format

  // What a pass works in. Nothing of it is looked at by the next one, which has its memory.
  std::vector<DeviceInfo> mOtherTable;
  std::vector<ShownName> mShownNames;  // of the entries of the table; of one that has no number yet, what is tried
};

#endif
