// SPDX-License-Identifier: Apache-2.0
#ifndef DEMO_SERVICE_H
#define DEMO_SERVICE_H

#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "demo/Command.h"
#include "simulator/SlotPublisher.h"
#include "simulator/TableClaim.h"

namespace demo {

/// The life of a stand-in service: claims its table, writes it empty, says "ready", and obeys standard input until that
/// ends.
///
///     put SLOT FIELD=VALUE ...     a phone comes, or changes
///     clear SLOT                   a phone goes
///     begin                        from now on changes are collected ...
///     commit                       ... and here they become the whole table, at once
///     crash SLOT FIELD=VALUE ...   dies while it holds its lock, half-way through that phone's record
///
/// Each line is answered: "ok N", N being the number of the notification that tells of the change (0: there was none),
/// or "error" and why.
///
/// Publisher is one of the bench's, Phone its record.
template <class Publisher, class Phone>
class Service {
 public:
  virtual ~Service() = default;

  int run() {
    std::optional<idl::bench::TableClaim> claim;
    try {
      claim.emplace(Publisher::SEGMENT);
      mPublisher.initialise();
    } catch (const std::exception& error) {
      std::cerr << error.what() << std::endl;
      return 1;
    }
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line)) {
      try {
        const std::uint32_t change = obey(Command(line));
        std::cout << "ok " << change << std::endl;
      } catch (const std::exception& error) {
        std::cout << "error " << error.what() << std::endl;
      }
    }
    return 0;
  }

 protected:
  virtual Phone phoneOf(const Command& command) const = 0;

  /// A command that only this service knows. @return the notification's number.
  virtual std::uint32_t obeyOwn(const Command& command) {
    throw std::invalid_argument("\"" + command.name() + "\" is no command");
  }

  Publisher mPublisher;

 private:
  static unsigned slotOf(const Command& command) { return static_cast<unsigned>(command.number(UINT16_MAX)); }

  std::uint32_t obey(const Command& command) {
    if (command.name() == "put") {
      return put(slotOf(command), phoneOf(command));
    }
    if (command.name() == "clear") {
      return clear(slotOf(command));
    }
    if (command.name() == "begin") {
      mCollected.emplace();
      return 0;
    }
    if (command.name() == "commit") {
      return commit();
    }
    if (command.name() == "crash") {
      mPublisher.crash(idl::bench::CrashPoint::HALF_WRITTEN, slotOf(command), phoneOf(command));
    }
    return obeyOwn(command);
  }

  std::uint32_t put(unsigned slot, const Phone& phone) {
    if (!mCollected) {
      return mPublisher.put(slot, phone);
    }
    (*mCollected)[slot] = phone;
    return 0;
  }

  std::uint32_t clear(unsigned slot) {
    if (!mCollected) {
      return mPublisher.clear(slot);
    }
    mCollected->erase(slot);
    return 0;
  }

  std::uint32_t commit() {
    if (!mCollected) {
      throw std::invalid_argument("commit without begin");
    }
    const std::map<unsigned, Phone> phones = *mCollected;
    mCollected.reset();
    return mPublisher.replaceAll(phones);
  }

  std::optional<std::map<unsigned, Phone>> mCollected;  // between begin and commit
};

}  // namespace demo

#endif
