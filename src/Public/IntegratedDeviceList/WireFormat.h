// SPDX-License-Identifier: Apache-2.0
#ifndef INTEGRATEDDEVICELIST_WIREFORMAT_H
#define INTEGRATEDDEVICELIST_WIREFORMAT_H

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "IntegratedDeviceList/WCPAtom.h"

/// The tables that the services publish in named shared memory, byte by byte. For whoever writes a service.
///
/// A segment is a 32-bit size word (the payload's size in bytes) and the payload at its natural alignment:
///
///     segment               payload at   payload size   segment size
///     "FuncInfo"                 4           2104           2108
///     "BtPairedDeviceList"       4           1120           1124
///     "LmSCarplayResource"       8          13728          13736
///     "AapDeviceList"            4           6288           6292
///
/// The name of the shared-memory object is a slash and the segment's name. Whoever writes or reads a payload
/// holds the LmSharedSyncObject of the segment's name. Integers are little-endian.
///
/// The slots are images of the unit's own 32-bit objects: a header word (that object's first word, of no meaning to
/// readers) and then the fields. All types here have the same size and offsets on every machine.
namespace idl::wire {

constexpr char FUNC_INFO_SEGMENT[] = "FuncInfo";
constexpr char BT_SEGMENT[] = "BtPairedDeviceList";
constexpr char CARPLAY_SEGMENT[] = "LmSCarplayResource";
constexpr char AAP_SEGMENT[] = "AapDeviceList";

/// The id under which the CarPlay service publishes a change; its data is one 32-bit number.
constexpr unsigned CARPLAY_NOTIFICATION_ID = 6;

/// Which functions the unit has. All but one byte belongs to others.
struct FuncInfoStruct {
  alignas(4) std::uint8_t reserved1[508];
  std::uint8_t btFunctionFlag;  ///< not 0: the list is not started before Bluetooth has reported
  std::uint8_t reserved2[1595];
};
static_assert(sizeof(FuncInfoStruct) == 2104 && alignof(FuncInfoStruct) == 4);
static_assert(offsetof(FuncInfoStruct, btFunctionFlag) == 508);
static_assert(std::is_trivial_v<FuncInfoStruct> && std::is_standard_layout_v<FuncInfoStruct>);

/// One phone in the Bluetooth pairing list.
struct BtSlot {
  alignas(4) std::uint32_t header;
  std::uint8_t id;   ///< pairing id, 255: free; a slot of zeros is a phone with id 0
  char name[81];     ///< NUL-terminated
  char address[18];  ///< NUL-terminated
  alignas(4) std::uint32_t info;
  std::uint8_t flag1;
  std::uint8_t flag2;
  std::uint8_t padding[2];
};
static_assert(sizeof(BtSlot) == 112 && alignof(BtSlot) == 4);
static_assert(offsetof(BtSlot, header) == 0 && offsetof(BtSlot, id) == 4 && offsetof(BtSlot, name) == 5 &&
              offsetof(BtSlot, address) == 86 && offsetof(BtSlot, info) == 104 && offsetof(BtSlot, flag1) == 108 &&
              offsetof(BtSlot, flag2) == 109 && offsetof(BtSlot, padding) == 110);
static_assert(std::is_trivial_v<BtSlot> && std::is_standard_layout_v<BtSlot>);

struct BtPairedDeviceList {
  static constexpr unsigned SLOT_COUNT = 10;

  BtSlot slots[SLOT_COUNT];
};
static_assert(sizeof(BtPairedDeviceList) == 1120 && alignof(BtPairedDeviceList) == 4);

/// One phone that the Android Auto service knows.
struct AapSlot {
  alignas(4) std::uint32_t header;
  std::uint8_t session;
  char name[257];                ///< NUL-terminated
  char id[257];                  ///< NUL-terminated; empty: free
  std::uint8_t btid;             ///< Bluetooth pairing id, 255: not paired
  alignas(4) std::int32_t port;  ///< USB port, 0: not connected by USB
};
static_assert(sizeof(AapSlot) == 524 && alignof(AapSlot) == 4);
static_assert(offsetof(AapSlot, header) == 0 && offsetof(AapSlot, session) == 4 && offsetof(AapSlot, name) == 5 &&
              offsetof(AapSlot, id) == 262 && offsetof(AapSlot, btid) == 519 && offsetof(AapSlot, port) == 520);
static_assert(std::is_trivial_v<AapSlot> && std::is_standard_layout_v<AapSlot>);

struct AapDeviceList {
  static constexpr unsigned SLOT_COUNT = 12;

  AapSlot slots[SLOT_COUNT];
};
static_assert(sizeof(AapDeviceList) == 6288 && alignof(AapDeviceList) == 4);

/// The CarPlay service's state, as far as the device list reads it; the reserved bytes are that service's own.
/// Offsets beside the fields count from the start of the segment, 8 bytes before the payload.
struct CarPlaySharedMemStruct {
  static constexpr unsigned PHONE_COUNT = 11;

  alignas(8) std::uint8_t reserved1[1064];
  alignas(8) std::uint64_t currentPhone;  ///< 1072: identifier of the connected phone, 0: none. Bit 41 (bit 9 of the
                                          ///< word at 1076) also says that the other phones are attached by USB.
  std::uint8_t reserved2[720];
  cps_def::WCPAtom phones[PHONE_COUNT];  ///< 1800
  std::uint8_t reserved3[8676];
  std::uint8_t initialised;  ///< 13732: 0 until somebody has written the defaults
  std::uint8_t reserved4[3];
};
static_assert(sizeof(CarPlaySharedMemStruct) == 13728 && alignof(CarPlaySharedMemStruct) == 8);
static_assert(offsetof(CarPlaySharedMemStruct, currentPhone) == 1072 - 8 &&
              offsetof(CarPlaySharedMemStruct, phones) == 1800 - 8 &&
              offsetof(CarPlaySharedMemStruct, initialised) == 13732 - 8);
static_assert(std::is_trivial_v<CarPlaySharedMemStruct> && std::is_standard_layout_v<CarPlaySharedMemStruct>);

}  // namespace idl::wire

#endif
