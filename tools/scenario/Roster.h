// SPDX-License-Identifier: Apache-2.0
#ifndef TOOLS_SCENARIO_ROSTER_H
#define TOOLS_SCENARIO_ROSTER_H

#include <array>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/scenario/Phone.h"

namespace idl::tools::scenario {

/// A scenario that asks for what cannot be: to unpair a phone that is not paired, an eleventh pairing.
class ScenarioMistake : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The phones of a scenario by their handles, and where each source lists them: what each should have in its table.
/// @throw ScenarioMistake as said; nothing has changed then.
class Roster {
 public:
  struct Listing {
    unsigned slot = 0;
    Phone phone;  // as this source has it, which may differ from the others
  };

  /// @throw ScenarioMistake when there is a phone of this handle.
  void add(const std::string& handle, Phone phone);

  /// Out of the phones; not out of the listings.
  void remove(const std::string& handle) { mPhones.erase(handle); }

  bool has(const std::string& handle) const { return mPhones.count(handle) != 0; }

  /// @throw ScenarioMistake when there is no such phone.
  Phone& phone(const std::string& handle);
  const Phone& phone(const std::string& handle) const;

  /// Sorted.
  std::vector<std::string> handles() const;

  /// The lowest Bluetooth id from 1 that no phone has. @throw ScenarioMistake when there is none.
  std::uint8_t freeBtid() const;

  /// Null when the source does not list it.
  Listing* listing(Source source, const std::string& handle);
  const Listing* listing(Source source, const std::string& handle) const;

  /// Lists the phone in the first free slot. @throw ScenarioMistake when there is none.
  Listing& list(Source source, const std::string& handle, const Phone& phone);

  /// @return the slot that it had. @throw ScenarioMistake when the source does not list it.
  unsigned unlist(Source source, const std::string& handle);

  void unlistAll(Source source) { listings(source).clear(); }

  /// The handle in the lowest slot.
  std::optional<std::string> firstListed(Source source) const;

  PhoneTable table(Source source) const;

 private:
  using Listings = std::map<std::string, Listing>;

  Listings& listings(Source source) { return mListings.at(static_cast<std::size_t>(source)); }
  const Listings& listings(Source source) const { return mListings.at(static_cast<std::size_t>(source)); }

  std::map<std::string, Phone> mPhones;
  std::array<Listings, SOURCES.size()> mListings;
};

}  // namespace idl::tools::scenario

#endif
