// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_WCPATOM_H
#define INTEGRATEDDEVICELIST_WCPATOM_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace cps_def {

/// A phone in the CarPlay service's phone table: 296 raw bytes, the same in shared memory and here.
///
///     0      identifier     u64, 0: the slot is empty
///     8      name           256 bytes of text, NUL-terminated
///     264    btid           Bluetooth pairing id, 0: none
///     265    inSession      not 0: the session is 1, whatever `session` says
///     266    session        session number otherwise
///     267    reserved1      2 bytes
///     269    valid          0: the whole entry counts as empty
///     270    reserved2      26 bytes
///
/// Integers are little-endian. The reserved bytes belong to the CarPlay service; every copy carries them along.
struct WCPAtom {
  static constexpr unsigned NAME_SIZE = 256;

  alignas(8) std::uint64_t identifier;
  char name[NAME_SIZE];
  std::uint8_t btid;
  std::uint8_t inSession;
  std::uint8_t session;
  std::uint8_t reserved1[2];
  std::uint8_t valid;
  std::uint8_t reserved2[26];
};

static_assert(sizeof(WCPAtom) == 296 && alignof(WCPAtom) == 8, "the phone table's format");
static_assert(offsetof(WCPAtom, identifier) == 0 && offsetof(WCPAtom, name) == 8 && offsetof(WCPAtom, btid) == 264 &&
                  offsetof(WCPAtom, inSession) == 265 && offsetof(WCPAtom, session) == 266 &&
                  offsetof(WCPAtom, reserved1) == 267 && offsetof(WCPAtom, valid) == 269 &&
                  offsetof(WCPAtom, reserved2) == 270,
              "the phone table's format");
static_assert(std::is_trivial_v<WCPAtom> && std::is_standard_layout_v<WCPAtom>, "copied as raw bytes");

}  // namespace cps_def

#endif
