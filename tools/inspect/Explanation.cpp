// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/Explanation.h"

#include <algorithm>

namespace idl::tools {

std::vector<Explanation::DeviceType> Explanation::foldedInto(std::uint8_t btid) const {
  std::vector<DeviceType> types;
  for (const Fold& fold : mFolds) {
    // Of two records of one source, the later one counts; it is one source all the same.
    if (fold.btid == btid && std::find(types.begin(), types.end(), fold.type) == types.end()) {
      types.push_back(fold.type);
    }
  }
  return types;
}

const Explanation::Number& Explanation::numberOf(std::size_t row) const {
  static const Number unknown;
  return row < mNumbers.size() ? mNumbers[row] : unknown;
}

void Explanation::refreshBegins(DeviceType type) {
  const auto isOfType = [&](const IntegratedDevice& device) { return device.type == type; };
  mLeftOut.erase(std::remove_if(mLeftOut.begin(), mLeftOut.end(), isOfType), mLeftOut.end());
}

// The list has the displayed names; by its own records' names the next refresh finds its entries again.
void Explanation::refreshEnds(const std::vector<IntegratedDevice>& list) {
  mNumbers.resize(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    mNumbers[i].entry = list[i];
  }
}

void Explanation::leftOut(const IntegratedDevice& device) { mLeftOut.push_back(device); }

void Explanation::mergingBegins() {
  mFolds.clear();
  mUnknownPairings.clear();
}

void Explanation::folded(const IntegratedDevice& device, const IntegratedDevice& /*pairing*/) {
  mFolds.push_back({device.btid, device.type});
}

void Explanation::pairingUnknown(const IntegratedDevice& device, bool isListed) {
  mUnknownPairings.push_back({device, isListed});
}

void Explanation::numbersLoaded(std::size_t /*entries*/, bool areForgotten) {
  mNumberings = 0;
  mAreSavedNumbersForgotten = areForgotten;
}

void Explanation::numberingBegins() {
  ++mNumberings;
  mFormer.swap(mNumbers);
  mNumbers.clear();
}

void Explanation::numberKept(std::size_t entry, const DeviceInfo& old, Key key) {
  Number& number = at(entry);
  number.wasRenamed = false;  // another entry of the same port or Bluetooth id was only looked at before
  if (mNumberings == 1) {
    number.why = Why::KEPT;
    number.since = Since::SAVED;
    number.key = key;
    return;
  }
  // What was true of the number at the refresh before is so still.
  const auto former = std::find_if(mFormer.begin(), mFormer.end(), [&](const Number& candidate) {
    return candidate.entry.suffix == old.suffix &&
           (key == Key::BTID ? candidate.entry.btid == old.btid : candidate.entry.port == old.port);
  });
  if (former != mFormer.end()) {
    number = *former;
  }
  if (number.why == Why::UNKNOWN) {
    number.why = Why::KEPT;
    number.since = Since::EARLIER_REFRESH;
    number.key = key;
  }
}

void Explanation::renamed(std::size_t entry, const DeviceInfo& old, Key key) {
  Number& number = at(entry);
  number.wasRenamed = true;
  number.sharedKey = key;
  number.otherName = old.name;
}

void Explanation::numberTaken(std::size_t entry, unsigned number, const std::string& name) {
  at(entry).taken.push_back({number, name});
}

void Explanation::numberGiven(std::size_t entry, unsigned /*number*/) { at(entry).why = Why::GIVEN; }

void Explanation::noNumberLeft(std::size_t entry) { at(entry).why = Why::NONE; }

Explanation::Number& Explanation::at(std::size_t entry) {
  if (mNumbers.size() <= entry) {
    mNumbers.resize(entry + 1);
  }
  return mNumbers[entry];
}

}  // namespace idl::tools
