// Interface database and scalar store.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t ZEL_IF_NAME_LEN = 64;

// Interface attributes of zelIfGetApi / zelIfSetApi.
constexpr uint32_t ZEL_IF_ATTR_NAME = 3;               // get: NUL-terminated name, ZEL_IF_NAME_LEN bytes
constexpr uint32_t ZEL_IF_ATTR_TYPE = 5;               // get: u32 type number (6 Ethernet, 250 G-PON)
constexpr uint32_t ZEL_IF_ATTR_FLAGS = 10;             // get: u32 flags word
constexpr uint32_t ZEL_IF_ATTR_MAC = 33;               // get: tZelOctets of 6 bytes
constexpr uint32_t ZEL_IF_ATTR_PROTO_DFLT_ON = 53;     // set: tZelIfProto
constexpr uint32_t ZEL_IF_ATTR_PROTO_DFLT_OFF = 54;    // set: tZelIfProto
constexpr uint32_t ZEL_IF_ATTR_PROTO_ON = 56;          // set: tZelIfProto
constexpr uint32_t ZEL_IF_ATTR_PROTO_OFF = 57;         // set: tZelIfProto

// Bits of the interface flags word.
constexpr uint32_t ZEL_IF_FLAG_NOT_SUBSCRIBER = 0x10;   // loopback, bridge, management
constexpr uint32_t ZEL_IF_FLAG_AGG_MEMBER = 0x100;      // member of an aggregate
constexpr uint32_t ZEL_IF_FLAG_AGG_EMPTY = 0x40000;     // aggregate without members

// Index translations of zelIndexTrans.
constexpr uint32_t ZEL_INDEX_TRANS_PHYINFO = 5;  // unit -> tZelPhyInfo

// A caller buffer and its length.
struct tZelOctets {
    uint8_t* buf;
    uint32_t len;
};

// Protocol record of the protocol attributes; only the id is read.
struct tZelIfProto {
    uint32_t protoId;
    uint32_t reserved[3];
};

// Physical position of an interface (32 bytes).
struct tZelPhyInfo {
    uint32_t sysNo;    // word 0: subsystem (line card)
    uint32_t slotNo;   // word 1
    uint32_t portNo;   // word 2: port of kinds 1, 10, 11; 0 for a port not on the front panel
    uint32_t subPort;  // word 3
    uint32_t aggNo;    // word 4: port number of kinds 2 and 12
    uint32_t ondType;  // word 5: interface kind
    uint32_t onuNo;    // word 6
    uint32_t reserved; // word 7
};
static_assert(sizeof(tZelPhyInfo) == 32);
static_assert(offsetof(tZelPhyInfo, portNo) == 8);
static_assert(offsetof(tZelPhyInfo, aggNo) == 16);
static_assert(offsetof(tZelPhyInfo, ondType) == 20);

// Scalars of zelScalarGetApi.
constexpr uint32_t ZEL_SCALAR_SYS_MAC = 6;      // 6 bytes
constexpr uint32_t ZEL_SCALAR_VENDOR_ID = 38;   // u32
constexpr uint32_t ZEL_SCALAR_DEVICE_NAME = 50; // NUL-terminated text, at most 256 bytes with the NUL
constexpr uint32_t ZEL_SCALAR_SYS_NAME = 58;    // NUL-terminated text, at most 256 bytes with the NUL
constexpr uint32_t ZEL_SCALAR_TEXT_LEN = 256;

// Walk of every interface unit the platform knows: 0 while a unit was delivered.
uint32_t zelIfGetFirst(uint32_t* unit);
uint32_t zelIfGetNext(uint32_t unit, uint32_t* next);
uint32_t zelIfGetApi(uint32_t unit, uint32_t attr, void* value);
uint32_t zelIfSetApi(uint32_t unit, uint32_t attr, void* value);
// Writes the interface's name (at most limit - 1 characters and a NUL) and
// returns buf; an unknown unit gives an empty name.
char* zelIfUnit2Name(uint32_t unit, char* buf, uint32_t limit);
uint32_t zelIndexTrans(uint32_t unit, uint32_t kind, void* out);
uint32_t zelScalarGetApi(uint32_t unit, uint32_t scalar, void* value);

// The platform's name of protocol `id`: ids 0 to ZEL_PROTO_MAX have names,
// any other id gives "unknown".
const char* zelProtoName(uint32_t id);
