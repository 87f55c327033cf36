// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_INSPECT_EXPLANATION_H
#define TOOLS_INSPECT_EXPLANATION_H

#include <cstddef>
#include <string>
#include <vector>

#include "Decisions.h"

namespace idl::tools {

/// Keeps what a list decided at its last refresh, for whoever explains its rows.
class Explanation : public Decisions {
 public:
  using DeviceType = LmSIntegratedDeviceListDef::DeviceType;

  struct Taken {
    unsigned number;
    std::string name;  // as it would be displayed, and as another row is
  };

  enum class Why {
    KEPT,
    GIVEN,    // the lowest that is free
    NONE,     // all that may be tried are taken
    UNKNOWN,  // the list was not numbered yet
  };
  enum class Since { SAVED, EARLIER_REFRESH };

  /// Why a row has its number.
  struct Number {
    Why why = Why::UNKNOWN;
    Since since = Since::SAVED;  // where KEPT
    Key key = Key::BTID;         // where KEPT
    std::vector<Taken> taken;    // lower numbers that it could not have, when it was given
    bool wasRenamed = false;     // the entry has the Bluetooth id or port of another name, whose number was not kept
    Key sharedKey = Key::BTID;   // where wasRenamed
    std::string otherName;
    DeviceInfo entry;  // as the number was found: for the next refresh
  };

  // Of the last refresh.

  /// The sources whose records were folded into the pairing of that Bluetooth id, in this order; empty for none.
  std::vector<DeviceType> foldedInto(std::uint8_t btid) const;

  /// The records that claim a pairing that Bluetooth does not know, and whether each is listed.
  struct UnknownPairing {
    IntegratedDevice device;
    bool isListed;
  };
  const std::vector<UnknownPairing>& unknownPairings() const { return mUnknownPairings; }

  /// Of each source's last reading: neither paired nor at a port.
  const std::vector<IntegratedDevice>& leftOutRecords() const { return mLeftOut; }

  const Number& numberOf(std::size_t row) const;

  bool wereSavedNumbersForgotten() const { return mAreSavedNumbersForgotten; }

  /// Call before each refresh of `type`: what its last reading left out counts no more.
  void refreshBegins(DeviceType type);

  /// Call after each refresh, with its list.
  void refreshEnds(const std::vector<IntegratedDevice>& list);

  void leftOut(const IntegratedDevice& device) override;
  void mergingBegins() override;
  void folded(const IntegratedDevice& device, const IntegratedDevice& pairing) override;
  void pairingUnknown(const IntegratedDevice& device, bool isListed) override;
  void numbersLoaded(std::size_t entries, bool areForgotten) override;
  void numberingBegins() override;
  void numberKept(std::size_t entry, const DeviceInfo& old, Key key) override;
  void renamed(std::size_t entry, const DeviceInfo& old, Key key) override;
  void numberTaken(std::size_t entry, unsigned number, const std::string& name) override;
  void numberGiven(std::size_t entry, unsigned number) override;
  void noNumberLeft(std::size_t entry) override;

 private:
  struct Fold {
    std::uint8_t btid;
    DeviceType type;
  };

  Number& at(std::size_t entry);

  std::vector<Fold> mFolds;
  std::vector<UnknownPairing> mUnknownPairings;
  std::vector<IntegratedDevice> mLeftOut;
  std::vector<Number> mNumbers;
  std::vector<Number> mFormer;
  unsigned mNumberings = 0;  // since the saved numbers were loaded: the first one starts with them
  bool mAreSavedNumbersForgotten = false;
};

}  // namespace idl::tools

#endif
