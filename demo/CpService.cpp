// SPDX-License-Identifier: Apache-2.0
#include "demo/Service.h"
#include "simulator/CpPublisher.h"

namespace {

// Knows one command more: "current ID" says which phone is connected, by its identifier; 0: none.
class CpService : public demo::Service<idl::bench::CpPublisher, idl::bench::CpPhone> {
 protected:
  idl::bench::CpPhone phoneOf(const demo::Command& command) const override {
    idl::bench::CpPhone phone;
    phone.identifier = command.number("id", UINT64_MAX, 0);
    phone.name = command.text("name");
    phone.btid = static_cast<std::uint8_t>(command.number("btid", UINT8_MAX, 0));
    phone.session = static_cast<std::uint8_t>(command.number("session", UINT8_MAX, 0));
    return phone;
  }

  std::uint32_t obeyOwn(const demo::Command& command) override {
    if (command.name() == "current") {
      return mPublisher.setCurrentPhone(command.number(UINT64_MAX));
    }
    return Service::obeyOwn(command);
  }
};

}  // namespace

int main() { return CpService().run(); }
