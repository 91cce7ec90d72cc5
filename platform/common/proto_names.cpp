// Names of the platform's protocol ids. The table is built at compile time,
// so lookups need no locking and never allocate.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/ifdb.h"
#include "platform/types.h"

namespace {

constexpr size_t kNameLen = 16;  // longest name plus its NUL
constexpr size_t kProtoCount = static_cast<size_t>(ZEL_PROTO_MAX) + 1;

using ProtoName = std::array<char, kNameLen>;

struct KnownProto {
    uint32_t id;
    std::string_view name;
};

// Ids with a name of their own; every other id in range is "proto<id>".
constexpr std::array<KnownProto, 12> kKnown{{
    {0, "none"},
    {1, "ip"},
    {2, "arp"},
    {3, "icmp"},
    {4, "igmp"},
    {5, "dhcp"},
    {6, "stp"},
    {7, "lacp"},
    {8, "lldp"},
    {9, "ipv6"},
    {ZEL_PROTO_PPPOEPLUS_HW, "pppoe+hw"},
    {ZEL_PROTO_PPPOEPLUS, "pppoe+"},
}};

constexpr ProtoName makeName(std::string_view text) {
    ProtoName out{};
    for (size_t i = 0; i < text.size() && i < kNameLen - 1; ++i) {
        out[i] = text[i];
    }
    return out;
}

constexpr ProtoName generatedName(uint32_t id) {
    ProtoName out{};
    constexpr std::string_view prefix = "proto";
    size_t pos = 0;
    for (char c : prefix) {
        out[pos++] = c;
    }
    char digits[10] = {};
    size_t n = 0;
    do {
        digits[n++] = static_cast<char>('0' + id % 10);
        id /= 10;
    } while (id != 0);
    while (n > 0) {
        out[pos++] = digits[--n];
    }
    return out;
}

constexpr std::array<ProtoName, kProtoCount> buildTable() {
    std::array<ProtoName, kProtoCount> table{};
    for (uint32_t id = 0; id < kProtoCount; ++id) {
        table[id] = generatedName(id);
    }
    for (const KnownProto& known : kKnown) {
        table[known.id] = makeName(known.name);
    }
    return table;
}

constexpr bool knownNamesFit() {
    for (const KnownProto& known : kKnown) {
        if (known.id >= kProtoCount || known.name.empty() || known.name.size() >= kNameLen) {
            return false;
        }
    }
    return true;
}
static_assert(knownNamesFit(), "protocol names must be in range and fit the table");

constexpr std::array<ProtoName, kProtoCount> kNames = buildTable();
static_assert(std::string_view(kNames[ZEL_PROTO_PPPOEPLUS].data()) == "pppoe+");
static_assert(std::string_view(kNames[ZEL_PROTO_PPPOEPLUS_HW].data()) == "pppoe+hw");
static_assert(std::string_view(kNames[200].data()) == "proto200");

}  // namespace

const char* zelProtoName(uint32_t id) {
    if (id >= kProtoCount) {
        return "unknown";
    }
    return kNames[id].data();
}
