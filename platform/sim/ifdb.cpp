// Simulated interface database and scalar store.
#include <cstring>
#include <string>

#include "platform/ifdb.h"
#include "platform/sim/sim.h"
#include "platform/types.h"

using sim::g;

static const sim::Interface* simInterface(uint32_t unit) {
    auto i = g.interfaces.find(unit);
    return i == g.interfaces.end() ? nullptr : &i->second;
}

uint32_t zelIfGetFirst(uint32_t* unit) {
    auto f = sim::enter("zelIfGetFirst", "zelIfGetFirst()");
    if (f) return static_cast<uint32_t>(*f);
    if (unit == nullptr || g.interfaces.empty()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    *unit = g.interfaces.begin()->first;
    return 0;
}

uint32_t zelIfGetNext(uint32_t unit, uint32_t* next) {
    auto f = sim::enter("zelIfGetNext", "zelIfGetNext(" + std::to_string(unit) + ")");
    if (f) return static_cast<uint32_t>(*f);
    auto i = g.interfaces.upper_bound(unit);
    if (next == nullptr || i == g.interfaces.end()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    *next = i->first;
    return 0;
}

uint32_t zelIfGetApi(uint32_t unit, uint32_t attr, void* value) {
    auto f = sim::enter("zelIfGetApi", "zelIfGetApi(" + std::to_string(unit) + "," + std::to_string(attr) + ")");
    if (f) return static_cast<uint32_t>(*f);
    const sim::Interface* itf = simInterface(unit);
    if (itf == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    switch (attr) {
        case ZEL_IF_ATTR_NAME: {
            auto* buf = static_cast<char*>(value);
            std::memset(buf, 0, ZEL_IF_NAME_LEN);
            std::memcpy(buf, itf->name.data(), std::min<size_t>(itf->name.size(), ZEL_IF_NAME_LEN - 1));
            return 0;
        }
        case ZEL_IF_ATTR_TYPE:
            std::memcpy(value, &itf->type, 4);
            return 0;
        case ZEL_IF_ATTR_FLAGS:
            if (!itf->flagsOk) return static_cast<uint32_t>(ZEL_ERR_GENERAL);
            std::memcpy(value, &itf->flags, 4);
            return 0;
        case ZEL_IF_ATTR_MAC: {
            if (!itf->macOk) return static_cast<uint32_t>(ZEL_ERR_GENERAL);
            auto* octets = static_cast<tZelOctets*>(value);
            if (octets->buf == nullptr || octets->len < 6) return static_cast<uint32_t>(ZEL_ERR_TOO_LONG);
            std::memcpy(octets->buf, itf->mac, 6);
            octets->len = 6;
            return 0;
        }
        default:
            return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    }
}

uint32_t zelIfSetApi(uint32_t unit, uint32_t attr, void* value) {
    uint32_t proto = value != nullptr ? static_cast<const tZelIfProto*>(value)->protoId : 0;
    auto f = sim::enter("zelIfSetApi", "zelIfSetApi(" + std::to_string(unit) + "," + std::to_string(attr) + "," +
                                           std::to_string(proto) + ")");
    if (f) return static_cast<uint32_t>(*f);
    if (simInterface(unit) == nullptr) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    sim::ProtoState& st = g.protoStates[{unit, proto}];
    switch (attr) {
        case ZEL_IF_ATTR_PROTO_DFLT_ON: st.dflt = true; return 0;
        case ZEL_IF_ATTR_PROTO_DFLT_OFF: st.dflt = false; return 0;
        case ZEL_IF_ATTR_PROTO_ON: st.on = true; return 0;
        case ZEL_IF_ATTR_PROTO_OFF: st.on = false; return 0;
        default: return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    }
}

char* zelIfUnit2Name(uint32_t unit, char* buf, uint32_t limit) {
    if (buf == nullptr || limit == 0) return buf;
    const sim::Interface* itf = simInterface(unit);
    size_t n = itf == nullptr ? 0 : std::min<size_t>(itf->name.size(), limit - 1);
    if (n > 0) std::memcpy(buf, itf->name.data(), n);
    buf[n] = '\0';
    return buf;
}

uint32_t zelIndexTrans(uint32_t unit, uint32_t kind, void* out) {
    auto f = sim::enter("zelIndexTrans", "zelIndexTrans(" + std::to_string(unit) + "," + std::to_string(kind) + ")");
    if (f) return static_cast<uint32_t>(*f);
    const sim::Interface* itf = simInterface(unit);
    if (itf == nullptr || !itf->phyOk) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (kind != ZEL_INDEX_TRANS_PHYINFO) return static_cast<uint32_t>(ZEL_ERR_UNSUPPORTED);
    if (out == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    std::memcpy(out, &itf->phyInfo, sizeof(itf->phyInfo));
    return 0;
}

uint32_t zelScalarGetApi(uint32_t unit, uint32_t scalar, void* value) {
    auto f = sim::enter("zelScalarGetApi",
                        "zelScalarGetApi(" + std::to_string(unit) + "," + std::to_string(scalar) + ")");
    if (f) return static_cast<uint32_t>(*f);
    auto s = g.scalars.find(scalar);
    if (s == g.scalars.end()) return static_cast<uint32_t>(ZEL_ERR_NOT_FOUND);
    if (value == nullptr) return static_cast<uint32_t>(ZEL_ERR_NULL_POINTER);
    // Texts are bounded by the scalar store's text size, NUL included.
    size_t n = std::min<size_t>(s->second.size(), ZEL_SCALAR_TEXT_LEN);
    std::memcpy(value, s->second.data(), n);
    return 0;
}
