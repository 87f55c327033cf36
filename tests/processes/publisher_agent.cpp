// SPDX-License-Identifier: Apache-2.0
// publisher_agent bt|cp|aap|func: a stand-in service that does what its standard input says, line by line, and answers
// each with "ok", or with "error" and why. Says "ok" first, when it has its table.
//
//     initialise             writes the empty table, as the service does when it starts
//     put SLOT FIELD ...     a phone comes, or changes; the fields in the order of the record below
//     clear SLOT             a phone goes
//     crash SLOT FIELD ...   dies while it holds its lock, half-way through that phone's record
//     hold                   takes the lock, and keeps it until it is killed
//     connect IDENTIFIER     the connected phone (cp)
//     bluetooth 0|1          whether the unit has Bluetooth (func)
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "LmFramework/SharedMemory/LmSharedSyncObject.h"
#include "processes/Words.h"
#include "simulator/AapPublisher.h"
#include "simulator/BtPublisher.h"
#include "simulator/CpPublisher.h"
#include "simulator/FuncInfoPublisher.h"
#include "simulator/SlotPublisher.h"

namespace {

void readPhone(Words& words, idl::bench::BtPhone& phone) {
  phone.id = words.number<std::uint8_t>();
  phone.name = words.text();
}

void readPhone(Words& words, idl::bench::CpPhone& phone) {
  phone.identifier = words.number<std::uint64_t>();
  phone.name = words.text();
  phone.btid = words.number<std::uint8_t>();
  phone.inSession = words.number<unsigned>() != 0;
  phone.session = words.number<std::uint8_t>();
}

void readPhone(Words& words, idl::bench::AapPhone& phone) {
  phone.id = words.text();
  phone.name = words.text();
  phone.session = words.number<std::uint8_t>();
  phone.btid = words.number<std::uint8_t>();
  phone.port = words.number<std::int32_t>();
}

void connect(idl::bench::CpPublisher& publisher, std::uint64_t identifier) { publisher.setCurrentPhone(identifier); }

template <class Publisher>
void connect(Publisher& /*publisher*/, std::uint64_t /*identifier*/) {
  throw std::invalid_argument("this service connects no phone");
}

template <class Publisher>
void obey(Publisher& publisher, const std::string& command, Words& words) {
  typename Publisher::Phone phone;
  if (command == "initialise") {
    publisher.initialise();
  } else if (command == "put" || command == "crash") {
    const auto slot = words.number<unsigned>();
    readPhone(words, phone);
    if (command == "crash") {
      publisher.crash(idl::bench::CrashPoint::HALF_WRITTEN, slot, phone);
    }
    publisher.put(slot, phone);
  } else if (command == "clear") {
    publisher.clear(words.number<unsigned>());
  } else if (command == "hold") {
    static const LmSharedSyncObject lock(Publisher::SEGMENT);
    lock.lock();
  } else if (command == "connect") {
    connect(publisher, words.number<std::uint64_t>());
  } else {
    throw std::invalid_argument("no command: " + command);
  }
}

/// Answers every line of standard input until that ends.
template <class Obey>
int serve(Obey obeyOne) {
  std::cout << "ok" << std::endl;
  std::string line;
  while (std::getline(std::cin, line)) {
    try {
      Words words(line);
      const std::string command = words.word();
      obeyOne(command, words);
      std::cout << "ok" << std::endl;
    } catch (const std::exception& error) {
      std::cout << "error " << error.what() << std::endl;
    }
  }
  return 0;
}

template <class Publisher>
int serveTable() {
  Publisher publisher;
  return serve([&](const std::string& command, Words& words) { obey(publisher, command, words); });
}

int serveFunctions() {
  idl::bench::FuncInfoPublisher publisher;
  return serve([&](const std::string& command, Words& words) {
    if (command != "bluetooth") {
      throw std::invalid_argument("no command: " + command);
    }
    publisher.setBluetooth(words.number<unsigned>() != 0);
  });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string source = argc == 2 ? argv[1] : "";
  try {
    if (source == "bt") {
      return serveTable<idl::bench::BtPublisher>();
    }
    if (source == "cp") {
      return serveTable<idl::bench::CpPublisher>();
    }
    if (source == "aap") {
      return serveTable<idl::bench::AapPublisher>();
    }
    if (source == "func") {
      return serveFunctions();
    }
  } catch (const std::exception& error) {
    std::cout << "error " << error.what() << std::endl;
    return 1;
  }
  std::cerr << "usage: publisher_agent bt|cp|aap|func" << std::endl;
  return 2;
}
