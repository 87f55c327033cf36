// SPDX-License-Identifier: Apache-2.0
#include "demo/Service.h"
#include "simulator/BtPublisher.h"

namespace {

class BtService : public demo::Service<idl::bench::BtPublisher, idl::bench::BtPhone> {
 protected:
  idl::bench::BtPhone phoneOf(const demo::Command& command) const override {
    idl::bench::BtPhone phone;
    phone.id = static_cast<std::uint8_t>(command.number("id", UINT8_MAX, 0));
    phone.name = command.text("name");
    phone.address = command.text("address");
    return phone;
  }
};

}  // namespace

int main() { return BtService().run(); }
