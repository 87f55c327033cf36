// SPDX-License-Identifier: Apache-2.0
#include "tools/scenario/Roster.h"

#include <algorithm>
#include <set>
#include <utility>

namespace idl::tools::scenario {

void Roster::add(const std::string& handle, Phone phone) {
  if (!mPhones.emplace(handle, std::move(phone)).second) {
    throw ScenarioMistake("there is a phone '" + handle + "' already");
  }
}

Phone& Roster::phone(const std::string& handle) {
  const auto found = mPhones.find(handle);
  if (found == mPhones.end()) {
    throw ScenarioMistake("there is no phone '" + handle + "'");
  }
  return found->second;
}

const Phone& Roster::phone(const std::string& handle) const { return const_cast<Roster*>(this)->phone(handle); }

std::vector<std::string> Roster::handles() const {
  std::vector<std::string> found;
  for (const auto& entry : mPhones) {
    found.push_back(entry.first);
  }
  return found;
}

std::uint8_t Roster::freeBtid() const {
  std::set<unsigned> taken;
  for (const auto& entry : mPhones) {
    taken.insert(entry.second.btid);
  }
  for (std::uint8_t id = 1; id != BTID_NONE; ++id) {
    if (taken.count(id) == 0) {
      return id;
    }
  }
  throw ScenarioMistake("every Bluetooth id is taken");
}

Roster::Listing* Roster::listing(Source source, const std::string& handle) {
  const auto found = listings(source).find(handle);
  return found == listings(source).end() ? nullptr : &found->second;
}

const Roster::Listing* Roster::listing(Source source, const std::string& handle) const {
  return const_cast<Roster*>(this)->listing(source, handle);
}

Roster::Listing& Roster::list(Source source, const std::string& handle, const Phone& phone) {
  const PhoneTable taken = table(source);
  unsigned slot = 0;
  while (taken.count(slot) != 0) {
    ++slot;
  }
  if (slot >= slotCount(source)) {
    throw ScenarioMistake(std::string(wordOf(source)) + " has room for " + std::to_string(slot) +
                          " phones, and lists as many");
  }
  return listings(source)[handle] = {slot, phone};
}

unsigned Roster::unlist(Source source, const std::string& handle) {
  const Listing* const found = listing(source, handle);
  if (found == nullptr) {
    throw ScenarioMistake(std::string(wordOf(source)) + " does not list '" + handle + "'");
  }
  const unsigned slot = found->slot;
  listings(source).erase(handle);
  return slot;
}

std::optional<std::string> Roster::firstListed(Source source) const {
  const auto& all = listings(source);
  const auto first = std::min_element(all.begin(), all.end(),
                                      [](const auto& a, const auto& b) { return a.second.slot < b.second.slot; });
  return first == all.end() ? std::nullopt : std::optional<std::string>(first->first);
}

PhoneTable Roster::table(Source source) const {
  PhoneTable table;
  for (const auto& entry : listings(source)) {
    table[entry.second.slot] = entry.second.phone;
  }
  return table;
}

}  // namespace idl::tools::scenario
