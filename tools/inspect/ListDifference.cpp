// SPDX-License-Identifier: Apache-2.0
#include "tools/inspect/ListDifference.h"

#include <algorithm>
#include <map>
#include <optional>

#include "IntegratedDeviceList/idl.h"

namespace idl::tools {

namespace {

using LmSIntegratedDeviceListDef::DeviceInfo;
using LmSIntegratedDeviceListDef::IntegratedDevice;
using List = std::vector<IntegratedDevice>;

std::string identityOf(const IntegratedDevice& phone) {
  if (idl::isBtPaired(phone)) {
    return "paired " + std::to_string(phone.btid);
  }
  return std::to_string(phone.type) + ' ' + std::to_string(phone.cpDeviceId) + ' ' + phone.aapId;
}

// Of each row its identity, numbered among equal ones.
std::vector<std::string> identitiesOf(const List& list) {
  std::map<std::string, unsigned> counts;
  std::vector<std::string> identities;
  for (const IntegratedDevice& phone : list) {
    const std::string identity = identityOf(phone);
    identities.push_back(identity + " #" + std::to_string(counts[identity]++));
  }
  return identities;
}

std::optional<std::size_t> rowOf(const std::vector<std::string>& identities, const std::string& identity) {
  const auto found = std::find(identities.begin(), identities.end(), identity);
  if (found == identities.end()) {
    return std::nullopt;
  }
  return static_cast<std::size_t>(found - identities.begin());
}

// The rows of `identities` that are in `others` as well.
std::vector<std::size_t> commonRows(const std::vector<std::string>& identities,
                                    const std::vector<std::string>& others) {
  std::vector<std::size_t> rows;
  for (std::size_t row = 0; row < identities.size(); ++row) {
    if (rowOf(others, identities[row])) {
      rows.push_back(row);
    }
  }
  return rows;
}

}  // namespace

std::vector<ListChange> differenceOf(const List& former, const List& now) {
  const std::vector<std::string> before = identitiesOf(former);
  const std::vector<std::string> after = identitiesOf(now);
  std::vector<ListChange> changes;
  for (std::size_t row = 0; row < before.size(); ++row) {
    if (!rowOf(after, before[row])) {
      changes.push_back({ListChange::Kind::REMOVED, row, 0});
    }
  }
  for (std::size_t row = 0; row < after.size(); ++row) {
    if (!rowOf(before, after[row])) {
      changes.push_back({ListChange::Kind::ADDED, 0, row});
    }
  }
  const std::vector<std::size_t> stayedBefore = commonRows(before, after);
  const std::vector<std::size_t> stayedAfter = commonRows(after, before);
  for (std::size_t place = 0; place < stayedAfter.size(); ++place) {
    if (before[stayedBefore[place]] != after[stayedAfter[place]]) {
      changes.push_back({ListChange::Kind::MOVED, *rowOf(before, after[stayedAfter[place]]), stayedAfter[place]});
    }
  }
  for (const std::size_t row : stayedAfter) {
    const std::size_t formerRow = *rowOf(before, after[row]);
    if (!changedFields(former[formerRow], now[row]).empty()) {
      changes.push_back({ListChange::Kind::CHANGED, formerRow, row});
    }
  }
  return changes;
}

std::vector<std::string> changedFields(const DeviceInfo& former, const DeviceInfo& now) {
  std::vector<std::string> fields;
  const auto compare = [&](const char* name, const auto& one, const auto& other) {
    if (one != other) {
      fields.emplace_back(name);
    }
  };
  compare("type", former.type, now.type);
  compare("name", former.name, now.name);
  compare("btid", former.btid, now.btid);
  compare("port", former.port, now.port);
  compare("session", former.session, now.session);
  compare("cpDeviceId", former.cpDeviceId, now.cpDeviceId);
  compare("aapId", former.aapId, now.aapId);
  compare("suffix", former.suffix, now.suffix);
  return fields;
}

}  // namespace idl::tools
