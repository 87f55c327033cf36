// SPDX-License-Identifier: Apache-2.0
#include "demo/Service.h"
#include "simulator/AapPublisher.h"

namespace {

class AapService : public demo::Service<idl::bench::AapPublisher, idl::bench::AapPhone> {
 protected:
  idl::bench::AapPhone phoneOf(const demo::Command& command) const override {
    idl::bench::AapPhone phone;
    phone.id = command.text("id");
    phone.name = command.text("name");
    phone.session = static_cast<std::uint8_t>(command.number("session", UINT8_MAX, 0));
    phone.btid = static_cast<std::uint8_t>(command.number("btid", UINT8_MAX, UINT8_MAX));
    phone.port = static_cast<std::int32_t>(command.number("port", INT32_MAX, 0));
    return phone;
  }
};

}  // namespace

int main() { return AapService().run(); }
