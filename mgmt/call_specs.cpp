// The settings of gPppoeplusFuncMap as the command service builds them
// (call_specs.h). The table is made from two lists, one per kind of setting,
// so that a setting's value record is written down once for get, set and
// sync alike.
#include "mgmt/call_specs.h"

#include <array>

#include "format/keywords.h"
#include "mgmt/func_map.h"
#include "mgmt/mgmt_types.h"

namespace {

// One setting: its code and the value it takes.
enum class Access : uint8_t { Get, Set, GetSet };
enum class Value : uint8_t { Word, Text, Version, Nsr };
struct Setting {
    uint32_t cmd;
    Value value;
    Access access;
};

constexpr Setting SCALAR_SETTINGS[] = {
    {PPPOEPLUS_SCALAR_DEBUG, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_POLICY, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_ENABLE, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_VENDORID, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_CIRCUITID_TYPE, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_CIRCUITID_FORMAT, Value::Text, Access::GetSet},
    {PPPOEPLUS_SCALAR_REMOTEID_TYPE, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_REMOTEID_FORMAT, Value::Text, Access::GetSet},
    {PPPOEPLUS_SCALAR_VERSION, Value::Version, Access::Get},
    {PPPOEPLUS_SCALAR_DFLT_VENDORID, Value::Word, Access::Get},
    {PPPOEPLUS_SCALAR_PON_CIRCUITID_TYPE, Value::Word, Access::GetSet},
    {PPPOEPLUS_SCALAR_PON_CIRCUITID_FORMAT, Value::Text, Access::GetSet},
    {PPPOEPLUS_SCALAR_ALLPORT_ENABLE_SUPPORT, Value::Word, Access::Get},
    {PPPOEPLUS_SCALAR_ETHIF_ENABLE, Value::Word, Access::Get},
    {PPPOEPLUS_SCALAR_ETHAGGIF_ENABLE, Value::Word, Access::Get},
    {PPPOEPLUS_SCALAR_GPONIF_ENABLE, Value::Word, Access::Get},
    {PPPOEPLUS_SCALAR_PONAGGIF_ENABLE, Value::Word, Access::Get},
    // The get returns with the daemon lock held when the caller announces
    // less room than the record: the service refuses such a call.
    {PPPOEPLUS_SCALAR_NSRINFO, Value::Nsr, Access::Get},
};

constexpr Setting IF_SETTINGS[] = {
    {PPPOEPLUS_IF_TRUST, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_ENABLE, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_POLICY, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_IGNORE_PKT, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_CIRCUITID_TYPE, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_CIRCUITID_FORMAT, Value::Text, Access::GetSet},
    {PPPOEPLUS_IF_REMOTEID_TYPE, Value::Word, Access::GetSet},
    {PPPOEPLUS_IF_REMOTEID_FORMAT, Value::Text, Access::GetSet},
    {PPPOEPLUS_IF_ERROR_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_ERROR_SEND, Value::Word, Access::Get},
    {PPPOEPLUS_IF_PADI_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_PADR_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_PADO_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_PADS_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_PADT_RCV, Value::Word, Access::Get},
    {PPPOEPLUS_IF_TOTAL_SEND, Value::Word, Access::Get},
    // The value is not read, but must not be null: a word is built.
    {PPPOEPLUS_IF_STAT_CLEAR, Value::Word, Access::Set},
};

// The record a get builds for a setting.
constexpr tIcmCallSpec getSpec(uint32_t code, const Setting& s) {
    switch (s.value) {
        case Value::Word: return {code, s.cmd, ICM_VALUE_U32, 0, 0};
        // A format comes back whole whatever size the caller announces, so
        // the buffer holds the longest one.
        case Value::Text: return {code, s.cmd, ICM_VALUE_TEXT_OUT, PPPOEPLUS_FORMAT_LEN, 0};
        case Value::Version: return {code, s.cmd, ICM_VALUE_TEXT_OUT, PPPOEPLUS_VERSION_LEN, 0};
        case Value::Nsr:
            return {code, s.cmd, ICM_VALUE_TEXT_OUT, sizeof(tPppoeplusNsrInfo), sizeof(tPppoeplusNsrInfo)};
    }
    return {};
}

// The record a set or sync builds. A text of PPPOEPLUS_FORMAT_LEN bytes still
// reaches the entry point, which answers it as too long.
constexpr tIcmCallSpec setSpec(uint32_t code, const Setting& s) {
    if (s.value == Value::Text) return {code, s.cmd, ICM_VALUE_TEXT_IN, PPPOEPLUS_FORMAT_LEN, 0};
    return {code, s.cmd, ICM_VALUE_U32, 0, 0};
}

template <size_t N>
constexpr void addSettings(std::array<tIcmCallSpec, PPPOEPLUS_CALL_SPEC_ROWS>& out, size_t& n, uint32_t get,
                           uint32_t set, uint32_t sync, const Setting (&list)[N]) {
    for (const Setting& s : list) {
        if (s.access != Access::Set) out[n++] = getSpec(get, s);
        if (s.access != Access::Get) {
            out[n++] = setSpec(set, s);
            out[n++] = setSpec(sync, s);
        }
    }
}

constexpr size_t countRows() {
    size_t n = 2;  // the two iterators
    for (const Setting& s : SCALAR_SETTINGS) n += s.access == Access::GetSet ? 3 : s.access == Access::Get ? 1 : 2;
    for (const Setting& s : IF_SETTINGS) n += s.access == Access::GetSet ? 3 : s.access == Access::Get ? 1 : 2;
    return n;
}
static_assert(countRows() == PPPOEPLUS_CALL_SPEC_ROWS, "PPPOEPLUS_CALL_SPEC_ROWS must match the setting lists");

constexpr std::array<tIcmCallSpec, PPPOEPLUS_CALL_SPEC_ROWS> makeSpecs() {
    std::array<tIcmCallSpec, PPPOEPLUS_CALL_SPEC_ROWS> out{};
    size_t n = 0;
    out[n++] = {PPPOEPLUS_FUNC_IF_GET_FIRST, ICM_ANY_CMD, ICM_VALUE_U32, 0, 0};
    out[n++] = {PPPOEPLUS_FUNC_IF_GET_NEXT, ICM_ANY_CMD, ICM_VALUE_U32, 0, 0};
    addSettings(out, n, PPPOEPLUS_FUNC_SCALAR_GET, PPPOEPLUS_FUNC_SCALAR_SET, PPPOEPLUS_FUNC_SCALAR_SYNC,
                SCALAR_SETTINGS);
    addSettings(out, n, PPPOEPLUS_FUNC_IF_GET, PPPOEPLUS_FUNC_IF_SET, PPPOEPLUS_FUNC_IF_SYNC, IF_SETTINGS);
    return out;
}

}  // namespace

const std::array<tIcmCallSpec, PPPOEPLUS_CALL_SPEC_ROWS> gPppoeplusCallSpecs = makeSpecs();
